#include <connection/Conn_SyncConnector.h>

#include <utility>

#include <connection/Conn_Connection.h>
#include <logging/Logger.h>

namespace {

constexpr Log_Logger logger("platform/connection/Conn_SyncConnector", 197);

bool is_numeric_v6(const RWCString& host) { return host.first(':') != RWCString::npos; }

}  // namespace

Conn_SyncConnector::Conn_SyncConnector() : m_inside(std::make_unique<Inside>()) {}
Conn_SyncConnector::~Conn_SyncConnector() = default;

int Conn_SyncConnector::InitConn(const RWCString& server, int port,
                                 const RWCString& connection_type, const char* application,
                                 int token_property, int keep_alive) {
  m_inside->drop();
  m_inside->lock_is_lost = false;
  m_inside->host.clear();
  m_inside->address =
      (is_numeric_v6(server) ? "[" + server + "]" : server) + ":" + std::to_string(port).c_str();
  m_inside->silence = &Conn_Silence::Of(m_inside->address);
  const auto refuse = [&](const RWCString& reason) {
    m_inside->last_error = m_inside->unusable = reason;
    return logger.reject(0, "InitConn: %s cannot use %s: %s\n", application, m_inside->address,
                         reason);
  };
  if (token_property == TOKEN_TLS) return refuse("there is no encryption (TLS) yet");
  if (token_property != TOKEN_PLAIN) return refuse("the token property is none that is known");
  if (!connection_type.isNull() && connection_type != "tcp") {
    return refuse("the connection type <" + connection_type + "> is not supported");
  }
  if (server.isNull()) return refuse("no server is given");
  if (port < 1 || port > 65535) return refuse("the port is not between 1 and 65535");
  m_inside->host = server.str();
  m_inside->port = port;
  m_inside->keep_alive = keep_alive != 0;
  return 1;
}

void Conn_SyncConnector::SetTimeOuts(const TimeOuts& time_outs) { m_inside->time_outs = time_outs; }
const Conn_SyncConnector::TimeOuts& Conn_SyncConnector::GetTimeOuts() const {
  return m_inside->time_outs;
}

void Conn_SyncConnector::SetPatient(bool is_patient) { m_inside->is_patient = is_patient; }
bool Conn_SyncConnector::IsPatient() const { return m_inside->is_patient; }

bool Conn_SyncConnector::IsConnected() const {
  m_inside->drop_when_stale();
  return m_inside->stream.is_open();
}
void Conn_SyncConnector::Disconnect() {
  SetLocked(false);
  m_inside->drop();
}
void Conn_SyncConnector::Interrupt() { m_inside->stream.interrupt(); }
bool Conn_SyncConnector::IsStale() const { return m_inside->is_stale(Inside::clock_type::now()); }
const RWCString& Conn_SyncConnector::Address() const { return m_inside->address; }
const RWCString& Conn_SyncConnector::LastError() const { return m_inside->last_error; }

int Conn_SyncConnector::StartTransaction() {
  if (m_inside->transactions++ > 0) return 1;
  m_inside->drop_when_stale();
  return 1;
}

int Conn_SyncConnector::EndTransaction() {
  if (m_inside->transactions == 0 || --m_inside->transactions > 0) return 0;
  m_inside->transaction_has_begun = false;
  m_inside->transaction_is_broken = false;
  m_inside->break_is_logged = false;
  if (std::exchange(m_inside->lock_is_of_transaction, false)) m_inside->lock_is_lost = false;
  return 1;
}

int Conn_SyncConnector::IsInTransaction() const { return m_inside->transactions > 0; }

bool Conn_SyncConnector::IsTokenSent() const {
  // The answer must still hold when the request is sent that follows.
  m_inside->drop_when_stale();
  m_inside->last_looked_at = Inside::clock_type::now();
  return m_inside->is_token_sent;
}
void Conn_SyncConnector::SetTokenSent(bool is_sent) { m_inside->is_token_sent = is_sent; }

bool Conn_SyncConnector::IsLocked() const { return m_inside->is_locked || m_inside->lock_is_lost; }
void Conn_SyncConnector::SetLocked(bool is_locked) {
  m_inside->is_locked = is_locked;
  m_inside->lock_is_lost = false;
  m_inside->lock_is_of_transaction = is_locked && m_inside->transactions > 0;
}
void Conn_SyncConnector::ForgetLostLock() { m_inside->lock_is_lost = false; }
