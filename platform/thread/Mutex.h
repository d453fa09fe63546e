// The plain lock.
#pragma once

#include <mutex>

#include <thread/ThreadAPI_Annotations.h>

// A lock for one thread at a time, not recursive. Works with the standard guards too.
class THREADAPI_CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() THREADAPI_ACQUIRE() { m_mutex.lock(); }
  void unlock() THREADAPI_RELEASE() { m_mutex.unlock(); }
  bool try_lock() THREADAPI_TRY_ACQUIRE(true) { return m_mutex.try_lock(); }

 private:
  friend class ConditionVar;
  std::mutex m_mutex;
};

// Holds a Mutex from its construction to its end.
class THREADAPI_SCOPED_CAPABILITY MutexGuard {
 public:
  explicit MutexGuard(Mutex& mutex) THREADAPI_ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.lock(); }
  ~MutexGuard() THREADAPI_RELEASE() { m_mutex.unlock(); }
  MutexGuard(const MutexGuard&) = delete;
  MutexGuard& operator=(const MutexGuard&) = delete;

 private:
  Mutex& m_mutex;
};
