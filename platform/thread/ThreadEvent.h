// A flag that threads wait for.
#pragma once

#include <chrono>

#include <strings/Export.h>
#include <thread/ConditionVar.h>

// AUTO_RESET: one signal lets one waiter through; a signal that nobody awaits is kept for
// the next one, several count as one. MANUAL_RESET: signalled for everybody until reset.
class HALVORIA_API ThreadEvent {
 public:
  enum Kind { AUTO_RESET, MANUAL_RESET };
  explicit ThreadEvent(Kind kind) : m_kind(kind) {}

  void signal();
  void reset();
  void wait();
  bool wait_for(std::chrono::milliseconds time);  // false: not signalled in that time

  // For a ForkHandler, in the child: nobody waits any more or is in a call, and it is signalled or
  // not, as it was.
  void renew_in_child();

 private:
  const Kind m_kind;
  Mutex m_mutex;
  ConditionVar m_changed;
  bool m_is_signalled THREADAPI_GUARDED_BY(m_mutex) = false;
};
