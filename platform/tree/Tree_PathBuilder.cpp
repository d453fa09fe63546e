#include <tree/Tree_PathBuilder.h>

#include <cstring>

#include <tree/Tree_Path.h>

Tree_PathBuilder::Outcome Tree_PathBuilder::Put(Tree_Node& parent, std::string_view name,
                                                std::string_view text, int is_change,
                                                Tree_Node*& node) {
  node = text.empty() ? parent.AddKey(name) : parent.AddValue(name, text, is_change);
  if (node) return PLACED;
  node = parent.Child(name);
  if (!node) return WITHOUT_NAME;
  if (node->IsLeaf() == text.empty()) return OF_OTHER_KIND;
  if (node->IsLeaf()) {
    node->GetTreeValue()->SetText(text);
    node->GetTreeValue()->SetIsChange(is_change);
  }
  return PLACED;
}

Tree_PathBuilder::Outcome Tree_PathBuilder::Add(std::string_view path, std::string_view text,
                                                int is_change) {
  const size_t cut = path.rfind('\\');
  const std::string_view parent_path = path.substr(0, cut == path.npos ? 0 : cut);
  Tree_Node* const parent = parent_at(parent_path);
  if (!parent) return BELOW_A_VALUE;
  // A path that begins with its only backslash is a name.
  const std::string_view name = parent_path.empty() ? path : path.substr(cut + 1);
  Tree_Node* node;
  const Outcome outcome = Put(*parent, name, text, is_change, node);
  if (outcome == PLACED && !node->IsLeaf()) {
    m_open_path.assign(path);
    m_open.push_back({node, path.size()});
  }
  return outcome;
}

// Whether the key is the one at the path, or on the way to it.
bool Tree_PathBuilder::is_open_on(const Open& open, std::string_view path) const {
  const bool is_cut =
      open.length == path.size() || (open.length < path.size() && path[open.length] == '\\');
  return is_cut && std::memcmp(path.data(), m_open_path.data(), open.length) == 0;
}

// NULL when a value is in the way. What is open afterwards is on the way to `path`.
Tree_Node* Tree_PathBuilder::parent_at(std::string_view path) {
  while (!m_open.empty() && !is_open_on(m_open.back(), path)) m_open.pop_back();
  Tree_Node* node = m_open.empty() ? m_top.get() : m_open.back().key;
  const size_t known = m_open.empty() ? 0 : m_open.back().length;
  if (known == path.size()) return node;
  m_open_path.assign(path);
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
