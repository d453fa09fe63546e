// The tree that a repository holds in memory.
#pragma once

#include <string_view>

#include <CFG/CFG_SubTree.h>
#include <logging/Logger.h>

namespace cfg {

// What the repositories over a tree in memory have in common: absolute paths that are found
// below the root key of a subtree. Refers to the subtree. Where there is none, as before a
// file is read, everything comes back empty after a line in the log.
class held_tree {
 public:
  explicit held_tree(CFG_SubTree* sub_tree) : m_sub_tree(sub_tree) {}

  // The handle on the tree, one without data when there is no tree.
  CFG_SubTree& handle() const;
  // The path below the root key. The first component goes, whatever it says; a path of one
  // component is the root key itself when it is its name, in any case, else a child of it.
  std::string_view below_root(std::string_view path) const;

  // What the handle answers for an absolute path.
  RWCString value(std::string_view path) const { return handle().ValueAt(below_root(path)); }
  std::string_view text(std::string_view path) const { return handle().TextAt(below_root(path)); }
  RWCString value(std::string_view path, int index) const {
    return handle().ValueAt(below_root(path), index);
  }
  RWCString value_name(std::string_view path, int index) const {
    return handle().ValueNameAt(below_root(path), index);
  }
  int value_num(std::string_view path) const { return handle().ValueNumAt(below_root(path)); }
  int sub_tree_num(std::string_view path) const { return handle().SubTreeNumAt(below_root(path)); }
  int has_sub_tree(std::string_view path) const { return handle().HasSubTreeAt(below_root(path)); }

  // The root key, and the node at an absolute path. Null when nothing is there.
  Tree_NodePtr root() const;
  Tree_NodePtr node_at(std::string_view path) const;
  // The key at an absolute path, as part of the tree; owned by the caller.
  CFG_SubTree* shared_at(std::string_view path) const;
  // A tree of its own from what is at a path that may be a pattern; a subtree, owned by the caller,
  // where it is a key.
  Tree_NodePtr copy_at(std::string_view path) const;
  CFG_SubTree* sub_tree_at(std::string_view path) const;

  // Writes a copy of a tree, its names in lower case, under the key at an actual absolute path. It
  // takes the place of the root where it has its name and the path is empty, but not where the path
  // is the root's. FALSE, too, where two children of a key would have one name.
  int write(const Tree_NodePtr& given, const RWCString& path) const;
  // Gives what is at a path below the root another name. The root keeps its own.
  int rename(const Log_Logger& log, const RWCString& below, const RWCString& key_name) const;
  // What SearchKeyOrValueName answers; messages go to the repository's log.
  String_Arr* search(const Log_Logger& log, const RWCString& name, const RWCString& path) const;

 private:
  std::string_view without_pattern(std::string_view path) const;

  CFG_SubTree* m_sub_tree;
};

// The array of these paths, null after a line in the log, in the name of `op`, when there are
// none.
String_Arr* filled_paths(const Log_Logger& log, const std::vector<RWCString>& paths,
                         const char* op = "FillPath(const RWCString path)");

}  // namespace cfg
