// The nodes of one branch of a document, as they are read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <strings/RWCString.h>
#include <tree/Tree_NodeInfo.h>
#include <tree/Tree_NodePtr.h>
#include <utility/Tmr_PtrSortedVector.h>

namespace cfg {

// A tree comes of records that are sorted by their paths, Tree_Node::BuildSubTree says how. But
// documents nearly always give each node behind its parent and before its parent's next
// sibling. As long as they do, the tree is built while they are read, and only the names of
// siblings are put in order. With the first node that is out of this order, or there twice,
// everything becomes records and takes the long way.
class branch_nodes {
 public:
  using Records = Tmr_PtrSortedVector<Tree_NodeInfo>;

  branch_nodes();                                     // of a value list
  explicit branch_nodes(const RWCString& root_path);  // below that path, a normal one
  ~branch_nodes();

  // A node whose path has its parent on the way to the last key, and needs no change to be
  // normal; an empty value for a key. False, and nothing is done, for any other.
  bool append_in_order(std::string_view path, std::string_view value);
  // Any node. The path is normal and below the root.
  void append(std::string_view path, std::string_view value);

  size_t size() const { return m_size; }
  // Below the root, as all paths of records. There must be a node.
  std::string path_of_last() const;
  // A record for each node, in order of path.
  std::unique_ptr<Records> records() const;
  // The tree of the records, null when they make none. Nothing else may be asked then.
  Tree_NodePtr take_tree();

 private:
  struct Open {  // a key that more nodes may come below
    Tree_Node* key;
    size_t path_length;
    size_t first_child;  // its place among those that wait
  };
  struct Waiting {
    uint64_t front;  // of the name, so that most names are compared at once
    Tree_NodePtr node;
  };

  static bool before(const Waiting& a, const Waiting& b);
  void sort_from(size_t first);
  bool close();
  void become_records();
  template <class Take>
  void for_each_below_root(Take take) const;
  std::string_view below_root(std::string_view path) const;

  RWCString m_root_path;
  size_t m_root_depth = 0;
  size_t m_size = 0;
  std::string m_path;  // of the last key, from the root path on

  // While a tree is built. The children of the open keys wait for their keys to be closed,
  // the last key's at the end; each open key but the top is the last of those before.
  Tree_NodePtr m_top;
  std::vector<Open> m_way;
  std::vector<Waiting> m_waiting;

  std::vector<Tree_NodeInfo> m_records;  // otherwise
};

}  // namespace cfg
