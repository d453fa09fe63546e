// From the hash of a whole path to the node at its end.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <strings/Export.h>
#include <tree/Tree_Hash.h>

class Tree_Node;

// A tree that is read a great deal gets one of these on its top node: a lookup then costs
// two or three memory accesses however deep the path is, where the walk from key to key
// costs three to four a level. In a tree of a million nodes, read all over, nearly each of
// them misses every cache.
//
// A path is known by the 64 bits of Tree_Hash::Text, which nobody outside the process can
// predict, and the node found must carry the last component as its name. The chance that
// another path passes is 1 in 2^64 for each node of that name.
//
// 16 bytes an entry, at most three quarters in use: 21 to 32 bytes a node. Reading changes
// nothing; a change needs the tree to itself.
class HALVORIA_API Tree_PathIndex {
 public:
  // A path from the top of a tree that changes name by name at its end, and its hash, at the
  // cost of what has changed.
  class Way {
   public:
    Way() = default;                      // to the top itself
    explicit Way(const Tree_Node& node);  // to a node below the top of its tree; on a way up

    void Append(std::string_view name);
    void Cut(size_t names);  // of the names that were appended, all but the first so many go
    uint64_t Hash() const { return m_here.prefix.HashOf(m_path) ^ m_here.hidden; }

   private:
    struct Step {
      Tree_Hash::Prefix prefix{Tree_Hash::Seed()};
      size_t length = 0;
      uint64_t hidden = 0;  // all ones: a name up to here is none that a path can have
    };
    void arrive(bool is_hidden);

    std::string m_path;
    Step m_here;
    std::vector<Step> m_before;  // where each appended name began
  };

  // Of all nodes below `top`.
  explicit Tree_PathIndex(const Tree_Node& top);
  ~Tree_PathIndex() { s_alive.fetch_sub(1, std::memory_order_relaxed); }
  Tree_PathIndex(const Tree_PathIndex&) = delete;
  Tree_PathIndex& operator=(const Tree_PathIndex&) = delete;

  // Whether the process has any: while it has none, a change need not look for the one of its
  // tree, far up.
  static bool IsAnyAlive() { return s_alive.load(std::memory_order_relaxed) != 0; }

  // Finds a path without empty components; one with them is found nowhere here, nor is the
  // empty path.
  Tree_Node* Find(std::string_view path) const;

  // `hash` is that of the way to the node.
  void Insert(uint64_t hash, Tree_Node* node);
  void Erase(uint64_t hash, const Tree_Node* node);

 private:
  // As many entries as a cache line holds. A lookup compares all of a line at once: one by
  // one, it would go wrong at a branch in every second line.
  struct alignas(64) Line {
    uint64_t hashes[4];
    Tree_Node* nodes[4];  // null: free
  };

  static std::vector<Line> made(size_t lines);
  size_t slots() const { return m_lines.size() * 4; }
  uint64_t& hash_at(size_t slot) { return m_lines[slot / 4].hashes[slot % 4]; }
  Tree_Node*& node_at(size_t slot) { return m_lines[slot / 4].nodes[slot % 4]; }
  // A line: the upper bits of the hash, scaled to the size, which need not be a power of two.
  size_t home(uint64_t hash) const {
#ifdef __SIZEOF_INT128__
    __extension__ using wide = unsigned __int128;
    return static_cast<size_t>(static_cast<wide>(hash) * m_lines.size() >> 64);
#else
    return static_cast<size_t>((hash >> 32) * m_lines.size() >> 32);
#endif
  }
  void place(uint64_t hash, Tree_Node* node);
  void grow();

  static std::atomic<uint32_t> s_alive;
  const uint64_t m_seed = Tree_Hash::Seed();
  // Open addressing: an entry stands in the first slot that was free from the start of its
  // home line on.
  std::vector<Line> m_lines;
  size_t m_used = 0;
};
