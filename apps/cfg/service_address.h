// Where a service is.
#pragma once

#include <string>

#include <CFG/CFG_ConnectionParameters.h>

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

}  // namespace cli
