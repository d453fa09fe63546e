#include <tree/Tree_Name.h>

#include <array>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <unordered_set>

#include <thread/ForkHandler.h>

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

struct Parts {
  std::array<Part, kParts> all;
  ForkHandler handler{ForkHandler::TREES, told, this};

  static void told(void* parts, ForkHandler::Phase phase) {
    for (Part& part : static_cast<Parts*>(parts)->all) {
      phase == ForkHandler::BEFORE ? part.mutex.lock() : part.mutex.unlock();
    }
  }
};

// Never destroyed: trees held by static objects drop their names late.
Part& part_of(uint64_t hash) {
  static auto* const parts = new Parts;
  return parts->all[hash >> 59];
}
[[maybe_unused]] const Part& made_early = part_of(0);  // no child of a fork waits for its making
static_assert(kParts == 1u << (64 - 59));

// The count reaches zero only under the lock, so that a name found in the table is
// never one that another thread is about to free.
void give_back(Tree_Name::Text* text, uint32_t references) {
  uint32_t count = text->count.load(std::memory_order_relaxed);
  while (count > references) {
    if (text->count.compare_exchange_weak(count, count - references, std::memory_order_release,
                                          std::memory_order_relaxed)) {
      return;
    }
  }
  Part& part = part_of(text->hash);
  const std::lock_guard lock(part.mutex);
  if (text->count.fetch_sub(references, std::memory_order_acq_rel) != references) return;
  part.names.erase(text);
  delete text->string.load(std::memory_order_relaxed);
  ::operator delete(text);
}

// A tree repeats a few dozen names over and over. Each thread holds references to the names
// it meets again and again, taken many at a time: these are made, copied and dropped without
// a lock, a look into the table or a write to a count that other threads use, which was half
// of the time of building and copying a tree.
//
// A thread keeps at most kPlaces names, until others take their places or the thread ends. A
// name gets a place when it is met a second time before any other of that place, so that a
// stream of names met once disturbs nothing.
class Familiar {
 public:
  // Takes a reference to the name if it is familiar, null otherwise.
  Tree_Name::Text* take(uint64_t hash, std::string_view text) {
    Place& place = at(hash);
    if (!place.text || place.text->hash != hash || place.text->view() != text) return nullptr;
    take_from(place);
    return place.text;
  }
  void take(Tree_Name::Text* text) {
    Place& place = at(text->hash);
    if (place.text == text) return take_from(place);
    text->count.fetch_add(1, std::memory_order_relaxed);
    meet(place, text, 0);
  }
  // A reference that was counted for the caller stays with the caller.
  void meet(Tree_Name::Text* text) { meet(at(text->hash), text, 0); }
  void put_back(Tree_Name::Text* text) {
    Place& place = at(text->hash);
    if (place.text == text) {
      if (++place.references == 4 * kBatch)
        give_back(text, std::exchange(place.references, kBatch) - kBatch);
    } else if (!meet(place, text, 1)) {
      give_back(text, 1);
    }
  }
  ~Familiar() {
    for (const Place& place : m_places) {
      if (place.text) give_back(place.text, place.references);
    }
  }

 private:
  static constexpr size_t kPlaces = 256;
  static constexpr uint32_t kBatch = 256;
  struct Place {
    Tree_Name::Text* text = nullptr;
    uint32_t references = 0;  // at least 1 while there is a text
    uint32_t last_met = 0;    // of another text: upper half of its hash
  };

  Place& at(uint64_t hash) { return m_places[hash % kPlaces]; }
  static void take_from(Place& place) {
    if (place.references == 1) {
      place.text->count.fetch_add(kBatch, std::memory_order_relaxed);
      place.references += kBatch;
    }
    --place.references;
  }
  // TRUE when the text has the place now, which also took over `references` of the caller.
  static bool meet(Place& place, Tree_Name::Text* text, uint32_t references) {
    const auto sign = static_cast<uint32_t>(text->hash >> 32);
    if (place.last_met != sign) {
      place.last_met = sign;
      return false;
    }
    if (place.text) give_back(place.text, place.references);
    text->count.fetch_add(kBatch, std::memory_order_relaxed);
    place = {text, kBatch + references, 0};
    return true;
  }

  Place m_places[kPlaces];
};

// Null when the thread ends: then names go the long way.
Familiar* familiar() {
  static thread_local Familiar* names = nullptr;
  static thread_local bool closed = false;
  if (names || closed) return names;
  struct Guard {
    ~Guard() {
      closed = true;
      delete std::exchange(names, nullptr);
    }
  };
  static thread_local Guard guard;
  (void)guard;
  return names = new (std::nothrow) Familiar;
}

}  // namespace

Tree_Name::Tree_Name(std::string_view text) {
  if (text.size() > UINT32_MAX) throw std::length_error("Tree_Name");
  const uint64_t hash = Tree_Hash::Text(text);
  Familiar* const names = familiar();
  m_text = names ? names->take(hash, text) : nullptr;
  if (m_text) return;
  {
    Part& part = part_of(hash);
    const std::lock_guard lock(part.mutex);
    if (const auto found = part.names.find(text); found != part.names.end()) {
      m_text = *found;
      m_text->count.fetch_add(1, std::memory_order_relaxed);
    } else {
      struct Release {
        void operator()(void* memory) const { ::operator delete(memory); }
      };
      std::unique_ptr<void, Release> memory(::operator new(sizeof(Text) + text.size()));
      m_text = new (memory.get()) Text{{1}, static_cast<uint32_t>(text.size()), hash, nullptr};
      text.copy(reinterpret_cast<char*>(m_text + 1), text.size());
      part.names.insert(m_text);
      static_cast<void>(memory.release());
    }
  }
  if (names) names->meet(m_text);
}

// Threads may race to make it; one of them wins.
const RWCString& Tree_Name::string() const {
  const RWCString* there = m_text->string.load(std::memory_order_acquire);
  if (there) return *there;
  auto fresh = std::make_unique<const RWCString>(view());
  const bool has_won = m_text->string.compare_exchange_strong(there, fresh.get());
  return has_won ? *fresh.release() : *there;
}

void Tree_Name::share() const {
  if (Familiar* names = familiar()) {
    names->take(m_text);
  } else {
    m_text->count.fetch_add(1, std::memory_order_relaxed);
  }
}

void Tree_Name::drop() {
  if (Familiar* names = familiar()) {
    names->put_back(m_text);
  } else {
    give_back(m_text, 1);
  }
}
