#include <CFG/xml/branch_nodes.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include <CFG/xml/normal_path.h>
#include <tree/Tree_Node.h>
#include <tree/Tree_Walk.h>

namespace cfg {
namespace {

// As a number that orders as the texts do, as far as it reaches. Names hold no NUL.
uint64_t front_of(std::string_view name) {
  unsigned char bytes[8] = {};
  std::memcpy(bytes, name.data(), std::min(name.size(), sizeof bytes));
  uint64_t front = 0;
  for (const unsigned char byte : bytes) front = front << 8 | byte;
  return front;
}

}  // namespace

branch_nodes::branch_nodes() = default;

branch_nodes::branch_nodes(const RWCString& root_path)
    : m_root_path(root_path),
      m_root_depth(1 + static_cast<size_t>(
                           std::count(root_path.view().begin(), root_path.view().end(), '\\'))),
      m_path(root_path.view()),
      m_top(Tree_NodePtr(new Tree_Node("tmp"))
                ->BuildSubTree(std::make_unique<Records>().get(), root_path)),
      m_way{{m_top.get(), m_path.size(), 0}} {}

branch_nodes::~branch_nodes() = default;

bool branch_nodes::append_in_order(std::string_view path, std::string_view value) {
  const size_t cut = path.rfind('\\');
  if (!m_top || cut == path.npos || cut == 0) return false;
  size_t level = m_way.size() - 1;
  while (level > 0 && m_way[level].path_length > cut) --level;
  const std::string_view name = path.substr(cut + 1);
  if (m_way[level].path_length != cut || std::memcmp(path.data(), m_path.data(), cut) != 0 ||
      !is_normal_name(name) || m_root_depth + level >= max_path_depth) {
    return false;
  }
  while (m_way.size() > level + 1) {
    if (!close()) return false;
  }
  Tree_Node* const node = value.empty() ? new Tree_Node(name) : new Tree_Node(name, value, 0);
  m_waiting.push_back({front_of(name), Tree_NodePtr::First(node)});
  if (value.empty()) {
    m_way.push_back({node, path.size(), m_waiting.size()});
    m_path.replace(cut, m_path.npos, path.substr(cut));
  }
  ++m_size;
  return true;
}

void branch_nodes::append(std::string_view path, std::string_view value) {
  if (append_in_order(path, value)) return;
  become_records();
  m_records.emplace_back(RWCString(below_root(path)), RWCString(value));
  ++m_size;
}

bool branch_nodes::before(const Waiting& a, const Waiting& b) {
  return a.front != b.front ? a.front < b.front : a.node->NameView() < b.node->NameView();
}

// By name. As long as the list of their key is small, values then exchange their places, too, and
// stand in memory in that order, mostly in a row behind the key.
void branch_nodes::sort_from(size_t first) {
  constexpr size_t few = 16;
  const auto begin = m_waiting.begin() + static_cast<ptrdiff_t>(first);
  const auto is_value = [](const Waiting& child) { return child.node->IsLeaf(); };
  std::array<const Tree_Node*, few> values;  // in order of memory
  size_t count = 0;
  if (m_waiting.size() - first <= few) {
    for (auto child = begin; child != m_waiting.end(); ++child) {
      if (is_value(*child)) values[count++] = child->node.get();
    }
  }
  std::stable_sort(begin, m_waiting.end(), before);
  auto child = begin;
  for (size_t i = 0; i < count; ++i, ++child) {
    child = std::find_if(child, m_waiting.end(), is_value);
    const auto there = std::find_if(child, m_waiting.end(), [&](const Waiting& other) {
      return other.node.get() == values[i];
    });
    if (there != child) Tree_Node::ExchangePlaces(child->node, there->node);
  }
}

// Puts the children of the last key below it. False when two have the same name.
bool branch_nodes::close() {
  const Open last = m_way.back();
  const auto begin = m_waiting.begin() + static_cast<ptrdiff_t>(last.first_child);
  const auto not_before = [](const Waiting& a, const Waiting& b) { return !before(a, b); };
  if (std::adjacent_find(begin, m_waiting.end(), not_before) != m_waiting.end()) {
    sort_from(last.first_child);
    if (std::adjacent_find(begin, m_waiting.end(), not_before) != m_waiting.end()) {
      become_records();
      return false;
    }
  }
  last.key->Reserve(static_cast<uint32_t>(m_waiting.end() - begin));
  for (auto child = begin; child != m_waiting.end(); ++child) {
    last.key->AddDistinct(std::move(child->node));
  }
  m_waiting.erase(begin, m_waiting.end());
  m_way.pop_back();
  return true;
}

std::string_view branch_nodes::below_root(std::string_view path) const {
  return m_root_path.isNull() ? path : path.substr(std::min(m_root_path.length() + 1, path.size()));
}

// Those that wait stand in the order of the document, each with what was put below it.
template <class Take>
void branch_nodes::for_each_below_root(Take take) const {
  size_t level = 0;
  for (size_t i = 0; i < m_waiting.size(); ++i) {
    while (level + 1 < m_way.size() && m_way[level + 1].first_child <= i) ++level;
    const std::string_view above = std::string_view(m_path).substr(0, m_way[level].path_length);
    for (Tree_PathsWalk walk(m_waiting[i].node.get(), below_root(above)); walk; walk.Next()) {
      take(walk.Path(), walk->GetText());
    }
  }
}

// Of two nodes with one path the first stays the first: the later one holds.
void branch_nodes::become_records() {
  if (!m_top) return;
  m_records.reserve(m_size + 1);
  for_each_below_root([this](const std::string& path, std::string_view text) {
    m_records.emplace_back(RWCString(path), RWCString(text));
  });
  m_waiting.clear();
  m_way.clear();
  m_top = nullptr;
}

std::string branch_nodes::path_of_last() const {
  if (!m_top) return m_records.back().GetPath().str();
  std::string path(below_root(std::string_view(m_path).substr(0, m_way.back().path_length)));
  const Tree_Node& last = *m_waiting.back().node;
  if (!last.IsLeaf()) return path;
  if (!path.empty()) path += '\\';
  return path.append(last.NameView());
}

std::unique_ptr<branch_nodes::Records> branch_nodes::records() const {
  auto records = std::make_unique<Records>(m_size);
  const auto take = [&](std::string_view path, std::string_view text) {
    records->append(std::make_unique<Tree_NodeInfo>(RWCString(path), RWCString(text)));
  };
  for_each_below_root(take);
  for (const Tree_NodeInfo& record : m_records) take(record.PathView(), record.ValueView());
  records->sort();
  return records;
}

Tree_NodePtr branch_nodes::take_tree() {
  while (!m_way.empty() && close()) {
  }
  if (m_top) return std::move(m_top);
  return Tree_NodePtr(new Tree_Node("tmp"))->BuildSubTree(records().get(), m_root_path);
}

}  // namespace cfg
