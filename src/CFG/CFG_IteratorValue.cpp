#include <CFG/CFG_IteratorValue.h>

#include <CFG/CFG_SubTree.h>
#include <CFG/detail/child_name.h>

int CFG_IteratorValue_Traits::count(CFG_SubTree* sub_tree) { return sub_tree->GetValueNum(""); }

RWCString CFG_IteratorValue_Traits::name(CFG_SubTree* sub_tree, int index) {
  return cfg::child_name(*sub_tree, Tree_ChildList::VALUES, index);
}

RWCString CFG_IteratorValue::value() {
  return is_valid() ? m_sub_tree->GetValue("", current_child()) : RWCString();
}
