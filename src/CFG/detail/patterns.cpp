#include <CFG/detail/patterns.h>
#include <tree/Tree_Node.h>

#include <CFG/detail/paths.h>

namespace cfg {

std::string_view before_wildcard(std::string_view path) {
  const size_t wildcard = path.find('%');
  return wildcard == path.npos ? path : split_path(path.substr(0, wildcard)).parent;
}

std::string_view component(std::string_view path, int position) {
  std::string_view name;
  Tree_PathWalk walk(path);
  for (int i = 0; i <= position; ++i) {
    if (!walk.Next(name)) return std::string_view();
  }
  return name;
}

Tree_Node* pattern_walk::follow(Tree_Node* node, std::string_view rest) {
  Tree_PathWalk walk(rest);
  std::string_view name;
  for (std::string_view from = rest; node && walk.Next(name); from = walk.Rest()) {
    if (name == "%") {
      if (m_on_step && from.size() != rest.size()) m_on_step(from);
      if (node->Children()) m_open.push_back({node->Children(), 0, walk.Rest()});
      return nullptr;
    }
    node = name.find('%') == name.npos ? node->Child(name) : nullptr;
  }
  return node;
}

void pattern_walk::next() {
  m_found = nullptr;
  while (!m_found && !m_open.empty()) {
    any_key& wildcard = m_open.back();
    const uint32_t place = wildcard.children->next(wildcard.place);
    if (place == Tree_ChildList::npos) {
      m_open.pop_back();
      continue;
    }
    wildcard.place = place + 1;
    Tree_Node* child = wildcard.children->at(place).get();
    if (child->IsLeaf()) continue;
    if (m_on_step) m_on_step(wildcard.rest);
    m_found = follow(child, wildcard.rest);
  }
}

}  // namespace cfg
