// Trees that are too large for one request.
#pragma once

#include <cstdint>
#include <vector>

#include <strings/RWCString.h>
#include <tree/Tree_NodePtr.h>

namespace cfg {

// A piece of a tree, and the path of the key under which it is written.
struct tree_part {
  Tree_NodePtr tree;
  RWCString parent_path;
};

// The bytes that the tree takes as an array, at least.
uint64_t byte_array_size(const Tree_Node& tree);

// The tree, which is written under the key at `path`, in pieces whose arrays have at most `limit`
// bytes each. Written in order they make up the tree: the first is its top without the branches
// that come later, and so is each of these; what is whole is not copied. A key is not parted from
// its own values, so a piece is longer than the limit where these are.
std::vector<tree_part> tree_parts(const Tree_NodePtr& tree, const RWCString& path, uint64_t limit);

}  // namespace cfg
