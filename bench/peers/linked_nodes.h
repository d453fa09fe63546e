// A tree that is made for being written: what encoding costs when nothing else is asked of a node.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <common/installation.h>

namespace bench {

// Nodes side by side in tree order, linked by pointers, their texts in one block.
class linked_nodes {
 public:
  static constexpr const char* name = "linked nodes, sized once";

  explicit linked_nodes(const records& all);

  // As a byte array, without header: one pass for the size, one to fill the buffer, which is
  // a plain vector in pages of the usual size.
  std::vector<char> encoded() const;

 private:
  struct node {
    std::string_view name, value;
    node* first = nullptr;
    node* last = nullptr;
    node* next = nullptr;
  };
  static char* put(const node& n, uint32_t parent_id, uint32_t& next_id, char* to);

  std::string m_texts;
  std::vector<node> m_nodes;
};

}  // namespace bench
