// A cache that processes share, as a repository uses it.
#pragma once

#include <string>

#include <strings/Export.h>
#include <strings/RWCString.h>

class CFG_SubTree;

enum CFG_CacheQueryResult {
  CACHE_FOUND,
  CACHE_DOES_NOT_EXIST,  // the cache knows that there is nothing at the path
  CACHE_NO_ENTRY,        // it knows nothing
  CACHE_IS_SUBTREE,      // a value was asked for
  CACHE_IS_VALUE,        // a subtree was asked for
  CACHE_FAILED,
};

// Connect comes first, once; then any thread may call any operation. What tells of changes answers
// false when the cache failed.
class HALVORIA_API CFG_InMemoryCache {
 public:
  virtual bool Connect(std::string& connection_string) = 0;
  virtual CFG_CacheQueryResult GetValue(const RWCString& path, RWCString& value) = 0;
  // A subtree that is found is the caller's.
  virtual CFG_CacheQueryResult GetSubTree(const RWCString& path, CFG_SubTree** subtree) = 0;
  virtual bool SetValue(const RWCString& path, const RWCString& value) const = 0;
  virtual bool DeleteValue(const RWCString& path) const = 0;
  virtual bool UpdateSubTree(CFG_SubTree* subtree, const RWCString& path,
                             const std::string& changed_path) const = 0;
  virtual bool DeleteSubTree(const RWCString& path) const = 0;
  virtual ~CFG_InMemoryCache() = default;
};
