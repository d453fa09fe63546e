// A thread that waits for requests.
#pragma once

#include <asio.hpp>
#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>

#include <connection/Conn_Server.h>

class Conn_ServerSession;

// What all threads and sessions of a server know. The handler is called by waiting threads only,
// so that what is held longer than the server never reaches it.
struct Conn_ServerShared {
  Conn_ServerShared(const Conn_ServerSettings& given, Conn_Handler& to_call)
      : settings(given), handler(to_call) {}

  const Conn_ServerSettings settings;
  Conn_Handler& handler;
  std::atomic<int> admitted{0};  // sessions that count
  std::atomic<bool> is_stopping{false};

  // Of sessions of any kind, for the one who waits for their end.
  void one_more();
  void one_less();
  bool wait_for_none(std::chrono::milliseconds time);

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  int m_count = 0;  // guarded by m_mutex
};

// Has an io_context of its own and the sessions that are pinned to it. Sessions share it, as they
// may be held longer than the server; then it has ended and holds none of them.
class Conn_ServerThread {
 public:
  using Sessions = std::unordered_map<uint64_t, std::shared_ptr<Conn_ServerSession>>;

  Conn_ServerThread(int number, std::shared_ptr<Conn_ServerShared> shared);

  // False when the system gives no thread.
  bool start();
  // Lets what was posted run, ends all sessions, and joins the thread. Later posts are dropped.
  void finish();

  asio::io_context& io() { return m_io; }
  int number() const { return m_number; }
  Conn_ServerShared& shared() const { return *m_shared; }
  bool is_current() const { return m_executor.running_in_this_thread(); }
  // Runs it on this thread. When that has ended, drops it and answers false.
  template <class Work>
  bool post(Work work) {
    const std::lock_guard guard(m_end_mutex);
    if (!m_has_ended) asio::post(m_io, std::move(work));
    return !m_has_ended;
  }

  // The rest is for this thread itself.
  void add(std::shared_ptr<Conn_ServerSession> session);
  void remove(uint64_t id);
  void for_each(const std::function<void(Conn_ServerSession&)>& call);
  // A clock that costs nothing to read, and how many of its ticks are beyond a time.
  unsigned now() const { return m_tick; }
  unsigned ticks(std::chrono::milliseconds time) const;

 private:
  void tick();

  const int m_number;
  const std::shared_ptr<Conn_ServerShared> m_shared;
  const std::chrono::milliseconds m_tick_time;
  asio::io_context m_io{1};
  const asio::io_context::executor_type m_executor;
  asio::executor_work_guard<asio::io_context::executor_type> m_work;
  asio::steady_timer m_timer;
  unsigned m_tick = 0;
  Sessions m_sessions;
  std::thread m_thread;
  std::mutex m_end_mutex;
  bool m_has_ended = false;  // guarded by m_end_mutex
};
