// What connections to the service are like.
#pragma once

#include <string_view>

#include <connection/Conn_SyncConnector.h>

namespace cfg {

// Of the parameter `connection_properties`: words between blanks, commas or semicolons.
// "connssl" anywhere asks for encryption; connect_timeout=SECONDS and answer_timeout=SECONDS, such
// as 0.5, say how long a connection may take, and an answer without a byte of it. A time that is
// none is named in the log and passed over.
struct connection_properties {
  explicit connection_properties(std::string_view text);

  Conn_SyncConnector::TokenProperty token_property;
  Conn_SyncConnector::TimeOuts time_outs;
};

}  // namespace cfg
