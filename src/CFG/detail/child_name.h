// What the iterators ask of a tree.
#pragma once

#include <CFG/CFG_SubTree.h>
#include <tree/Tree_Node.h>

namespace cfg {

// The name of the child at a 0-based position among those of a kind, empty when there is none.
// Throws where the operations of the handle give up, so that no child is passed over.
inline RWCString child_name(CFG_SubTree& tree, Tree_ChildList::Kind kind, int index) {
  const Tree_NodePtr key = tree.GetData();
  const Tree_ChildList* children = key ? key->Children() : nullptr;
  if (!children || index < 0) return RWCString();
  const uint32_t place = children->select(kind, static_cast<uint32_t>(index));
  if (place == Tree_ChildList::npos) return RWCString();
  return RWCString(children->at(place)->NameView());
}

}  // namespace cfg
