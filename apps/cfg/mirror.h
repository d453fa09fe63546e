// What a run has seen of a tree that lives elsewhere.
#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <CFG/CFG_RepositoryServices.h>
#include <CFG/CFG_SubTree.h>

#include "kind.h"

namespace cli {

// Fetches what it is asked for, with everything below, and keeps it. An answer that cannot be had,
// because the connection is gone, is a Failure(UNREACHABLE).
class Mirror {
 public:
  // `name`: what messages call the tree.
  Mirror(CFG_RepositoryServices& repository, std::string root, std::string name);

  // Null when nothing is there. Valid until forget.
  Tree_Node* node(std::string_view path);
  // The key with the keys and values directly below it; of the keys, only the names are there.
  Tree_NodePtr listing(const std::string& path);
  Kind kind(std::string_view path);
  // The tree, detached, as far as it leads to these paths and lies below them.
  CFG_SubTree copy(const std::set<std::string>& paths);
  // The tree has changed.
  void forget();

 private:
  template <class Answer>
  Answer ask(const std::function<Answer()>& question);
  bool fetch(const std::string& path);  // false when nothing is there
  bool is_fetched(std::string_view path) const;

  CFG_RepositoryServices& m_repository;
  const std::string m_root;
  const std::string m_name;
  Tree_NodePtr m_tree;                   // the keys that lead to what was fetched, and that
  std::vector<Tree_NodePtr> m_replaced;  // by a branch that holds them; somebody may look at them
  std::set<std::string, std::less<>> m_fetched;  // paths whose branch is there as a whole
};

}  // namespace cli
