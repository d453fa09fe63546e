// The name under which a process finds its configuration of the caches.
#pragma once

#include <string>
#include <string_view>

#include <CFG/CFG_ServicesImp.h>
#include <logging/Tmr_GLog.h>
#include <strings/RWCString.h>
#include <system/Sys_Process.h>

namespace cfg {

// What follows the last slash or backslash of the program's file, cut at its last dot, in lower
// case. Many applications run in that of a web server: there it is the name that the log has for
// them.
inline RWCString process_name(std::string_view file, const std::string& log_name) {
  file.remove_prefix(file.find_last_of("/\\") + 1);  // npos + 1 is 0
  RWCString name(file.substr(0, file.rfind('.')));
  CFG_ServicesImp::tolower(name);
  return name == "w3wp" ? RWCString(log_name) : name;
}

inline RWCString process_name() {
  const RWCString file = Sys_ExecutableFile().toUTF8();
  return process_name(file.view(), TmrGLog.GetApplicationName());
}

}  // namespace cfg
