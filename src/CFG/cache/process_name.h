// The name under which a process finds its configuration of the caches.
#pragma once

#include <string>
#include <string_view>

#include <CFG/CFG_ServicesImp.h>
#include <strings/RWCString.h>
#include <system/Sys_Process.h>

namespace cfg {

// What follows the last slash or backslash, cut at its last dot, in lower case.
inline RWCString process_name_of(std::string_view file) {
  const size_t slash = file.find_last_of("/\\");
  if (slash != file.npos) file.remove_prefix(slash + 1);
  RWCString name(file.substr(0, file.rfind('.')));
  CFG_ServicesImp::tolower(name);
  return name;
}

inline RWCString process_name() {
  const RWCString file = Sys_ProcessName();
  return process_name_of(file.view());
}

}  // namespace cfg
