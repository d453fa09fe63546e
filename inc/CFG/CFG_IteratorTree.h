// Walks the numbered keys below a key.
#pragma once

#include <CFG/CFG_IteratorBase_Typed.h>

struct HALVORIA_API CFG_IteratorSubTree_Traits {
  static int count(CFG_SubTree* sub_tree);
  static RWCString name(CFG_SubTree* sub_tree, int index);
};

class HALVORIA_API CFG_IteratorTree : public CFG_IteratorBase_Typed<CFG_IteratorSubTree_Traits> {
 public:
  using CFG_IteratorBase_Typed::CFG_IteratorBase_Typed;

  // A new handle on the current key, owned by the caller; null when there is none.
  [[nodiscard]] virtual CFG_SubTree* value();
};
