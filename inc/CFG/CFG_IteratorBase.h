// Walks a numbered list (server1, server2, ...) below one key.
#pragma once

#include <cstdint>
#include <vector>

#include <strings/Export.h>
#include <strings/RWCString.h>

class CFG_SubTree;

// The entries of such a list are the children named by a prefix and an ordinal from 1 on;
// the prefix alone stands for ordinal 1. They are visited by ordinal, whatever their order
// in the tree, and gaps are skipped. What is found at construction stays: later changes of
// the tree are not seen. The subtree is not owned and must outlive the iterator. Threads:
// as the subtree.
class HALVORIA_API CFG_IteratorBase {
 public:
  virtual ~CFG_IteratorBase() = default;

  // To the next entry, or past the end.
  virtual void operator++(int);
  virtual void operator++();
  // The number of the current entry, from 1.
  virtual long ordinal();
  // To slot `position`, which is ordinal - 1; false when no entry is there.
  virtual bool set_pos(long position);
  // To the first entry.
  virtual void reset();
  // True while an entry is current.
  virtual bool is_valid() = 0;
  // Slots, gaps included; never less than the number of children.
  virtual long entries() = 0;

 protected:
  // A child that was taken for a slot. Slots without an entry are gaps: one child named by
  // a huge number must not cost memory for all the numbers before it.
  struct Entry {
    int32_t slot;
    int32_t child;
  };

  explicit CFG_IteratorBase(CFG_SubTree* sub_tree) : m_sub_tree(sub_tree) {}
  CFG_IteratorBase(const CFG_IteratorBase&) = default;
  CFG_IteratorBase(CFG_IteratorBase&&) = default;
  CFG_IteratorBase& operator=(const CFG_IteratorBase&) = default;
  CFG_IteratorBase& operator=(CFG_IteratorBase&&) = default;

  // Offers child number `child` to the list of that (lower-cased) prefix.
  void take_child(const RWCString& name, const RWCString& prefix, int32_t child);
  // Called after the last child: orders the entries and steps to the first.
  void finish(int32_t children);
  // Called while an exception is handled: logs it, and there are no entries.
  void give_up() noexcept;
  // The index of the current entry's child, -1 when there is none.
  int32_t current_child() const;

  int32_t m_position = -1;  // slot; -1 before the first
  CFG_SubTree* m_sub_tree;
  std::vector<Entry> m_order;  // by slot, each slot once
  int32_t m_slots = 0;
};
