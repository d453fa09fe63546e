#include <CFG/detail/tree_builder.h>

#include <cstring>

#include <CFG/detail/paths.h>
#include <logging/Logger.h>
#include <tree/Tree_Node.h>

namespace cfg {

namespace {
constexpr Log_Logger logger("src/CFG/CFG_RepositoryServicesImp", 502);
}

Tree_Node* add_record(Tree_Node& parent, std::string_view name, std::string_view text,
                      int is_change, std::string_view path) {
  Tree_Node* const added =
      text.empty() ? parent.AddKey(name) : parent.AddValue(name, text, is_change);
  if (added) return added;
  Tree_Node* const present = parent.Child(name);
  if (!present) {
    return logger.reject(nullptr, "AddNodeToTree : path <%s> has no name, return FALSE\n", path);
  }
  if (present->IsLeaf() == text.empty()) {
    return logger.reject(
        nullptr, "AddNodeToTree : path <%s> is both a key and a value, return FALSE\n", path);
  }
  if (present->IsLeaf()) {
    present->GetTreeValue()->SetText(text);
    present->GetTreeValue()->SetIsChange(is_change);
  }
  return present;
}

tree_builder::tree_builder(std::string_view top_path) {
  const split_path where(top_path);
  m_top = new Tree_Node(where.name);
  m_top->SetVirtualParentPath(RWCString(where.parent));
}

bool tree_builder::add(std::string_view path, std::string_view text, int is_change) {
  const split_path where(path);
  Tree_Node* const parent = parent_at(where.parent);
  m_last_path.assign(path);
  if (!parent) {
    return logger.reject(false,
                         "there is an element without a root in the vec: path_elem_parent_path\n");
  }
  const std::string_view name = where.parent.empty() ? path : where.name;
  Tree_Node* const node = add_record(*parent, name, text, is_change, path);
  if (node && !node->IsLeaf()) m_open.push_back({node, path.size()});
  return node != nullptr;
}

// Whether the key is the one at the path, or on the way to it.
bool tree_builder::is_open_on(const open_key& key, std::string_view path) const {
  const bool is_cut =
      key.length == path.size() || (key.length < path.size() && path[key.length] == '\\');
  return is_cut && std::memcmp(path.data(), m_last_path.data(), key.length) == 0;
}

// NULL when a value is in the way. What is open afterwards is on the way to `path`.
Tree_Node* tree_builder::parent_at(std::string_view path) {
  while (!m_open.empty() && !is_open_on(m_open.back(), path)) m_open.pop_back();
  Tree_Node* node = m_open.empty() ? m_top.get() : m_open.back().node;
  const size_t known = m_open.empty() ? 0 : m_open.back().length;
  if (known == path.size()) return node;
  std::string_view name;
  for (Tree_PathWalk walk(path.substr(known)); walk.Next(name);) {
    Tree_Node* const child = node->Child(name);
    node = child ? child : node->AddKey(name);
    if (node->IsLeaf()) return nullptr;
    const auto end = static_cast<size_t>(name.data() + name.size() - path.data());
    m_open.push_back({node, end});
  }
  return node;
}

}  // namespace cfg
