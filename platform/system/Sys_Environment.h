// What the process inherits from whoever started it.
#pragma once

#include <strings/Export.h>
#include <strings/RWCString.h>

class HALVORIA_API Sys_Environment {
 public:
  // Copies the variable to `out` and returns true when it is set, even to nothing;
  // leaves `out` alone otherwise. Any thread, as long as none changes the environment.
  static bool Get(const RWCString& name, RWCString& out);
};
