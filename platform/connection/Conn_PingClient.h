// Asks a service whether it is there.
#pragma once

#include <chrono>

#include <connection/Conn_SyncConnector.h>
#include <strings/Export.h>
#include <strings/RWCString.h>

class HALVORIA_API Conn_PingClient {
 public:
  struct Answer {
    bool is_alive = false;
    RWCString service;                  // its name
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
  // 1 when the service answered within five seconds.
  static int PingServer(const RWCString& server, int port, const RWCString& connection_type,
                        int token_property);
  // What the last ping of this process to the service found, when that is at most ten seconds
  // ago: true with the status.
  static bool GetServerPingStatus(const RWCString& server, int port, int& status);
};
