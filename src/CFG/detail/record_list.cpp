#include <CFG/detail/record_list.h>

#include <algorithm>
#include <cstring>
#include <numeric>

namespace cfg {
namespace {
constexpr size_t block_size = 1024 * 1024;
}

record_list::record_list() : m_way{{none, 0}} {}

void record_list::append(std::string_view path, std::string_view value) {
  const size_t cut = path.rfind('\\');
  const size_t parent_length = cut == path.npos ? 0 : cut;
  // All keys on the way are named by the front of the last path.
  while (m_way.back().length > parent_length) m_way.pop_back();
  const bool has_parent =
      m_way.back().length == parent_length &&
      path.substr(0, parent_length) == std::string_view(m_path).substr(0, parent_length);
  std::string_view name = path;
  uint32_t parent = none;
  if (m_is_tree && has_parent) {
    parent = m_way.back().node;
    if (parent != none) name.remove_prefix(parent_length + 1);
    m_way.push_back({static_cast<uint32_t>(m_nodes.size()), path.size()});
    m_path = path;
  }
  m_is_tree = m_is_tree && has_parent;
  m_nodes.push_back({keep(name, value), static_cast<uint32_t>(name.size()),
                     static_cast<uint32_t>(value.size()), parent});
}

const char* record_list::keep(std::string_view name, std::string_view value) {
  const size_t size = name.size() + value.size();
  if (size > m_free_size) {
    m_free_size = std::max(size, block_size);
    m_blocks.emplace_back(new char[m_free_size]);
    m_free = m_blocks.back().get();
  }
  char* const text = m_free;
  std::memcpy(text, name.data(), name.size());
  if (!value.empty()) std::memcpy(text + name.size(), value.data(), value.size());
  m_free += size;
  m_free_size -= size;
  return text;
}

std::string record_list::path_of(size_t node) const {
  size_t length = 0;
  for (size_t i = node;; i = m_nodes[i].parent) {
    length += m_nodes[i].name_length + 1;
    if (m_nodes[i].parent == none) break;
  }
  std::string path(length - 1, '\\');
  for (size_t i = node, end = path.size();; i = m_nodes[i].parent) {
    end -= m_nodes[i].name_length;
    m_nodes[i].name().copy(path.data() + end, m_nodes[i].name_length);
    if (m_nodes[i].parent == none) return path;
    --end;
  }
}

std::unique_ptr<record_list::Records> record_list::records() const {
  auto records = std::make_unique<Records>(m_nodes.size());
  for (size_t i = 0; i < m_nodes.size(); ++i) {
    records->append(
        std::make_unique<Tree_NodeInfo>(RWCString(path_of(i)), RWCString(m_nodes[i].value())));
  }
  records->sort();
  return records;
}

// The nodes by their parents: group 0 at the top, group i + 1 below node i.
struct record_list::Groups {
  std::vector<uint32_t> nodes;
  std::vector<uint32_t> begin;  // of each group in `nodes`, and the end of the last
};

// Siblings in order of their names. False when two have the same one.
bool record_list::group(Groups& groups) const {
  const auto count = static_cast<uint32_t>(m_nodes.size());
  const auto group_of = [&](uint32_t i) { return m_nodes[i].parent + 1; };  // none is the highest
  auto& begin = groups.begin;
  begin.assign(count + 2, 0);
  for (uint32_t i = 0; i < count; ++i) ++begin[group_of(i) + 1];
  std::partial_sum(begin.begin(), begin.end(), begin.begin());
  std::vector<uint32_t> next(begin.begin(), begin.end() - 1);
  groups.nodes.resize(count);
  for (uint32_t i = 0; i < count; ++i) groups.nodes[next[group_of(i)]++] = i;
  const auto before = [&](uint32_t a, uint32_t b) { return m_nodes[a].name() < m_nodes[b].name(); };
  const auto not_before = [&](uint32_t a, uint32_t b) { return !before(a, b); };
  for (uint32_t i = 0; i <= count; ++i) {
    const auto first = groups.nodes.begin() + begin[i], last = groups.nodes.begin() + begin[i + 1];
    if (std::adjacent_find(first, last, not_before) == last) continue;
    std::sort(first, last, before);
    if (std::adjacent_find(first, last, not_before) != last) return false;
  }
  return true;
}

Tree_NodePtr record_list::build_tree(const RWCString& root_path) const {
  const Tree_NodePtr scratch = new Tree_Node("tmp");
  Groups groups;
  if (!m_is_tree || m_nodes.size() >= none - 1 || !group(groups)) {
    return scratch->BuildSubTree(records().get(), root_path);
  }
  Tree_NodePtr top = scratch->BuildSubTree(std::make_unique<Records>().get(), root_path);
  std::vector<Tree_Node*> made(m_nodes.size());
  // A parent has a lower number than what is below it, so it is made before.
  for (size_t i = 0; i <= m_nodes.size(); ++i) {
    Tree_Node* const parent = i == 0 ? top.get() : made[i - 1];
    for (uint32_t at = groups.begin[i]; at < groups.begin[i + 1]; ++at) {
      const Node& node = m_nodes[groups.nodes[at]];
      const Tree_NodePtr child = node.value_length == 0
                                     ? new Tree_Node(node.name())
                                     : new Tree_Node(node.name(), node.value(), 0);
      if (!parent->Add(child)) return nullptr;  // below a value
      made[groups.nodes[at]] = child.get();
    }
  }
  return top;
}

}  // namespace cfg
