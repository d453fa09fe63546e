// Caches for this process, as a tree configures them.
#pragma once

#include <initializer_list>
#include <string>
#include <utility>

#include <CFG/CFG_Services.h>
#include <system/Sys_Process.h>

// Where the configuration of this process is, below the root; the test programs have no suffix.
inline RWCString cache_configuration() {
  return RWCString("halvoria\\system\\applications\\cfg\\in_process_cache\\") + Sys_ProcessName();
}

inline void configure_cache(CFG_Services& services,
                            std::initializer_list<std::pair<const char*, const char*>> values) {
  const RWCString at = cache_configuration();
  services.SetValue(at + "\\enable", "true");
  for (const auto& [name, text] : values) services.SetValue(at + "\\" + name, text);
}
