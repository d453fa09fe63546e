#include "call.h"

#include <exception>

#include <logging/Logger.h>

#include "answers.h"

namespace service {

using cfg::protocol::CommandRow;

namespace {
constexpr Log_Logger logger("service/call", 508);
}

Call::Call(Conn_Session& connection) : m_connection(connection.shared_from_this()) {}

Call::~Call() {
  if (!is_answered()) fail("nobody answered it");
}

Session& Call::session() const { return *static_cast<Session*>(m_connection->attachment.get()); }

bool Call::use_lock() {
  m_lock = Lock::use(session().lock);
  return static_cast<bool>(m_lock);
}

Lock::Held Call::release_lock() {
  session().lock.reset();
  return m_lock.release();
}

// The lock may go with its request, and the buffers are the next one's.
std::shared_ptr<Conn_Session> Call::end() {
  m_lock.end();
  session().request.shrink();
  return std::move(m_connection);
}

void Call::finish(std::shared_ptr<void> kept) { end()->finish(std::move(kept)); }

void Call::succeed(int code) {
  write_success(answer(), code);
  finish();
}

void Call::refuse(std::string_view reason) { end()->refuse(reason); }

void Call::skip() { end()->skip(); }

void Call::fail(std::string_view reason) noexcept try {
  if (is_answered()) return;
  const CommandRow* const row = request().row;
  logger.error("%s: %s %s failed: %s\n", caller().text(), row ? row->name : "a request",
               request().path, reason);
  const auto connection = end();
  connection->close();
  connection->refuse("the request failed");
} catch (const std::exception&) {
  // There is no memory even for that: the connection ends when it makes no progress.
}

}  // namespace service
