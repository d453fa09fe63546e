// What the nodes of a document become, whoever reads it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <CFG/xml/branch_nodes.h>
#include <strings/RWCString.h>

namespace cfg {

// Takes the nodes of a document in their order, and holds them to what a tree, or a value list,
// can be. Says what is wrong with a node and leaves it to the reader to tell and to stop. An
// object is good for one document.
class branch_list {
 public:
  enum Fault {
    NONE,
    SECOND_BRANCH,      // and one is all that may be
    TOO_MANY_BRANCHES,  // more than CFG_SAXImport::MAX_BRANCHES
    TOO_DEEP,           // more than max_path_depth
    NOT_IN_ROOT,        // a path that is not below the first of its branch
    NO_VALUE,           // in a value list
    NO_PATH,            // likewise
  };
  struct Branch {
    RWCString root_path;
    std::unique_ptr<branch_nodes> nodes;  // null when there was none, a root neither
  };

  explicit branch_list(uint64_t flags) : m_flags(flags) {}  // CFG_SAX_...

  Fault start_branch();
  void end_branch() { ++m_branch_count; }
  // Path and value as they are written, without escapes.
  Fault add_node(std::string_view path, std::string_view value);
  // The normal form of the path of the last node that was added, or was wrong.
  std::string_view path() const { return m_path; }

  // In the order of the document. All of a value list is one branch, whatever its branches.
  // The lists are the caller's to empty.
  std::vector<Branch>& branches() { return m_branches; }
  uint64_t branch_count() const { return m_branch_count; }  // that were ended

 private:
  Fault add_to_tree(std::string_view value);
  Fault add_to_value_list(std::string_view value);

  const uint64_t m_flags;
  uint64_t m_branch_count = 0;
  std::vector<Branch> m_branches;
  std::string_view m_path;
  std::string m_scratch;
};

}  // namespace cfg
