#include <tree/Tree_Name.h>

#include <array>
#include <mutex>
#include <new>
#include <stdexcept>
#include <unordered_set>

namespace {

struct Hash {
  using is_transparent = void;
  size_t operator()(const Tree_Name::Text* text) const { return text->hash; }
  size_t operator()(std::string_view text) const { return Tree_Hash::Text(text); }
};
struct Equal {
  using is_transparent = void;
  bool operator()(const Tree_Name::Text* a, const Tree_Name::Text* b) const { return a == b; }
  bool operator()(const Tree_Name::Text* a, std::string_view b) const { return a->view() == b; }
  bool operator()(std::string_view a, const Tree_Name::Text* b) const { return b->view() == a; }
};

// Names are spread over parts by their hash, so that threads which build trees at
// the same time seldom meet.
struct Part {
  std::mutex mutex;
  std::unordered_set<Tree_Name::Text*, Hash, Equal> names;  // guarded by mutex
};
constexpr size_t kParts = 32;

// Never destroyed: trees held by static objects drop their names late.
Part& part_of(uint64_t hash) {
  static auto* const parts = new std::array<Part, kParts>;
  return (*parts)[hash >> 59];
}
static_assert(kParts == 1u << (64 - 59));

}  // namespace

Tree_Name::Tree_Name(std::string_view text) {
  if (text.size() > UINT32_MAX) throw std::length_error("Tree_Name");
  const uint64_t hash = Tree_Hash::Text(text);
  Part& part = part_of(hash);
  const std::lock_guard lock(part.mutex);
  if (const auto found = part.names.find(text); found != part.names.end()) {
    m_text = *found;
    m_text->count.fetch_add(1, std::memory_order_relaxed);
    return;
  }
  void* memory = ::operator new(sizeof(Text) + text.size());
  m_text = new (memory) Text{{1}, static_cast<uint32_t>(text.size()), hash};
  text.copy(reinterpret_cast<char*>(m_text + 1), text.size());
  part.names.insert(m_text);
}

// The count reaches zero only under the lock, so that a name found in the table is
// never one that another thread is about to free.
void Tree_Name::drop() {
  uint32_t count = m_text->count.load(std::memory_order_relaxed);
  while (count > 1) {
    if (m_text->count.compare_exchange_weak(count, count - 1, std::memory_order_release,
                                            std::memory_order_relaxed)) {
      return;
    }
  }
  Part& part = part_of(m_text->hash);
  const std::lock_guard lock(part.mutex);
  if (m_text->count.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  part.names.erase(m_text);
  ::operator delete(m_text);
}
