#include <CFG/CFG_IteratorTree.h>

#include <CFG/CFG_SubTree.h>
#include <CFG/detail/child_name.h>

int CFG_IteratorSubTree_Traits::count(CFG_SubTree* sub_tree) { return sub_tree->GetSubTreeNum(""); }

RWCString CFG_IteratorSubTree_Traits::name(CFG_SubTree* sub_tree, int index) {
  return cfg::child_name(*sub_tree, Tree_ChildList::KEYS, index);
}

CFG_SubTree* CFG_IteratorTree::value() {
  return is_valid() ? m_sub_tree->GetSubTree("", current_child()) : nullptr;
}
