// Something that many use, and that somebody takes away.
#pragma once

#include <thread/ConditionVar.h>
#include <thread/ForkHandler.h>

namespace cfg {

// Closed at first. While it is open, users come and go; closing it waits for those who are inside,
// but not for those of the process that this one was forked from. Any thread; whoever is inside may
// come in once more, and does not close it. Made when the library is loaded.
class UseGate {
 public:
  // As long as it is true and lives, the gate is not closed behind its back.
  class Use {
   public:
    explicit Use(UseGate& gate) : m_gate(gate.enter() ? &gate : nullptr) {}
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
    ~Use() {
      if (m_gate) m_gate->leave();
    }
    explicit operator bool() const { return m_gate; }

   private:
    UseGate* const m_gate;
  };

  void open() {
    const MutexGuard guard(m_mutex);
    m_is_open = true;
  }
  void close() {
    const MutexGuard guard(m_mutex);
    m_is_open = false;
    forget_ancestors();
    m_left.wait(m_mutex, [this] { return m_users == 0; });
  }

 private:
  bool enter() {
    const MutexGuard guard(m_mutex);
    forget_ancestors();
    m_users += m_is_open;
    return m_is_open;
  }
  void leave() {
    const MutexGuard guard(m_mutex);
    forget_ancestors();
    if (m_users > 0 && --m_users == 0) m_left.notify_all();
  }
  void forget_ancestors() THREADAPI_REQUIRES(m_mutex) {
    if (m_generation == ForkHandler::Generation()) return;
    m_generation = ForkHandler::Generation();
    m_users = 0;
  }

  ForkMutex m_mutex{ForkHandler::REPOSITORIES};
  ConditionVar m_left;
  unsigned m_generation THREADAPI_GUARDED_BY(m_mutex) = 0;
  int m_users THREADAPI_GUARDED_BY(m_mutex) = 0;
  bool m_is_open THREADAPI_GUARDED_BY(m_mutex) = false;
};

}  // namespace cfg
