// Small trees for tests, made from and shown as text.
#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <utility>

#include <CFG/CFG_SubTree.h>

using SubTreePtr = std::unique_ptr<CFG_SubTree>;

// A tree of (path, text) pairs; an empty text makes a key.
inline CFG_SubTree tree_of(const char* name,
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

// Root, then its children in order, in braces: "k{v=1 sub{w=2} empty{}}".
inline std::string shown(const Tree_Node& node) {
  std::string text(node.NameView());
  if (node.IsLeaf()) return text.append("=").append(node.GetText());
  text += '{';
  for (int i = 0; i < node.GetChildCount(); ++i) {
    if (i > 0) text += ' ';
    text += shown(*const_cast<Tree_Node&>(node).GetChildAt(i));
  }
  return text += '}';
}
inline std::string shown(CFG_SubTree& tree) {
  return tree.GetData() ? shown(*tree.GetData()) : "(null)";
}
inline std::string shown(const SubTreePtr& tree) { return tree ? shown(*tree) : "NULL"; }
