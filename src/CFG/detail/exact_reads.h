// Reads of what a path names and of nothing else.
#pragma once

#include <CFG/CFG_Services.h>

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

}  // namespace cfg
