// The nodes of one branch of a document, as they are read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <tree/Tree_Node.h>
#include <tree/Tree_NodeInfo.h>
#include <utility/Tmr_PtrSortedVector.h>

namespace cfg {

// Documents nearly always give each node behind its parent and before its parent's next
// sibling. As long as they do, a node is kept as its parent's number, its name and its value,
// and the tree is made from that without touching a path: names are put in order among
// siblings, which is a small part of the work of ordering paths. Whatever else comes is kept
// with its whole path and takes the long way.
class record_list {
 public:
  using Records = Tmr_PtrSortedVector<Tree_NodeInfo>;

  record_list();
  // Room for that many nodes.
  void reserve(size_t count) { m_nodes.reserve(count); }
  // A normal path, not empty; an empty value for a key.
  void append(std::string_view path, std::string_view value);

  size_t size() const { return m_nodes.size(); }
  std::string path_of_last() const { return path_of(m_nodes.size() - 1); }
  // A record for each node, in order of path.
  std::unique_ptr<Records> records() const;
  // What Tree_Node::BuildSubTree makes of the records.
  Tree_NodePtr build_tree(const RWCString& root_path) const;

 private:
  static constexpr uint32_t none = ~0u;

  struct Node {
    const char* text;  // the name, then the value
    uint32_t name_length;
    uint32_t value_length;
    uint32_t parent;  // none at the top, and for a node whose name is its whole path
    std::string_view name() const { return {text, name_length}; }
    std::string_view value() const { return {text + name_length, value_length}; }
  };
  struct Open {
    uint32_t node;
    size_t length;  // of its path
  };
  struct Groups;

  std::string path_of(size_t node) const;
  bool group(Groups& groups) const;
  const char* keep(std::string_view name, std::string_view value);

  std::vector<Node> m_nodes;
  bool m_is_tree = true;    // no node needed its whole path
  std::string m_path;       // of the last node
  std::vector<Open> m_way;  // the nodes from the top down to it
  std::vector<std::unique_ptr<char[]>> m_blocks;
  char* m_free = nullptr;  // in the last block
  size_t m_free_size = 0;
};

}  // namespace cfg
