// A lock that says whether its holder reads or writes.
#pragma once

#include <mutex>
#include <new>

#include <thread/ForkHandler.h>

// A thread may take it again, in either way, while it holds it, and in particular go from
// reading to writing without a deadlock. That is bought with one holder at a time: readers
// exclude each other too, so hold it for a few statements only. A fork does not wait for it: in the
// child it is free, unless the thread that forks holds it.
class RecursiveThreadMutexWrapper {
 public:
  RecursiveThreadMutexWrapper() = default;
  RecursiveThreadMutexWrapper(const RecursiveThreadMutexWrapper&) = delete;
  RecursiveThreadMutexWrapper& operator=(const RecursiveThreadMutexWrapper&) = delete;

  void lock_read() { m_mutex.lock(); }
  void lock_write() { m_mutex.lock(); }
  void unlock() { m_mutex.unlock(); }  // one for each lock

  // Held from construction to end.
  class ReadGuard {
   public:
    explicit ReadGuard(RecursiveThreadMutexWrapper& lock) : m_guard(lock.m_mutex) {}

   private:
    std::lock_guard<std::recursive_mutex> m_guard;
  };
  class WriteGuard {
   public:
    explicit WriteGuard(RecursiveThreadMutexWrapper& lock) : m_guard(lock.m_mutex) {}

   private:
    std::lock_guard<std::recursive_mutex> m_guard;
  };

 private:
  static void told(void* mutex, ForkHandler::Phase phase) {
    if (phase != ForkHandler::IN_CHILD) return;
    std::recursive_mutex& self = static_cast<RecursiveThreadMutexWrapper*>(mutex)->m_mutex;
    if (self.try_lock()) {
      self.unlock();
    } else {
      new (&self) std::recursive_mutex;  // whoever had it is not there
    }
  }

  std::recursive_mutex m_mutex;
  ForkHandler m_handler{ForkHandler::REPOSITORIES, told, this};
};
