// The installation as a tree of this library.
#pragma once

#include <tree/Tree_Node.h>

#include <common/installation.h>

namespace bench {

// Node by node, each added to its key.
Tree_NodePtr build_tree(const records& all);

// Deep lookups after which a tree of that many nodes has a path index.
size_t lookups_to_index(size_t nodes);

}  // namespace bench
