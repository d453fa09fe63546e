// A request under way.
#pragma once

#include <memory>
#include <string_view>

#include <connection/Conn_Server.h>

#include "session.h"

namespace service {

// The connection that a request came over, what is kept with that, and the answer that is owed.
// It is answered once, by one of the four ways to do so; after that nothing here may be used, as
// the next request is under way. Who drops it unanswered refuses it. One thread at a time.
class Call {
 public:
  explicit Call(Conn_Session& connection);
  Call(Call&&) noexcept = default;
  Call& operator=(Call&&) = delete;
  ~Call();

  bool is_answered() const { return !m_connection; }
  Session& session() const;
  const Request& request() const { return session().request; }
  const Caller& caller() const { return session().caller; }
  int thread() const { return m_connection->thread(); }
  Conn_Session& connection() const { return *m_connection; }

  // For a session that has the lock: the request uses it from now on, until it is answered. False
  // when the lock was lost.
  bool use_lock();
  const Lock::Use& lock() const { return m_lock; }
  // Ends the lock.
  Lock::Held release_lock();

  // The frame of the answer.
  Conn_FormWriter& answer() const { return m_connection->answer(); }
  // Begins it anew, and gives up what it took.
  void drop_answer() const { m_connection->drop_answer(); }
  // Calls back when the network has taken the frame: more follows. See Conn_Session.
  void send_part(std::function<void(bool)> sent) const { m_connection->send_part(std::move(sent)); }

  // Sends the frame as the last one. What is kept goes when the network has taken it.
  void finish(std::shared_ptr<void> kept = nullptr);
  void succeed(int code);
  void refuse(std::string_view reason);
  void skip();

  // For a fault that is not the client's: a line in the log, and the connection ends with the
  // refusal. Nothing when it is answered.
  void fail(std::string_view reason) noexcept;

 private:
  std::shared_ptr<Conn_Session> end();

  std::shared_ptr<Conn_Session> m_connection;  // null once it is answered
  Lock::Use m_lock;
};

}  // namespace service
