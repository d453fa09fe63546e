// Who asks.
#pragma once

#include <cstdint>
#include <string>

namespace service {

// Known to every handler. User and application are what the request says; the address is the
// connection's.
struct Caller {
  std::string user;
  std::string application;
  std::string token;    // as sent last on this connection, empty when none was
  std::string address;  // "127.0.0.1:51234"
  uint64_t session = 0;

  // "user 'mia', application 'viewer', session 12 from 127.0.0.1:51234"
  std::string text() const;
};

}  // namespace service
