// What the iterators ask of a tree.
#pragma once

#include <CFG/CFG_SubTree.h>
#include <tree/Tree_Node.h>

namespace cfg {

// The name of the child at a 0-based position among those of a kind, empty when there is none.
// Throws where the operations of the handle give up, so that no child is passed over.
inline RWCString child_name(CFG_SubTree& tree, Tree_ChildList::Kind kind, int index) {
  const Tree_NodePtr key = tree.GetData();
  const Tree_Node* child = key ? key->ChildAt(kind, index) : nullptr;
  return child ? child->NameView() : std::string_view();
}

}  // namespace cfg
