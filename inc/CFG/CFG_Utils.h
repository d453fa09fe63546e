// Small operations on a subtree handle.
#pragma once

#include <strings/Export.h>
#include <strings/RWCString.h>

class CFG_SubTree;

// Holds a handle without owning it; the handle must outlive it. Threads: as the handle.
// Failures are those of the operations of the handle; nothing is added to the log.
class HALVORIA_API CFG_Utils {
 public:
  explicit CFG_Utils(CFG_SubTree* sub_tree) : m_sub_tree(sub_tree) {}

  CFG_SubTree* Tree() { return m_sub_tree; }
  CFG_SubTree* operator->() { return m_sub_tree; }
  operator CFG_SubTree*() { return m_sub_tree; }

  // Delete every key, or every value, directly below the root key.
  void DeleteAllSubTrees();
  void DeleteAllValues();
  // The text of `name` when it has one, else that of `alternative_name`, else empty. The
  // third argument is not used.
  RWCString GetValueCompatible(RWCString name, RWCString alternative_name, RWCString third);
  // Exchanges the names, and so the places in the numbered list, of two keys.
  void SwapKeysByOrdinal(RWCString prefix, int first, int second);

  // "disk12x" gives "disk" and 12; a name without a digit gives the empty string and -1.
  static RWCString ExtractOrdinal(RWCString name, long* ordinal);
  // A subtree with nodes of its own, owned by the caller.
  [[nodiscard]] static CFG_SubTree* MakeACopy(CFG_SubTree*& source);
  // A new subtree, owned by the caller: the second tree laid over the first. Either may be null.
  [[nodiscard]] static CFG_SubTree* MergeTrees(CFG_SubTree*& first, CFG_SubTree*& second);

 private:
  CFG_SubTree* m_sub_tree;
};
