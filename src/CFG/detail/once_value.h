// Values that the process computes once.
#pragma once

#include <atomic>
#include <cstdint>
#include <new>

#include <ace/Guard_T.h>
#include <ace/Recursive_Thread_Mutex.h>
#include <thread/ForkHandler.h>

namespace cfg {

// The lock under which all of them are computed. It is recursive because reading one from
// the tree may ask for another.
inline ACE_Recursive_Thread_Mutex& once_lock() {
  struct Lock {
    ACE_Recursive_Thread_Mutex mutex;
    // It may be held for as long as a request takes: a fork does not wait for it.
    ForkHandler handler{ForkHandler::REPOSITORIES, told, this};

    static void told(void* lock, ForkHandler::Phase phase) {
      if (phase != ForkHandler::IN_CHILD) return;
      ACE_Recursive_Thread_Mutex& mutex = static_cast<Lock*>(lock)->mutex;
      if (mutex.tryacquire() == 0) {
        mutex.release();
      } else {
        new (&mutex) ACE_Recursive_Thread_Mutex;  // whoever had it is not there
      }
    }
  };
  static Lock& lock = *new Lock;
  return lock.mutex;
}

// No child of a fork waits for its making.
[[maybe_unused]] inline const ACE_Recursive_Thread_Mutex& once_lock_made_early = once_lock();

// A value that the first caller computes and that all later ones get. A computation that
// asks for the value it is about to give gets T().
template <class T>
class once_value {
 public:
  template <class Compute>
  T get(Compute compute) {
    if (m_is_ready.load(std::memory_order_acquire)) return m_value;
    const ACE_Guard<ACE_Recursive_Thread_Mutex> guard(once_lock());
    if (m_is_ready.load(std::memory_order_relaxed)) return m_value;
    // What was begun before a fork, by a thread that the child does not have, never ends.
    const uint64_t here = uint64_t{ForkHandler::Generation()} + 1;
    if (m_computed_in == here) return T();
    struct Computing {
      Computing(uint64_t& where, uint64_t process) : m_where(where) { m_where = process; }
      ~Computing() { m_where = 0; }
      uint64_t& m_where;
    } const computing(m_computed_in, here);
    m_value = compute();
    m_is_ready.store(true, std::memory_order_release);
    return m_value;
  }

 private:
  std::atomic<bool> m_is_ready{false};
  uint64_t m_computed_in = 0;  // guarded by once_lock(): one more than that process's generation
  T m_value{};                 // written under once_lock() before it is ready
};

}  // namespace cfg
