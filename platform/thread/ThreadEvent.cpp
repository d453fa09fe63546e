#include <thread/ThreadEvent.h>

#include <new>

void ThreadEvent::signal() {
  const MutexGuard guard(m_mutex);
  m_is_signalled = true;
  if (m_kind == AUTO_RESET) {
    m_changed.notify_one();
  } else {
    m_changed.notify_all();
  }
}

void ThreadEvent::reset() {
  const MutexGuard guard(m_mutex);
  m_is_signalled = false;
}

void ThreadEvent::wait() {
  const MutexGuard guard(m_mutex);
  while (!m_is_signalled) m_changed.wait(m_mutex);
  m_is_signalled = m_kind == MANUAL_RESET;
}

bool ThreadEvent::wait_for(std::chrono::milliseconds time) {
  const auto end = std::chrono::steady_clock::now() + time;
  const MutexGuard guard(m_mutex);
  while (!m_is_signalled) {
    if (!m_changed.wait_until(m_mutex, end)) break;
  }
  if (!m_is_signalled) return false;
  m_is_signalled = m_kind == MANUAL_RESET;
  return true;
}

// The end of a condition that other threads waited for would wait for them.
void ThreadEvent::renew_in_child() THREADAPI_UNCHECKED {
  const bool was_signalled = m_is_signalled;
  (new (this) ThreadEvent(m_kind))->m_is_signalled = was_signalled;
}
