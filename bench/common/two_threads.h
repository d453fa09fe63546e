// What the same work costs two threads that do it at the same time.
#pragma once

#include <functional>

namespace bench {

struct shared_cost {
  double alone;     // ns of wall time a run of the work takes one thread, the other asleep
  double together;  // and each of two
};

// Two threads on a processor each run the work, by turns alone and at the same moment; medians of
// what that took. Only runs count in which no thread was taken off its processor, and of two only
// those that overlapped: other programs cost patience, and nothing else. Where there is none in
// four seconds, all runs count. The work should take between 20 us and 1 ms.
shared_cost cost_of_sharing(const std::function<void()>& work);

// Whether this process may use two.
bool two_processors();

}  // namespace bench
