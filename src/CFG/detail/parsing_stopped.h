// The way out of the XML parser.
#pragma once

#include <strings/RWCString.h>

namespace cfg {

// Thrown through the parser to end the parse. An empty reason: it was logged and counted
// where it was found.
struct parsing_stopped {
  RWCString reason;
};

}  // namespace cfg
