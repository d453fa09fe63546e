// The part of the iterators that depends on what is iterated.
#pragma once

#include <CFG/CFG_IteratorBase.h>
#include <CFG/CFG_ServicesImp.h>

// Traits: static int count(CFG_SubTree*) and static RWCString name(CFG_SubTree*, int index).
template <class Traits>
class CFG_IteratorBase_Typed : public CFG_IteratorBase {
 public:
  // Stands on the first entry. `sub_tree` may be null: then there are no entries.
  CFG_IteratorBase_Typed(CFG_SubTree* sub_tree, RWCString prefix) : CFG_IteratorBase(sub_tree) {
    if (!sub_tree) return;
    try {
      CFG_ServicesImp::tolower(prefix);
      const int children = Traits::count(sub_tree);
      for (int i = 0; i < children; ++i) take_child(Traits::name(sub_tree, i), prefix, i);
      finish(children);
    } catch (...) {
      give_up();
    }
  }

  bool is_valid() override { return current_child() >= 0; }
  long entries() override { return m_slots; }
};
