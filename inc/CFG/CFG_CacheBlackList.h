// Paths that no cache answers for.
#pragma once

#include <string_view>
#include <vector>

#include <strings/Export.h>
#include <strings/RWCString.h>

class CFG_SubTree;

// A list of paths as they are written in the configuration. It is filled by one thread; then any
// thread may ask.
class HALVORIA_API CFG_CacheBlackList {
 public:
  CFG_CacheBlackList() = default;
  // From the value `blacklist` of a process's cache configuration, whose paths stand between ";".
  explicit CFG_CacheBlackList(CFG_SubTree& configuration);

  void Add(const RWCString& path);

  // Whether an entry is the path, or stands in it, wherever that is, with a backslash behind.
  bool IsInBlackList(std::string_view path) const;

 private:
  std::vector<RWCString> m_paths;
};
