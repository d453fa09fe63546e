#include <tree/Tree_PathIndex.h>

#include <algorithm>
#include <bit>

#include <system/Sys_Block.h>
#include <tree/Tree_Node.h>
#include <tree/Tree_Walk.h>

static constexpr size_t kSmallest = 16;
static size_t lines_for(size_t nodes) { return std::max(kSmallest, nodes / 3 + 1); }

std::atomic<uint32_t> Tree_PathIndex::s_alive{0};

static bool holds_backslash(std::string_view name) { return name.find('\\') != name.npos; }

// Written from its end, in one piece: a value that is set below a tree with an index pays
// for this each time.
Tree_PathIndex::Way::Way(const Tree_Node& node) {
  size_t end = 0;
  for (const Tree_Node* at = &node; at->GetParent(); at = at->GetParent())
    end += at->NameView().size() + 1;
  m_path.assign(end - 1, '\\');
  bool is_hidden = false;
  for (const Tree_Node* at = &node; at->GetParent(); at = at->GetParent()) {
    const std::string_view name = at->NameView();
    end -= name.size() + 1;
    name.copy(&m_path[end], name.size());
    is_hidden |= holds_backslash(name);
  }
  arrive(is_hidden);
}

void Tree_PathIndex::Way::Append(std::string_view name) {
  m_before.push_back(m_here);
  if (!m_path.empty()) m_path += '\\';
  m_path += name;
  arrive(holds_backslash(name));
}

// No path leads to a name with a backslash in it, nor below, though the texts may be the same.
void Tree_PathIndex::Way::arrive(bool is_hidden) {
  m_here.prefix.Extend(m_path);
  m_here.length = m_path.size();
  if (is_hidden) m_here.hidden = ~uint64_t{0};
}

void Tree_PathIndex::Way::Cut(size_t names) {
  if (names == m_before.size()) return;
  m_here = m_before[names];
  m_before.erase(m_before.begin() + static_cast<std::ptrdiff_t>(names), m_before.end());
  m_path.resize(m_here.length);
}

// Lookups go all over the table: with small pages each would need another one.
std::vector<Tree_PathIndex::Line> Tree_PathIndex::made(size_t lines) {
  std::vector<Line> table;
  table.reserve(lines);
  Sys_AskForHugePages(table.data(), lines * sizeof(Line));
  table.resize(lines);
  return table;
}

Tree_PathIndex::Tree_PathIndex(const Tree_Node& top) {
  m_lines = made(lines_for(static_cast<size_t>(top.GetNodeNum())));
  Way way;
  for (Tree_Walk walk(top.Children()); walk; walk.Next()) {
    way.Cut(walk.Depth() - 1);
    way.Append(walk->NameView());
    place(way.Hash(), *walk);
    ++m_used;
  }
  s_alive.fetch_add(1, std::memory_order_relaxed);
}

static bool ends_with_component(std::string_view path, std::string_view name) {
  if (!path.ends_with(name)) return false;
  return path.size() == name.size() || path[path.size() - name.size() - 1] == '\\';
}

Tree_Node* Tree_PathIndex::Find(std::string_view path) const {
  const uint64_t hash = Tree_Hash::Text(path, m_seed);
  for (size_t at = home(hash);; at = at + 1 == m_lines.size() ? 0 : at + 1) {
    const Line& line = m_lines[at];
    const auto equal_at = [&](unsigned i) { return unsigned{line.hashes[i] == hash} << i; };
    unsigned equal = equal_at(0) | equal_at(1) | equal_at(2) | equal_at(3);
    for (; equal; equal &= equal - 1) {
      Tree_Node* node = line.nodes[std::countr_zero(equal)];
      if (node && ends_with_component(path, node->NameView())) return node;
    }
    if (!line.nodes[3]) return nullptr;  // what is filled is filled from the start
  }
}

void Tree_PathIndex::Insert(uint64_t hash, Tree_Node* node) {
  if (lines_for(m_used + 1) > m_lines.size()) grow();
  place(hash, node);
  ++m_used;
}

// Entries behind the freed one move up as far as their homes allow, so that no search
// ends too early.
void Tree_PathIndex::Erase(uint64_t hash, const Tree_Node* node) {
  const size_t size = slots();
  size_t hole = home(hash) * 4;
  while (node_at(hole) != node) {
    if (!node_at(hole)) return;
    hole = hole + 1 == size ? 0 : hole + 1;
  }
  for (size_t at = hole;;) {
    at = at + 1 == size ? 0 : at + 1;
    if (!node_at(at)) break;
    const size_t from_home = (at + size - home(hash_at(at)) * 4) % size;
    if (from_home < (at + size - hole) % size) continue;
    hash_at(hole) = hash_at(at);
    node_at(hole) = node_at(at);
    hole = at;
  }
  node_at(hole) = nullptr;
  --m_used;
}

void Tree_PathIndex::place(uint64_t hash, Tree_Node* node) {
  size_t at = home(hash) * 4;
  while (node_at(at)) at = at + 1 == slots() ? 0 : at + 1;
  hash_at(at) = hash;
  node_at(at) = node;
}

void Tree_PathIndex::grow() {
  std::vector<Line> old = made(m_lines.size() + m_lines.size() / 2);
  old.swap(m_lines);
  for (const Line& line : old) {
    for (unsigned i = 0; i < 4; ++i) {
      if (line.nodes[i]) place(line.hashes[i], line.nodes[i]);
    }
  }
}
