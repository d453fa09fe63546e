// Reads of what a path names and of nothing else.
#pragma once

#include <memory>

#include <CFG/CFG_Services.h>
#include <CFG/CFG_SubTree.h>
#include <CFG/detail/answered.h>
#include <logging/Logger.h>
#include <tree/Tree_Node.h>

namespace cfg {

// Whether a store answers a read of the subtree at `path`, which has its placeholders replaced, for
// just that path. Where no key has it, a path with a `%` is taken for a pattern and the key before
// it is read: nothing to be merged, exported or read as a blob.
inline bool is_read_exactly(CFG_Services& store, const RWCString& path) {
  return path.first('%') == RWCString::npos || store.IsSubTreeExist(path);
}

// The subtree that `read` gets for just that path; null when there is none.
template <class Read>
CFG_SubTree* read_exactly(CFG_Services& store, const RWCString& path, Read read) {
  return is_read_exactly(store, path) ? read(path) : nullptr;
}
inline CFG_SubTree* read_exactly(CFG_Services& store, const RWCString& path) {
  return is_read_exactly(store, path) ? store.GetSubTree(path) : nullptr;
}

// What `read` gets for just that path, for a write that merges into it; null where nothing is.
// False, after a line in the log, when something is there that cannot be read: nothing may be
// written over it. Throws when the read failed.
template <class Read>
bool read_stored(const Log_Logger& logger, const char* op, CFG_Services& store,
                 const RWCString& path, Read read, Tree_NodePtr& stored) {
  const failure_watch reads;
  const std::unique_ptr<CFG_SubTree> found(read_exactly(store, path, read));
  if (found) {
    stored = found->GetData();
    return true;
  }
  reads.check();
  if (!store.IsSubTreeExist(path)) return true;
  return logger.reject(false, "%s : what is stored at <%s> cannot be read, return FALSE\n", op,
                       path);
}
inline bool read_stored(const Log_Logger& logger, const char* op, CFG_Services& store,
                        const RWCString& path, Tree_NodePtr& stored) {
  const auto read = [&store](const RWCString& exact) { return store.GetSubTree(exact); };
  return read_stored(logger, op, store, path, read, stored);
}

}  // namespace cfg
