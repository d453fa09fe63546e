// Whose turn it is to write.
#pragma once

#include <chrono>
#include <deque>
#include <functional>

#include <thread/Mutex.h>

namespace service {

// One writer at a time, in the order in which they asked. Nobody waits in it: who has to wait is
// called back. Any thread; a callback runs on the thread that gave the turn back, or looked for
// the late ones, and with no lock held.
class WriteTurn {
 public:
  using Time = std::chrono::steady_clock::time_point;
  // True when it is the caller's turn now, until give_back; false when the time was over first.
  using Called = std::function<void(bool)>;

  void ask(Time until, Called called);
  void give_back();
  // Calls those back whose time is over.
  void refuse_late(Time now);

 private:
  struct Waiting {
    Time until;
    Called called;
  };

  Mutex m_mutex;
  bool m_is_taken THREADAPI_GUARDED_BY(m_mutex) = false;
  std::deque<Waiting> m_waiting THREADAPI_GUARDED_BY(m_mutex);
};

// Gives a turn back at its end, whatever happens, unless it is kept.
class WriteTurnGuard {
 public:
  explicit WriteTurnGuard(WriteTurn& turn) : m_turn(&turn) {}
  WriteTurnGuard(const WriteTurnGuard&) = delete;
  WriteTurnGuard& operator=(const WriteTurnGuard&) = delete;
  ~WriteTurnGuard() {
    if (m_turn) m_turn->give_back();
  }
  void keep() { m_turn = nullptr; }

 private:
  WriteTurn* m_turn;
};

}  // namespace service
