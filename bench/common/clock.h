// What time a piece of work takes.
#pragma once

#include <ctime>

namespace bench {

// CPU: of this thread, what other processes use not counted. For work that neither waits nor
// leaves its thread. WALL: for files and for several threads.
enum clock_kind : int { CPU = CLOCK_THREAD_CPUTIME_ID, WALL = CLOCK_MONOTONIC };

inline double now_ns(clock_kind clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

template <class Work>
double time_ns(clock_kind clock, Work&& work) {
  const double start = now_ns(clock);
  work();
  return now_ns(clock) - start;
}

// Makes the compiler believe that the value is used.
template <class T>
void keep(const T& value) {
  asm volatile("" : : "r,m"(value) : "memory");
}

}  // namespace bench
