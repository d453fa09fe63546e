#include <tree/Tree_PathIndex.h>

#include <algorithm>

#include <tree/Tree_Node.h>
#include <tree/Tree_Walk.h>

static constexpr size_t kSmallest = 64;
static size_t room_for(size_t nodes) { return std::max(kSmallest, nodes + nodes / 4 + 1); }

std::atomic<uint32_t> Tree_PathIndex::s_alive{0};

Tree_PathIndex::Way::Way(const Tree_Node& parent, std::string_view child) : Way() {
  std::vector<std::string_view> names{child};
  for (const Tree_Node* at = &parent; at->GetParent(); at = at->GetParent())
    names.push_back(at->NameView());
  for (auto name = names.rbegin(); name != names.rend(); ++name) Append(*name);
}

// No path leads to a name with a backslash in it, nor below, though the texts may be the same.
void Tree_PathIndex::Way::Append(std::string_view name) {
  Step next = m_steps.back();
  if (!m_path.empty()) m_path += '\\';
  m_path += name;
  next.prefix.Extend(m_path);
  next.length = m_path.size();
  if (name.find('\\') != name.npos) next.hidden = ~uint64_t{0};
  m_steps.push_back(next);
}

void Tree_PathIndex::Way::Cut(size_t names) {
  m_steps.erase(m_steps.begin() + static_cast<std::ptrdiff_t>(names) + 1, m_steps.end());
  m_path.resize(m_steps.back().length);
}

Tree_PathIndex::Tree_PathIndex(const Tree_Node& top) {
  s_alive.fetch_add(1, std::memory_order_relaxed);
  m_entries.resize(room_for(static_cast<size_t>(top.GetNodeNum())), Entry{0, nullptr});
  Way way;
  for (Tree_Walk walk(const_cast<Tree_Node*>(&top)); walk; walk.Next()) {
    if (walk.Depth() == 0) continue;
    way.Cut(walk.Depth() - 1);
    way.Append(walk->NameView());
    place({way.Hash(), *walk});
    ++m_used;
  }
}

static bool ends_with_component(std::string_view path, std::string_view name) {
  if (path.size() == name.size()) return path == name;
  return path.size() > name.size() && path[path.size() - name.size() - 1] == '\\' &&
         path.substr(path.size() - name.size()) == name;
}

Tree_Node* Tree_PathIndex::Find(std::string_view path) const {
  const uint64_t hash = Tree_Hash::Text(path, m_seed);
  for (size_t at = home(hash); m_entries[at].node; at = at + 1 == m_entries.size() ? 0 : at + 1) {
    if (m_entries[at].hash == hash && ends_with_component(path, m_entries[at].node->NameView()))
      return m_entries[at].node;
  }
  return nullptr;
}

void Tree_PathIndex::Insert(uint64_t hash, Tree_Node* node) {
  if (room_for(m_used + 1) > m_entries.size()) grow();
  place({hash, node});
  ++m_used;
}

// Entries behind the freed one move up as far as their homes allow, so that no search
// ends too early.
void Tree_PathIndex::Erase(uint64_t hash, const Tree_Node* node) {
  const size_t size = m_entries.size();
  size_t hole = home(hash);
  while (m_entries[hole].node != node) {
    if (!m_entries[hole].node) return;
    hole = hole + 1 == size ? 0 : hole + 1;
  }
  for (size_t at = hole;;) {
    at = at + 1 == size ? 0 : at + 1;
    if (!m_entries[at].node) break;
    const size_t from_home = (at + size - home(m_entries[at].hash)) % size;
    if (from_home < (at + size - hole) % size) continue;
    m_entries[hole] = m_entries[at];
    hole = at;
  }
  m_entries[hole].node = nullptr;
  --m_used;
}

// The upper bits of the hash, scaled to the size: sizes need not be powers of two.
size_t Tree_PathIndex::home(uint64_t hash) const {
#ifdef __SIZEOF_INT128__
  __extension__ using wide = unsigned __int128;
  return static_cast<size_t>(static_cast<wide>(hash) * m_entries.size() >> 64);
#else
  return static_cast<size_t>((hash >> 32) * m_entries.size() >> 32);
#endif
}

void Tree_PathIndex::place(Entry entry) {
  size_t at = home(entry.hash);
  while (m_entries[at].node) at = at + 1 == m_entries.size() ? 0 : at + 1;
  m_entries[at] = entry;
}

void Tree_PathIndex::grow() {
  std::vector<Entry> old(m_entries.size() + m_entries.size() / 2, Entry{0, nullptr});
  old.swap(m_entries);
  for (const Entry& entry : old) {
    if (entry.node) place(entry);
  }
}
