// Reads of what a path names and of nothing else.
#pragma once

#include <functional>
#include <memory>

#include <CFG/CFG_Services.h>
#include <CFG/CFG_SubTree.h>
#include <CFG/detail/answered.h>
#include <CFG/detail/lower_case_names.h>
#include <CFG/detail/paths.h>
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

enum class Winner { GIVEN, STORED };

// What a merging write puts under an actual path: a tree, with its names in lower case, and what
// `read` gets for just the path of its top, laid over each other with the winner's on top. Null,
// after a line in the log, where nothing may be written: over what is stored and cannot be read, or
// over a stored value that wins. Throws when the read failed.
inline Tree_NodePtr merged_with_stored(
    const Log_Logger& logger, const char* op, CFG_Services& store, const Tree_NodePtr& tree,
    const RWCString& path, Winner winner,
    const std::function<CFG_SubTree*(const RWCString& exact)>& read) {
  const Tree_NodePtr given = in_lower_case(tree);
  if (!given) return given;
  const RWCString key = join(path, given->NameView());
  const failure_watch reads;
  if (const std::unique_ptr<CFG_SubTree> found{read_exactly(store, key, read)}) {
    const Tree_NodePtr stored = found->GetData();
    return winner == Winner::GIVEN ? Tree_Node::Merge(stored, given)
                                   : Tree_Node::Merge(given, stored);
  }
  reads.check();
  if (store.IsSubTreeExist(key)) {
    return logger.reject(Tree_NodePtr(),
                         "%s : what is stored at <%s> cannot be read, return FALSE\n", op, key);
  }
  if (winner == Winner::STORED && !store.GetValue(key).isNull()) {
    return logger.reject(Tree_NodePtr(), "%s : path <%s> is a value, which is kept, return FALSE\n",
                         op, key);
  }
  reads.check();
  return given->DuplicateFromHereDown(true);
}
inline Tree_NodePtr merged_with_stored(const Log_Logger& logger, const char* op,
                                       CFG_Services& store, const Tree_NodePtr& tree,
                                       const RWCString& path, Winner winner) {
  return merged_with_stored(logger, op, store, tree, path, winner,
                            [&store](const RWCString& exact) { return store.GetSubTree(exact); });
}

}  // namespace cfg
