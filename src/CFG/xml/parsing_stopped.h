// The way out of the XML parser.
#pragma once

#include <strings/RWCString.h>

namespace cfg {

// Thrown by a source of bytes that cannot be read on, and by a parser that must not go on.
struct parsing_stopped {
  RWCString reason;  // empty when it was logged and counted where it was found
};

}  // namespace cfg
