// A lock for many readers and few writers.
#pragma once

#include <atomic>

#include <strings/Export.h>
#include <thread/ForkHandler.h>

// Readers share it at next to no cost, however many there are: each says that it reads in memory
// of its own thread. A writer announces itself and waits until nobody reads any more
// (a grace period of liburcu), some ten microseconds when nobody does. Beside endless readers it
// has its turn, and they have theirs behind it. For std::shared_lock and std::unique_lock. Not
// recursive, nor may a reader become a writer. All of a process share one grace period: who reads
// under one may neither fork nor wait for a writer of another. A fork waits for a writer, and in
// the child nobody reads but the thread that forked.
//
// To lock and unlock takes a reader 4 ns, each of two readers at once 7; with std::shared_mutex it
// takes 6 and 50, since both write to the same cache line. A write without readers takes 1 us.
class HALVORIA_API ReadMostlyLock {
 public:
  ReadMostlyLock() = default;
  ReadMostlyLock(const ReadMostlyLock&) = delete;
  ReadMostlyLock& operator=(const ReadMostlyLock&) = delete;

  void lock_shared();
  bool try_lock_shared();  // false beside a writer
  void unlock_shared();
  void lock();
  void unlock();

  // Whether this thread reads under any of them.
  static bool IsReading();

 private:
  std::atomic<bool> m_is_written{false};
  ForkMutex m_writers{ForkHandler::REPOSITORIES};
};
