#include <CFG/xml/branch_list.h>

#include <CFG/CFG_SAXImport.h>
#include <CFG/xml/normal_path.h>

namespace cfg {
branch_list::Fault branch_list::start_branch() {
  if (m_branch_count > 0 && !(m_flags & (CFG_SAX_VALUE_LIST | CFG_SAX_MULTI_BRANCH))) {
    return SECOND_BRANCH;
  }
  if (m_branch_count >= CFG_SAXImport::MAX_BRANCHES) return TOO_MANY_BRANCHES;
  if (!(m_flags & CFG_SAX_VALUE_LIST)) m_branches.emplace_back();
  return NONE;
}

branch_list::Fault branch_list::add_node(std::string_view path, std::string_view value) {
  const bool is_open = !m_branches.empty() && m_branches.back().nodes;
  if (is_open && m_branches.back().nodes->append_in_order(path, value)) return NONE;
  m_path = normal_path(path, m_scratch);
  if (is_too_deep(m_path)) return TOO_DEEP;
  return m_flags & CFG_SAX_VALUE_LIST ? add_to_value_list(value) : add_to_tree(value);
}

branch_list::Fault branch_list::add_to_tree(std::string_view value) {
  Branch& branch = m_branches.back();
  if (!branch.nodes) {
    branch.root_path = m_path;
    branch.nodes = std::make_unique<branch_nodes>(branch.root_path);
    return NONE;
  }
  const std::string_view root = branch.root_path;
  if (m_path == root) return NONE;  // said once more
  const bool is_below_root = !root.empty() && m_path.size() > root.size() &&
                             m_path[root.size()] == '\\' && m_path.substr(0, root.size()) == root;
  if (!is_below_root) return NOT_IN_ROOT;
  branch.nodes->append(m_path, value);
  return NONE;
}

branch_list::Fault branch_list::add_to_value_list(std::string_view value) {
  if (value.empty()) return NO_VALUE;
  if (m_path.empty()) return NO_PATH;
  if (m_branches.empty()) {
    m_branches.emplace_back();
    m_branches.front().nodes = std::make_unique<branch_nodes>();
  }
  m_branches.front().nodes->append(m_path, value);
  return NONE;
}

}  // namespace cfg
