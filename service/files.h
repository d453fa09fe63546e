// How many files the process may have open, and for whom.
#pragma once

#include <cstdint>

#include "settings.h"

namespace service {

// Each connection of a client takes a descriptor, and the system gives the lowest that is free. So
// those from `first_kept` on are left to the store and the log when connections do not take them.
struct Files {
  int64_t limit = 0;       // of the process
  int64_t first_kept = 0;  // 0 or less: there are too few to serve at all
  int64_t sessions = 0;    // as many as there is room for
  int64_t wanted = 0;      // a limit that has room for max-sessions
};

// Raises the limit as far as the system allows, and shares it out. Where it is a very low one,
// fewer streams are kept for.
Files share_files(Settings& settings);

}  // namespace service
