// The tree of a byte array, while its records come in.
#pragma once

#include <string_view>
#include <unordered_set>

#include <strings/RWCString.h>
#include <tree/Tree_NodePtr.h>

namespace cfg {

// A record where it stands; its texts belong to somebody else.
struct node_record {
  int id;
  int parent_id;
  std::string_view name;
  std::string_view value;  // empty for a key
  int is_change;           // 1 or more for a changed value
};

// Puts each record below the key that its parent id names. In nearly all cases that is the key
// below which the record before it went, or that record itself, or the top; else it is looked
// for upwards. Each step up takes back a step down that an earlier record took, so that all
// records together take no more steps than there are records.
//
// A key without a name gets `empty_name`. Of several below one key the first stays; the others
// are left out, with what is below them.
class record_tree {
 public:
  static constexpr std::string_view empty_name = "ERRONEOUS_EMPTY_PATH";

  // The first record is the top, a key whatever its value. False, with the reason in the log, when
  // a record has no place; the tree is gone then.
  bool add(const node_record& record);
  // All records are in. Null when one had no place or, with a message, when there was none.
  Tree_NodePtr finish();
  // The path of the key that add would choose; empty when there is none.
  RWCString path_of(int parent_id) const;

  // The node at or above `current` that has the id; the top is found only as `current`. NULL,
  // with a message, when there is none.
  static Tree_Node* find_upwards(Tree_Node* current, int id);

 private:
  Tree_Node* near(int parent_id) const;
  bool add_below(Tree_Node& parent, const node_record& record);
  bool leave_out(const node_record& record);
  bool fail();

  bool m_has_failed = false;
  Tree_NodePtr m_top;
  Tree_Node* m_current = nullptr;  // below which the last record went
  Tree_Node* m_last = nullptr;     // what it became
  int m_last_id = 0;
  std::unordered_set<int> m_left_out;  // ids of the records that are being left out
  int m_left_out_count = 0;
};

}  // namespace cfg
