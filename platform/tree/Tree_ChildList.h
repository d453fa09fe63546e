// The ordered children of one key.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include <strings/Export.h>
#include <tree/Tree_Name.h>
#include <tree/Tree_NodePtr.h>

// Children in the order in which they were added, found by name or by position among
// all children, among the keys, or among the values.
//
// Up to 16 children are two arrays, pointers and name hashes, searched one by one. Beyond
// that a Large list takes over: a hash index finds names, a removed child leaves a
// hole, and a tree of sums over blocks of 64 places finds positions, so that every
// operation stays at O(log n) or better however the children come and go.
//
// Not locked; reading changes nothing, so any number of threads may read. What allocates throws
// std::bad_alloc, and nothing has changed then.
class HALVORIA_API Tree_ChildList {
 public:
  enum Kind { ANY, KEYS, VALUES };
  static constexpr uint32_t npos = ~0u;

  Tree_ChildList() = default;
  Tree_ChildList(const Tree_ChildList&) = delete;
  Tree_ChildList& operator=(const Tree_ChildList&) = delete;
  ~Tree_ChildList() { clear(); }

  uint32_t count() const { return m_count; }
  uint32_t count(Kind kind) const {
    return kind == ANY ? m_count : kind == KEYS ? m_keys : m_count - m_keys;
  }

  // Places run from 0 and keep the order of the children; some may be holes. next()
  // is the first occupied place at or after `place`, npos at the end.
  uint32_t next(uint32_t place) const;
  Tree_NodePtr& at(uint32_t place) const { return slots()[place]; }
  // All places in order, null where there is a hole; valid until the list changes.
  struct Places {
    const Tree_NodePtr* begin;
    const Tree_NodePtr* end;
  };
  Places places() const;
  // The place of the child at a 0-based position among those of a kind; npos when
  // there are not that many.
  uint32_t select(Kind kind, uint32_t position) const;
  // How many of the first places hold children that stand in a row behind `key`, the node of this
  // list: the first right behind it, each other right behind the one before. So they mostly do
  // where a tree was made in order, and then the way to them need not lead through the list.
  uint32_t row() const { return m_row; }
  // Looks how far the row goes by now. May be left out after a change, but then the row stays
  // short.
  void note_row(const Tree_Node* key);
  // The place of the child of that name, npos when there is none. Hashes are Tree_Hash::Text's.
  uint32_t find(uint64_t hash, std::string_view name) const;
  // The same for a name that a node has, tried at the place `likely` first: lists that are
  // compared with each other mostly have the same names in the same order.
  uint32_t find(const Tree_Name& name, uint32_t likely) const;

  // The caller made sure that no child of that name is there.
  void append(uint64_t hash, bool is_key, Tree_NodePtr child);
  // Makes room for one more child, or for one instead of that at a place: appending or
  // replacing that one does not throw.
  void make_room(uint32_t instead = npos);
  // Takes the child at a place out and appends another one, for which there is room.
  Tree_NodePtr replace(uint32_t place, uint64_t hash, bool is_key, Tree_NodePtr child);
  // Takes the child out; other children may move to other places. Does not throw.
  Tree_NodePtr take(uint32_t place);
  // The child at the place has a new name.
  void rename(uint32_t place, uint64_t hash);
  // The children at two places have each other's names.
  void exchange_names(uint32_t a, uint32_t b) noexcept;
  // Makes room for that many children in all.
  void reserve(uint32_t count);
  // Fills this empty list with what `copy(child)` makes of each child of the other: a
  // Tree_NodePtr to a node of the same name, both keys or both values.
  template <class Copy>
  void fill_with_copies(const Tree_ChildList& other, Copy&& copy);
  void clear();
  // Drops every child for which `doomed(child)` is TRUE, in one pass.
  template <class Test>
  bool remove_if(Test&& doomed);

  uint64_t memory() const;  // bytes held by the list, nodes not counted

 private:
  struct Large;
  static constexpr uint32_t kSmall = 16;
  static constexpr uint8_t kIsLarge = 0xFF;

  Tree_NodePtr* slots() const;
  uint32_t* hashes() const { return reinterpret_cast<uint32_t*>(m_slots + m_capacity); }
  bool is_large() const { return m_capacity == kIsLarge; }
  Tree_NodePtr take_keeping_places(uint32_t place);  // large: leaves a hole
  Tree_NodePtr take_from_small(uint32_t place);
  void pack_when_sparse() noexcept;
  void make_room_in_small(uint32_t count);
  void grow_small(uint32_t capacity);
  void release_small();
  void become_large(uint32_t room);
  void take_layout(const Tree_ChildList& other);

  union {
    Tree_NodePtr* m_slots = nullptr;  // small: m_capacity pointers, then as many hashes
    Large* m_large;
  };
  uint32_t m_count = 0;
  uint32_t m_keys = 0;
  uint8_t m_capacity = 0;
  uint8_t m_row = 0;        // small: see row()
  uint16_t m_key_mask = 0;  // small: which places hold keys
};

template <class Copy>
void Tree_ChildList::fill_with_copies(const Tree_ChildList& other, Copy&& copy) {
  take_layout(other);
  try {
    for (uint32_t place = other.next(0); place != npos; place = other.next(place + 1))
      at(place) = copy(*other.at(place));
  } catch (...) {
    clear();  // no list has a place that is counted and empty
    throw;
  }
}

template <class Test>
bool Tree_ChildList::remove_if(Test&& doomed) {
  const uint32_t before = m_count;
  for (uint32_t place = next(0); place != npos;) {
    const bool moves_up = !is_large();
    const bool goes = doomed(*at(place));
    if (goes) take_keeping_places(place);
    place = next(goes && moves_up ? place : place + 1);
  }
  pack_when_sparse();
  return m_count != before;
}
