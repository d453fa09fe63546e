// What the same work costs two threads that do it at the same time.
#pragma once

#include <functional>

namespace bench {

struct shared_cost {
  double alone;     // ns of wall time a run of the work takes one thread, the other asleep
  double together;  // and each of two
};

// Two threads on a processor each run the work in turns, alone and at the same moment. Only
// runs count in which no thread was taken off its processor, and of two only those that
// overlapped; a median is taken of each. Other programs so cost patience, but do not count. The
// work should take between 20 us and 1 ms.
// False when the process may use one processor only.
bool two_processors();
shared_cost cost_of_sharing(const std::function<void()>& work);

}  // namespace bench
