#include "test_trees.h"

#include <tree/Tree_Node.h>

CFG_SubTree tree_of(const char* name,
                    std::initializer_list<std::pair<const char*, const char*>> entries) {
  CFG_SubTree tree(name);
  for (const auto& [path, text] : entries) {
    if (*text) {
      tree.SetValue(path, text);
    } else {
      tree.GetData()->GetOrCreateRelativeNode(Tree_Path(path), tree.GetData());
    }
  }
  return tree;
}

std::string shown(const Tree_Node& node) {
  std::string text(node.NameView());
  if (node.IsLeaf()) return text.append("=").append(node.GetText());
  text += '{';
  for (int i = 0; i < node.GetChildCount(); ++i) {
    if (i > 0) text += ' ';
    text += shown(*const_cast<Tree_Node&>(node).GetChildAt(i));
  }
  return text += '}';
}
std::string shown(CFG_SubTree& tree) { return tree.GetData() ? shown(*tree.GetData()) : "(null)"; }
std::string shown(const SubTreePtr& tree) { return tree ? shown(*tree) : "NULL"; }
