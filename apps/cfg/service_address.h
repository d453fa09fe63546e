// Where a service is, and whether it answers.
#pragma once

#include <memory>
#include <string>

#include <CFG/CFG_ConnectionParameters.h>
#include <CFG/CFG_Connector.h>
#include <CFG/CFG_Repository.h>
#include <connection/Conn_PingClient.h>

#include "failure.h"

namespace cli {

struct ServiceAddress {
  std::string host;
  int port = 0;
  // As in a parameters file.
  RWCString connection_type{}, connection_properties{};

  // "HOST", "HOST:PORT", "[ADDRESS]:PORT"; a Failure(USAGE) when the text is none of them.
  static ServiceAddress of(const std::string& text);
  // A Failure(UNREACHABLE) when they name none.
  static ServiceAddress of(const CFG_ConnectionParameters& parameters);
  std::string text() const;
};

// A connection to the service, which becomes that of all repositories of the process that are over
// one: they find it in the properties. A Failure(UNREACHABLE) when there can be none.
class ServiceConnection {
 public:
  explicit ServiceConnection(const ServiceAddress& address);

  CFG_Connector& connector() { return *m_connector; }
  // A Failure(UNREACHABLE) when the service does not answer within five seconds, or what time its
  // properties give it, or refuses.
  Conn_PingClient::Answer ping();

 private:
  const ServiceAddress m_address;
  CFG_Repository m_repository;
  std::unique_ptr<CFG_Connector> m_connector;
};

}  // namespace cli
