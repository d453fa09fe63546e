#include <CFG/CFG_CacheBlackList.h>

#include <algorithm>

#include <CFG/CFG_SubTree.h>
#include <CFG/cache/cache_keys.h>
#include <CFG/detail/paths.h>
#include <logging/Logger.h>

namespace {
constexpr Log_Logger logger("src/CFG/CFG_CacheBlackList", 502);
}

CFG_CacheBlackList::CFG_CacheBlackList(CFG_SubTree& configuration) {
  const RWCString paths = configuration.GetValue(RWCString("blacklist"));
  if (paths.isNull()) return;
  logger.trace("Going to init black list");
  for (const std::string_view path : cfg::list_entries(paths.view())) {
    logger.trace("inserting path = <%s> to black list", path);
    m_paths.emplace_back(path);
  }
}

void CFG_CacheBlackList::Add(const RWCString& path) {
  logger.trace("adding path %s to blacklist", path);
  m_paths.push_back(path);
}

bool CFG_CacheBlackList::IsInBlackList(std::string_view path) const {
  return std::any_of(m_paths.begin(), m_paths.end(), [path](const RWCString& entry) {
    return path == entry.view() || cfg::has_key_inside(path, entry.view());
  });
}
