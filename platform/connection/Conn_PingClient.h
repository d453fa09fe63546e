// Asks a service whether it is there.
#pragma once

#include <chrono>

#include <connection/Conn_SyncConnector.h>
#include <strings/Export.h>
#include <strings/RWCString.h>
#include <utility/Tmr_Version.h>

// What a service that answers says of itself.
class HALVORIA_API Conn_ServerPingStatus {
 public:
  Conn_ServerPingStatus() = default;
  explicit Conn_ServerPingStatus(const Tmr_Version& general) : m_general(general) {}

  // Of its product; 0.0.0.0 when it does not say.
  const Tmr_Version& GetServerGeneralVersion() const { return m_general; }

 private:
  Tmr_Version m_general;
};

class HALVORIA_API Conn_PingClient {
 public:
  struct Answer {
    bool is_alive = false;
    RWCString service;  // its name
    Conn_ServerPingStatus status;
    std::chrono::microseconds took{0};  // from the request to the answer
    RWCString reason;                   // why there is no answer
    bool is_refused = false;            // the answer was no, for the reason: the sessions are full
  };

  Conn_PingClient() = delete;

  // Opens a connection of its own. The token property as in Conn_SyncConnector::InitConn.
  static Answer Ping(const RWCString& server, int port, const RWCString& connection_type,
                     int token_property, std::chrono::milliseconds time_out);
  // Over that connection, which stays open.
  static Answer Ping(Conn_SyncConnector& connector);
  // 0, and the status, when the service answered within five seconds, else 1.
  static int PingServer(const RWCString& server, int port, const RWCString& connection_type,
                        int token_property, Conn_ServerPingStatus& status);
  // What the last ping of this process to the service found: true when there was an answer, at most
  // ten seconds ago.
  static bool GetServerPingStatus(const RWCString& server, int port, Conn_ServerPingStatus& status);
};
