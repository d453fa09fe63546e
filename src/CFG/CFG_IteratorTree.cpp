#include <CFG/CFG_IteratorTree.h>

#include <memory>

#include <CFG/CFG_SubTree.h>

int CFG_IteratorSubTree_Traits::count(CFG_SubTree* sub_tree) { return sub_tree->GetSubTreeNum(""); }

RWCString CFG_IteratorSubTree_Traits::name(CFG_SubTree* sub_tree, int index) {
  const std::unique_ptr<CFG_SubTree> child(sub_tree->GetSubTree("", index));
  return child ? child->GetKeyName() : RWCString();
}

CFG_SubTree* CFG_IteratorTree::value() {
  return is_valid() ? m_sub_tree->GetSubTree("", current_child()) : nullptr;
}
