// Where a service is.
#pragma once

#include <string>

#include <CFG/CFG_ConnectionParameters.h>
#include <connection/Conn_PingClient.h>

#include "failure.h"

namespace cli {

struct ServiceAddress {
  std::string host;
  int port = 0;

  // "HOST", "HOST:PORT", "[ADDRESS]:PORT"; a Failure(USAGE) when the text is none of them.
  static ServiceAddress of(const std::string& text);
  // A Failure(UNREACHABLE) when they name none.
  static ServiceAddress of(const CFG_ConnectionParameters& parameters);
  std::string text() const;
};

// What to say of a service that did not answer a ping, or refused it.
Failure unreachable(const ServiceAddress& address, const Conn_PingClient::Answer& ping);

}  // namespace cli
