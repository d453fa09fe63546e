#include <connection/Conn_ServerThread.h>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <system_error>
#include <vector>

#include <connection/Conn_ServerSession.h>

namespace {

using std::chrono::milliseconds;

milliseconds tick_time(const Conn_ServerSettings& settings) {
  const milliseconds limit = std::min(settings.idle, settings.progress);
  return std::clamp(limit / 4, milliseconds(10), milliseconds(1000));
}

// The network library keeps a record of 180 bytes for good for as many connections as there once
// were at a time. Made beforehand, they lie together: made with the connections, they lie between
// the buffers of these, and of thousands that are gone not one page can be given back. Some more
// than there may be are those that are turned away.
void make_records(asio::io_context& io, int sessions) {
  const int count = sessions + sessions / 2;
  std::vector<asio::posix::stream_descriptor> made;
  made.reserve(static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) {
    // Any that can be watched; the system may give fewer.
    const int descriptor = made.empty() ? ::eventfd(0, EFD_CLOEXEC)
                                        : ::fcntl(made.front().native_handle(), F_DUPFD_CLOEXEC, 0);
    if (descriptor < 0) return;
    asio::error_code error;
    made.emplace_back(io).assign(descriptor, error);
    if (!error) continue;
    ::close(descriptor);
    return;
  }
}

}  // namespace

void Conn_ServerShared::one_more() {
  const std::lock_guard guard(m_mutex);
  ++m_count;
}

void Conn_ServerShared::one_less() {
  const std::lock_guard guard(m_mutex);
  if (--m_count == 0) m_changed.notify_all();
}

bool Conn_ServerShared::wait_for_none(milliseconds time) {
  std::unique_lock lock(m_mutex);
  return m_changed.wait_for(lock, time, [this] { return m_count == 0; });
}

Conn_ServerThread::Conn_ServerThread(int number, std::shared_ptr<Conn_ServerShared> shared)
    : m_number(number),
      m_shared(std::move(shared)),
      m_tick_time(tick_time(m_shared->settings)),
      m_executor(m_io.get_executor()),
      m_work(m_executor),
      m_timer(m_io) {
  const Conn_ServerSettings& settings = m_shared->settings;
  make_records(m_io, settings.max_sessions / std::max(settings.threads, 1));
}

bool Conn_ServerThread::start() try {
  m_thread = std::thread([this] {
    tick();
    m_io.run();
  });
  return true;
} catch (const std::system_error&) {
  return false;
}

void Conn_ServerThread::finish() {
  if (!m_thread.joinable()) return;
  post([this] {
    for_each([](Conn_ServerSession& session) { session.end(nullptr); });
    m_sessions.clear();
    m_timer.cancel();
  });
  {
    const std::lock_guard guard(m_end_mutex);
    m_has_ended = true;
  }
  m_work.reset();
  m_thread.join();
}

void Conn_ServerThread::add(std::shared_ptr<Conn_ServerSession> session) {
  const uint64_t id = session->id();
  m_sessions.emplace(id, std::move(session));
  m_shared->one_more();
}

void Conn_ServerThread::remove(uint64_t id) {
  if (m_sessions.erase(id)) m_shared->one_less();
}

void Conn_ServerThread::for_each(const std::function<void(Conn_ServerSession&)>& call) {
  // A call may end its session, which removes it here.
  std::vector<std::shared_ptr<Conn_ServerSession>> all;
  all.reserve(m_sessions.size());
  for (const auto& entry : m_sessions) all.push_back(entry.second);
  for (const auto& session : all) call(*session);
}

unsigned Conn_ServerThread::ticks(milliseconds time) const {
  return static_cast<unsigned>(time / m_tick_time) + 1;
}

void Conn_ServerThread::tick() {
  m_timer.expires_after(m_tick_time);
  m_timer.async_wait([this](const asio::error_code& error) {
    if (error) return;
    ++m_tick;
    for_each([](Conn_ServerSession& session) { session.check_time(); });
    tick();
  });
}
