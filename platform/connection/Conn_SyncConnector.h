// A connection to a service, for one request at a time.
#pragma once

#include <chrono>
#include <memory>

#include <strings/Export.h>
#include <strings/RWCString.h>

// Opened by the first request, kept open, and opened again by the first request that finds it
// broken, but never in the middle of a transaction: what the service had of it is gone, and the
// requests of the rest of it fail, with one line in the log. A request that was sent is never
// sent again: when its answer does not come it fails, and the connection is dropped. For a second
// after one that did not come in time, while nobody else was answered either, other requests to
// that service fail at once, but for those within a transaction. One thread at a time.
class HALVORIA_API Conn_SyncConnector {
 public:
  struct TimeOuts {
    std::chrono::milliseconds connect{5000};  // looking up the host's name included
    std::chrono::milliseconds answer{10000};  // without a byte of it
    std::chrono::milliseconds idle{300000};   // after which a connection is opened anew
  };
  // How connections are secured, as InitConn is told.
  enum TokenProperty { TOKEN_PLAIN = 1, TOKEN_TLS = 4 };

  Conn_SyncConnector();
  Conn_SyncConnector(const Conn_SyncConnector&) = delete;
  Conn_SyncConnector& operator=(const Conn_SyncConnector&) = delete;
  virtual ~Conn_SyncConnector();

  // Says where the service is; opens nothing. `connection_type` is "" or "tcp". TOKEN_TLS is
  // refused until there is encryption. 1, or 0 after a line in the log; requests fail for the
  // same reason then.
  int InitConn(const RWCString& server, int port, const RWCString& connection_type,
               const char* application, int token_property, int keep_alive);
  void SetTimeOuts(const TimeOuts& time_outs);
  const TimeOuts& GetTimeOuts() const;
  // Waits for an answer for an hour, as long as the connection lasts; a host that is gone is found
  // out by the system where connections are kept alive.
  void SetPatient(bool is_patient);
  bool IsPatient() const;

  // Whether there is a connection that has not been found broken; one that was not used for a
  // while is looked at first.
  bool IsConnected() const;
  void Disconnect();
  // From any thread: the request that waits fails at once, and so does each one afterwards.
  void Interrupt();
  // Whether it was not used for so long that the next request would open it anew.
  bool IsStale() const;
  // "host:port", as messages call it.
  const RWCString& Address() const;
  // Why the last request failed, such as "cannot connect to 127.0.0.1:5020: Connection refused";
  // empty when none has.
  const RWCString& LastError() const;

  // Requests between the two go over one connection. They nest by count: StartTransaction answers
  // 1, EndTransaction 1 when the outermost ends, 0 for an inner one and when none was started.
  int StartTransaction();
  int EndTransaction();
  int IsInTransaction() const;

  // Whether a token was sent on this connection; forgotten when it is opened again.
  bool IsTokenSent() const;
  void SetTokenSent(bool is_sent);
  // Whether the service was locked for this connection. When the connection breaks, the lock is
  // lost, and what is asked for after that fails, as it would seem to belong to what is undone:
  // until this is set or forgotten, or the transaction ends in which it was locked.
  bool IsLocked() const;
  void SetLocked(bool is_locked);
  void ForgetLostLock();

 protected:
  RWCString m_service_name;  // set by the protocol's own class; empty: whatever is there

 private:
  friend class Conn_Helper;
  struct Inside;
  std::unique_ptr<Inside> m_inside;
};
