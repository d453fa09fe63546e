#include <thread/Thread.h>

#include <pthread.h>

#include <system_error>

Thread::~Thread() { join(); }

bool Thread::start() {
  if (m_thread.joinable()) return false;
  try {
    m_thread = std::thread([this] { Run(); });
  } catch (const std::system_error&) {
    return false;
  }
  pthread_setname_np(m_thread.native_handle(), m_name.subString(0, 15).data());
  return true;
}

void Thread::join() {
  if (m_thread.joinable() && m_thread.get_id() != std::this_thread::get_id()) m_thread.join();
}
