// Waiting for what another thread changes.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include <thread/Mutex.h>

// Wait with the mutex held that guards the state in question: it is given back for the time
// of the wait and held again on return. Wake-ups without a reason happen; the forms with a
// condition look again by themselves.
class ConditionVar {
 public:
  using Time = std::chrono::steady_clock::time_point;

  void wait(Mutex& mutex) THREADAPI_REQUIRES(mutex) {
    const Borrowed lock(mutex);
    m_condition.wait(lock.m_lock);
  }

  template <class Condition>
  void wait(Mutex& mutex, Condition is_met) THREADAPI_REQUIRES(mutex) {
    while (!is_met()) wait(mutex);
  }

  // False once `end` has passed.
  bool wait_until(Mutex& mutex, Time end) THREADAPI_REQUIRES(mutex) {
    const Borrowed lock(mutex);
    return m_condition.wait_until(lock.m_lock, end) == std::cv_status::no_timeout;
  }

  // False when the condition is still not met at the end of the time.
  template <class Condition>
  bool wait_for(Mutex& mutex, std::chrono::milliseconds time, Condition is_met)
      THREADAPI_REQUIRES(mutex) {
    const Time end = std::chrono::steady_clock::now() + time;
    while (!is_met()) {
      if (!wait_until(mutex, end)) return is_met();
    }
    return true;
  }

  void notify_one() { m_condition.notify_one(); }
  void notify_all() { m_condition.notify_all(); }

 private:
  // The caller's lock in the form the standard wants, not released at the end.
  struct Borrowed {
    explicit Borrowed(Mutex& mutex) : m_lock(mutex.m_mutex, std::adopt_lock) {}
    ~Borrowed() { m_lock.release(); }
    mutable std::unique_lock<std::mutex> m_lock;
  };
  std::condition_variable m_condition;
};
