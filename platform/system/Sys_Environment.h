// What the process inherits from whoever started it.
#pragma once

#include <string>
#include <string_view>

#include <strings/Export.h>
#include <strings/RWCString.h>

class HALVORIA_API Sys_Environment {
 public:
  // Copies the variable to `out` and returns true when it is set, even to nothing;
  // leaves `out` alone otherwise. Any thread, as long as none changes the environment.
  static bool Get(const RWCString& name, RWCString& out);

  // The text with the values of variables in place of ${NAME} and %NAME%, which are not looked at
  // again. What names no variable stays as it is.
  static std::string Expand(std::string_view text);
};
