#include <CFG/CFG_DataGridCache_Configurations.h>

#include <algorithm>
#include <memory>

#include <CFG/CFG_SubTree.h>
#include <CFG/cache/cache_keys.h>
#include <CFG/detail/paths.h>
#include <logging/Logger.h>

namespace {

constexpr Log_Logger logger("src/CFG/CFG_DataGridCache_Configurations", 507);

bool is_path_of(std::string_view path, std::string_view entry) {
  return path == entry || cfg::has_key_inside(path, entry);
}

// The entries of a list; none of an empty text.
std::vector<RWCString> entries_of(CFG_SubTree& tree, const RWCString& path) {
  const RWCString text = tree.GetValue(path);
  std::vector<RWCString> entries;
  if (text.isNull()) return entries;
  for (const std::string_view entry : cfg::list_entries(text.view())) entries.emplace_back(entry);
  return entries;
}

}  // namespace

CFG_DataGridCache_Configurations::CFG_DataGridCache_Configurations(CFG_SubTree* configuration,
                                                                   const RWCString& process) {
  if (!configuration) return;
  CFG_SubTree& tree = *configuration;
  const RWCString own = process + "\\";
  m_is_enabled = tree.GetBooleanValueWrapper("enabled", false);
  if (const std::unique_ptr<int> enabled(tree.GetBooleanValue(own + "enabled")); enabled) {
    m_is_enabled = *enabled != 0;
  }
  m_is_cache_ready = tree.GetBooleanValueWrapper("cache_ready", false);
  m_updater_interval = tree.GetIntegerValueWrapper("updater_interval_seconds", 10);
  for (const RWCString& path : entries_of(tree, "cache_paths")) m_cache_paths.push_back(path.str());
  for (const RWCString& path : entries_of(tree, own + "blacklist")) {
    logger.info("Adding path : <%s> to datagrid cache blacklist", path);
    m_blacklist.Add(path);
  }
  for (const RWCString& path : entries_of(tree, own + "readonly_blacklist")) {
    logger.info("Adding path : <%s> to datagrid cache readonly blacklist", path);
    m_readonly_blacklist.Add(path);
  }
  m_connection_string = tree.GetValue(RWCString("connection_string")).str();
}

bool CFG_DataGridCache_Configurations::UseCache(const std::string& path, bool for_read) const {
  constexpr int level = LOG_LEVEL_INFORMATION;
  if (!m_is_enabled) {
    return logger.reject_at(level, false,
                            "datagrid cache disable, won't use cache for this path : <%s>", path);
  }
  if (for_read && !m_is_cache_ready) {
    return logger.reject_at(
        level, false,
        "datagrid cache is enabled but cache is not ready yet, will not use cache for this path : <%s>",
        path);
  }
  if (m_blacklist.IsInBlackList(path)) {
    return logger.reject_at(level, false,
                            "path : <%s> is in black list, will not use datagrid cache", path);
  }
  const bool is_cached =
      std::any_of(m_cache_paths.begin(), m_cache_paths.end(),
                  [&](const std::string& entry) { return is_path_of(path, entry); });
  if (!is_cached) {
    return logger.reject_at(level, false,
                            "path : <%s> is not in cache paths, will not use datagrid cache", path);
  }
  if (for_read && m_readonly_blacklist.IsInBlackList(path)) {
    return logger.reject_at(
        level, false, "path : <%s> is in read only black list,will not use datagrid cache", path);
  }
  logger.trace("going to use datagrid cache for path : <%s>", path);
  return true;
}

bool CFG_DataGridCache_Configurations::ConcernsCache(std::string_view path) const {
  return std::any_of(m_cache_paths.begin(), m_cache_paths.end(), [&](const std::string& entry) {
    return is_path_of(path, entry) || is_path_of(entry, path);
  });
}
