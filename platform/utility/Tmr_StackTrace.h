// Who called whom.
#pragma once

#include <strings/Export.h>

class HALVORIA_API Tmr_StackTrace {
 public:
  // Writes the calls that led here to the log (3), the nearest first: module, function
  // where it is exported, offset for addr2line. Any thread; not from a signal handler.
  static void TraceStack();
};
