// Whether a path may be written.
#pragma once

#include <strings/RWCString.h>

namespace cfg {

// The switch of the process; off until it is set for the first time.
bool is_path_validation_on();
void set_path_validation(bool on);

// True for a path without control characters, `%` and `'`, without a backslash at its ends,
// and without white space at its ends or beside a backslash. A doubled backslash only gets
// a warning. Says in the log, in the name of `caller`, which byte is wrong and where.
bool is_well_formed(const RWCString& path, const char* caller);

}  // namespace cfg
