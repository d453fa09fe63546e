// What a process reads from the datagrid.
#pragma once

#include <atomic>
#include <string>
#include <string_view>
#include <vector>

#include <CFG/CFG_CacheBlackList.h>
#include <strings/Export.h>
#include <strings/RWCString.h>

class CFG_SubTree;

// Filled by one thread; then any thread may ask, and set the cache ready.
class HALVORIA_API CFG_DataGridCache_Configurations {
 public:
  // From the subtree `halvoria\system\applications\cfg\datagrid_cache`, null when there is none,
  // and the name of the key in it that is for this process.
  CFG_DataGridCache_Configurations(CFG_SubTree* configuration, const RWCString& process);

  // Whether the datagrid is asked for the path, or told that it was written; why not is logged.
  bool UseCache(const std::string& path, bool for_read) const;
  // Whether the datagrid may hold something at the path or below it.
  bool ConcernsCache(std::string_view path) const;

  bool is_enabled() const { return m_is_enabled; }
  bool is_cache_ready() const { return m_is_cache_ready; }
  void set_cache_ready() { m_is_cache_ready = true; }
  int updater_interval() const { return m_updater_interval; }  // seconds
  const std::string& connection_string() const { return m_connection_string; }

 private:
  bool m_is_enabled = false;
  std::atomic<bool> m_is_cache_ready{false};
  int m_updater_interval = 10;
  std::vector<std::string> m_cache_paths;
  CFG_CacheBlackList m_blacklist;
  CFG_CacheBlackList m_readonly_blacklist;
  std::string m_connection_string;
};
