// An event that happens once.
#pragma once

#include <chrono>

#include <thread/ForkHandler.h>
#include <thread/ThreadEvent.h>

// Whoever waits is let through once it is signalled, then and for ever. Any thread; it may be
// destroyed as soon as nobody is in a call any more.
// A child of fork finds it signalled or not, as it was, and free of its parent's waiters; the
// thread that was to signal it is not there (ForkHandler::Generation tells).
class SingleUse_ThreadJoiner {
 public:
  SingleUse_ThreadJoiner() = default;
  SingleUse_ThreadJoiner(const SingleUse_ThreadJoiner&) = delete;
  SingleUse_ThreadJoiner& operator=(const SingleUse_ThreadJoiner&) = delete;

  void Signal() { m_event.signal(); }
  void Wait() { m_event.wait(); }
  // False: not signalled in that time.
  bool Wait(std::chrono::milliseconds limit) { return m_event.wait_for(limit); }
  bool IsSignalled() { return Wait(std::chrono::milliseconds(0)); }

 private:
  static void told(void* joiner, ForkHandler::Phase phase) {
    if (phase != ForkHandler::IN_CHILD) return;
    static_cast<SingleUse_ThreadJoiner*>(joiner)->m_event.renew_in_child();
  }

  ThreadEvent m_event{ThreadEvent::MANUAL_RESET};
  ForkHandler m_handler{ForkHandler::REPOSITORIES, told, this};
};
