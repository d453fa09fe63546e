// Walks the numbered values below a key.
#pragma once

#include <CFG/CFG_IteratorBase_Typed.h>

struct HALVORIA_API CFG_IteratorValue_Traits {
  static int count(CFG_SubTree* sub_tree);
  static RWCString name(CFG_SubTree* sub_tree, int index);
};

class HALVORIA_API CFG_IteratorValue : public CFG_IteratorBase_Typed<CFG_IteratorValue_Traits> {
 public:
  using CFG_IteratorBase_Typed::CFG_IteratorBase_Typed;

  // The text of the current value; empty when there is none.
  virtual RWCString value();
};
