// Trees from flat records.
#pragma once

#include <string_view>

#include <tree/Tree_PathBuilder.h>

namespace cfg {

// Says in the log why a record has no place, where it has none; `path` is the record's.
bool is_placed(Tree_PathBuilder::Outcome outcome, std::string_view path);

// Tree_PathBuilder, with a message for each record that has no place.
class tree_builder {
 public:
  // The top is named by the last component of the path; what stands before that becomes its
  // virtual parent path.
  explicit tree_builder(std::string_view top_path);

  bool add(std::string_view path, std::string_view text, int is_change = 0) {
    return is_placed(m_builder.Add(path, text, is_change), path);
  }
  // The tree so far.
  const Tree_NodePtr& tree() const { return m_builder.Top(); }

 private:
  Tree_PathBuilder m_builder;
};

}  // namespace cfg
