// Trees from flat records.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <tree/Tree_NodePtr.h>

namespace cfg {

// Puts one record below its parent: a value when it has a text, else a key. Of two records of
// one value the later holds. NULL, with a message, when the name is empty, or what is there
// already is of the other kind. `path` is for the message.
Tree_Node* add_record(Tree_Node& parent, std::string_view name, std::string_view text,
                      int is_change, std::string_view path);

// A tree while its records come in, each with a path relative to the top. Keys on the way that
// have no record are made. Any order is right; it is quick where what lies below a key comes
// together and behind it, as in order of path. Texts are copied once, into their nodes.
class tree_builder {
 public:
  // The top is named by the last component of the path; what stands before that becomes its
  // virtual parent path.
  explicit tree_builder(std::string_view top_path);

  // False, with a message, when the record has no place; the tree stays as it was.
  bool add(std::string_view path, std::string_view text, int is_change = 0);
  // The tree so far.
  const Tree_NodePtr& tree() const { return m_top; }

 private:
  struct open_key {
    Tree_Node* node;
    size_t length;  // of its path, which is a front of m_last_path
  };

  Tree_Node* parent_at(std::string_view path);
  bool is_open_on(const open_key& key, std::string_view path) const;

  Tree_NodePtr m_top;
  std::string m_last_path;       // of the last record
  std::vector<open_key> m_open;  // the keys on the way to it and, where it is one, itself
};

}  // namespace cfg
