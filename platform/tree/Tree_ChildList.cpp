#include <tree/Tree_ChildList.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <tree/Tree_Memory.h>
#include <tree/Tree_Node.h>

// A list of more than 16 children. A place is not used again until the list is packed,
// which happens when more than half of it is holes.
//
// The index is open addressing over places. An entry whose place became a hole, or
// whose child got another name, stays until the next packing: the hash beside the
// place does not match any more, and the search goes on.
//
// `live` and `keys` are bit maps of the places. m_sums holds, per block of 64
// places, Fenwick sums of both, so that a position is found by descending over
// powers of two and then by counting bits.
struct Tree_ChildList::Large {
  struct Sums {
    uint32_t live = 0;
    uint32_t keys = 0;
  };
  struct Bits {
    uint64_t live = 0;
    uint64_t keys = 0;
  };
  static constexpr uint32_t kFree = ~0u;

  std::vector<Tree_NodePtr> places;
  std::vector<uint32_t> hashes;
  std::vector<uint32_t> index;  // a power of two, at most three quarters in use
  uint32_t index_used = 0;
  std::vector<Bits> bits;
  std::vector<Sums> sums;  // 1-based Fenwick tree over the blocks; sums[0] unused

  // Laid out like another, all places still empty.
  explicit Large(const Large& other, std::nullptr_t)
      : places(other.places.size()),
        hashes(other.hashes),
        index(other.index),
        index_used(other.index_used),
        bits(other.bits),
        sums(other.sums) {}
  explicit Large(uint32_t room) {
    places.reserve(room);
    hashes.reserve(room);
    bits.reserve(room / 64 + 1);
    sums.reserve(room / 64 + 2);
    sums.emplace_back();
    rebuild_index(room);
  }

  uint32_t size() const { return static_cast<uint32_t>(places.size()); }

  void rebuild_index(uint32_t room) {
    index.assign(std::bit_ceil(std::max(room, 24u) * 4 / 3 + 1), kFree);
    index_used = 0;
    for (uint32_t place = 0; place < size(); ++place) {
      if (places[place]) enter(place);
    }
  }
  void enter(uint32_t place) {
    const uint32_t mask = static_cast<uint32_t>(index.size()) - 1;
    uint32_t at = hashes[place] & mask;
    while (index[at] != kFree) at = (at + 1) & mask;
    index[at] = place;
    ++index_used;
  }
  uint32_t& entry_of(uint32_t place) {
    const uint32_t mask = static_cast<uint32_t>(index.size()) - 1;
    uint32_t at = hashes[place] & mask;
    while (index[at] != place) at = (at + 1) & mask;
    return index[at];
  }
  void make_room_in_index() {
    if ((index_used + 1) * 4 > static_cast<uint32_t>(index.size()) * 3) rebuild_index(size() * 2);
  }
  template <class T>
  static void make_room_in(std::vector<T>& list) {
    if (list.size() == list.capacity()) list.reserve(std::max<size_t>(list.size() * 2, 4));
  }
  // The next append does not throw.
  void make_room() {
    make_room_in(places);
    make_room_in(hashes);
    if (size() % 64 == 0) {
      make_room_in(bits);
      make_room_in(sums);
    }
    make_room_in_index();
  }

  void count_block(uint32_t block, int live, int keys) {
    for (uint32_t i = block + 1; i < sums.size(); i += i & (0 - i)) {
      sums[i].live += static_cast<uint32_t>(live);
      sums[i].keys += static_cast<uint32_t>(keys);
    }
  }
  // A new last block starts with the sum of the blocks that its place in the tree covers.
  void add_block() {
    bits.emplace_back();
    const auto i = static_cast<uint32_t>(bits.size());
    Sums sum;
    for (uint32_t below = i - 1, stop = i - (i & (0 - i)); below > stop;
         below -= below & (0 - below)) {
      sum.live += sums[below].live;
      sum.keys += sums[below].keys;
    }
    sums.push_back(sum);
  }

  void append(uint32_t hash, bool is_key, Tree_NodePtr child) {
    make_room();
    const uint32_t place = size();
    if (place % 64 == 0) add_block();
    places.push_back(std::move(child));
    hashes.push_back(hash);
    bits.back().live |= uint64_t{1} << place % 64;
    if (is_key) bits.back().keys |= uint64_t{1} << place % 64;
    count_block(place / 64, 1, is_key);
    enter(place);
  }

  Tree_NodePtr take(uint32_t place) {
    Bits& block = bits[place / 64];
    const uint64_t bit = uint64_t{1} << place % 64;
    count_block(place / 64, -1, block.keys & bit ? -1 : 0);
    block.live &= ~bit;
    block.keys &= ~bit;
    return std::exchange(places[place], nullptr);
  }

  uint32_t next(uint32_t place) const {
    for (uint32_t block = place / 64; block < bits.size(); ++block, place = block * 64) {
      const uint64_t rest = bits[block].live >> place % 64;
      if (rest) return place + static_cast<uint32_t>(std::countr_zero(rest));
    }
    return npos;
  }

  static uint32_t of(const Sums& sum, Kind kind) {
    return kind == ANY ? sum.live : kind == KEYS ? sum.keys : sum.live - sum.keys;
  }
  uint32_t select(Kind kind, uint32_t position) const {
    uint32_t block = 0;
    for (auto step = std::bit_floor(static_cast<uint32_t>(bits.size())); step > 0; step /= 2) {
      if (block + step >= sums.size()) continue;
      const uint32_t before = of(sums[block + step], kind);
      if (before > position) continue;
      position -= before;
      block += step;
    }
    const Bits& b = bits[block];
    uint64_t rest = kind == ANY ? b.live : kind == KEYS ? b.keys : b.live & ~b.keys;
    while (position-- > 0) rest &= rest - 1;
    return block * 64 + static_cast<uint32_t>(std::countr_zero(rest));
  }

  // Closes the holes. There is room for all children from the start on.
  void pack(uint32_t room) {
    Large packed(room);
    for (uint32_t place = next(0); place != npos; place = next(place + 1)) {
      const bool is_key = bits[place / 64].keys >> place % 64 & 1;
      packed.append(hashes[place], is_key, std::move(places[place]));
    }
    *this = std::move(packed);
  }
};

static constexpr size_t kSlotSize = sizeof(Tree_NodePtr) + sizeof(uint32_t);

Tree_NodePtr* Tree_ChildList::slots() const {
  return is_large() ? m_large->places.data() : m_slots;
}

Tree_ChildList::Places Tree_ChildList::places() const {
  const Tree_NodePtr* const begin = slots();
  return {begin, begin + (is_large() ? m_large->size() : m_count)};
}

uint32_t Tree_ChildList::next(uint32_t place) const {
  if (is_large()) return m_large->next(place);
  return place < m_count ? place : npos;
}

uint32_t Tree_ChildList::select(Kind kind, uint32_t position) const {
  if (position >= count(kind)) return npos;
  const uint32_t places = is_large() ? m_large->size() : m_count;
  if (count(kind) == places) return position;  // all of them, and no holes
  if (is_large()) return m_large->select(kind, position);
  uint32_t rest = kind == KEYS ? m_key_mask : ~uint32_t{m_key_mask};
  while (position-- > 0) rest &= rest - 1;
  return static_cast<uint32_t>(std::countr_zero(rest));
}

void Tree_ChildList::note_row(const Tree_Node* key) {
  if (is_large()) return;
  while (m_row < m_count && m_slots[m_row].get() == key + 1 + m_row) ++m_row;
}

uint32_t Tree_ChildList::find(uint64_t name_hash, std::string_view name) const {
  const auto hash = static_cast<uint32_t>(name_hash);
  if (!is_large()) {
    const uint32_t* h = hashes();
    uint32_t place = 0;
#ifdef __SSE2__
    const __m128i wanted = _mm_set1_epi32(static_cast<int>(hash));
    for (; place < m_count; place += 4) {  // the array has room for a multiple of four
      const __m128i four = _mm_loadu_si128(reinterpret_cast<const __m128i*>(h + place));
      auto hits =
          static_cast<uint32_t>(_mm_movemask_ps(_mm_castsi128_ps(_mm_cmpeq_epi32(four, wanted))));
      for (; hits; hits &= hits - 1) {
        const uint32_t hit = place + static_cast<uint32_t>(std::countr_zero(hits));
        if (hit < m_count && m_slots[hit]->NameView() == name) return hit;
      }
    }
#else
    for (; place < m_count; ++place) {
      if (h[place] == hash && m_slots[place]->NameView() == name) return place;
    }
#endif
    return npos;
  }
  const Large& list = *m_large;
  const uint32_t mask = static_cast<uint32_t>(list.index.size()) - 1;
  for (uint32_t at = hash & mask; list.index[at] != Large::kFree; at = (at + 1) & mask) {
    const uint32_t place = list.index[at];
    if (list.hashes[place] != hash) continue;
    const Tree_NodePtr& child = list.places[place];
    if (child && child->NameView() == name) return place;
  }
  return npos;
}

uint32_t Tree_ChildList::find(const Tree_Name& name, uint32_t likely) const {
  const uint32_t places = is_large() ? m_large->size() : m_count;
  if (likely < places) {
    const Tree_NodePtr& child = slots()[likely];
    if (child && child->Name() == name) return likely;
  }
  return find(name.hash(), name.view());
}

void Tree_ChildList::append(uint64_t name_hash, bool is_key, Tree_NodePtr child) {
  const auto hash = static_cast<uint32_t>(name_hash);
  make_room_in_small(m_count);
  if (is_large()) {
    m_large->append(hash, is_key, std::move(child));
  } else {
    new (m_slots + m_count) Tree_NodePtr(std::move(child));
    hashes()[m_count] = hash;
    if (is_key) m_key_mask = static_cast<uint16_t>(m_key_mask | 1u << m_count);
  }
  ++m_count;
  m_keys += is_key;
}

void Tree_ChildList::make_room(uint32_t instead) {
  if (instead == npos) make_room_in_small(m_count);
  if (is_large()) m_large->make_room();
}

void Tree_ChildList::make_room_in_small(uint32_t count) {
  if (is_large() || count < m_capacity) return;
  if (count < kSmall) {
    grow_small(m_capacity * 2);
  } else {
    become_large(2 * kSmall);
  }
}

Tree_NodePtr Tree_ChildList::replace(uint32_t place, uint64_t hash, bool is_key,
                                     Tree_NodePtr child) {
  if (is_large()) {
    Tree_NodePtr gone = take_keeping_places(place);
    append(hash, is_key, std::move(child));
    pack_when_sparse();  // last, as that would take away the room
    return gone;
  }
  Tree_NodePtr gone = take_from_small(place);
  const uint32_t last = m_count - 1;
  new (m_slots + last) Tree_NodePtr(std::move(child));
  hashes()[last] = static_cast<uint32_t>(hash);
  m_key_mask = static_cast<uint16_t>(m_key_mask | uint32_t{is_key} << last);
  m_keys += is_key;
  return gone;
}

Tree_NodePtr Tree_ChildList::take(uint32_t place) {
  Tree_NodePtr child = take_keeping_places(place);
  pack_when_sparse();
  return child;
}

void Tree_ChildList::pack_when_sparse() noexcept {
  if (!is_large() || m_count * 2 >= m_large->size()) return;
  if (m_count == 0) return clear();
  try {
    m_large->pack(m_count * 2);
  } catch (const std::bad_alloc&) {
    // Holes do no harm: another time.
  }
}

Tree_NodePtr Tree_ChildList::take_keeping_places(uint32_t place) {
  if (is_large()) {
    --m_count;
    m_keys -= m_large->bits[place / 64].keys >> place % 64 & 1;
    return m_large->take(place);
  }
  Tree_NodePtr child = take_from_small(place);
  --m_count;
  return child;
}

// What stands behind the place moves up. The last place, which counts still, is left as raw memory.
Tree_NodePtr Tree_ChildList::take_from_small(uint32_t place) {
  Tree_NodePtr child = std::move(m_slots[place]);
  if (m_row > place) m_row = static_cast<uint8_t>(place);
  m_keys -= m_key_mask >> place & 1;
  const size_t behind = m_count - 1 - place;
  std::memmove(static_cast<void*>(m_slots + place), static_cast<const void*>(m_slots + place + 1),
               behind * sizeof *m_slots);
  std::memmove(hashes() + place, hashes() + place + 1, behind * sizeof(uint32_t));
  const uint32_t below = (1u << place) - 1;
  m_key_mask = static_cast<uint16_t>((m_key_mask & below) | ((m_key_mask >> 1) & ~below));
  return child;
}

void Tree_ChildList::rename(uint32_t place, uint64_t name_hash) {
  const auto hash = static_cast<uint32_t>(name_hash);
  if (!is_large()) {
    hashes()[place] = hash;
    return;
  }
  m_large->make_room_in_index();
  m_large->hashes[place] = hash;
  m_large->enter(place);
}

void Tree_ChildList::exchange_names(uint32_t a, uint32_t b) noexcept {
  if (is_large()) {
    std::swap(m_large->entry_of(a), m_large->entry_of(b));
    std::swap(m_large->hashes[a], m_large->hashes[b]);
  } else {
    std::swap(hashes()[a], hashes()[b]);
  }
}

void Tree_ChildList::reserve(uint32_t room) {
  if (is_large() || room <= m_capacity) return;
  if (room <= kSmall) {
    grow_small(room);
  } else {
    become_large(room);
  }
}

void Tree_ChildList::clear() {
  if (is_large()) {
    delete m_large;
  } else {
    for (uint32_t i = 0; i < m_count; ++i) m_slots[i].~Tree_NodePtr();
    release_small();
  }
  m_slots = nullptr;
  m_count = m_keys = 0;
  m_capacity = m_row = 0;
  m_key_mask = 0;
}

void Tree_ChildList::release_small() {
  if (m_slots) Tree_Memory::Release(m_slots, m_capacity * kSlotSize);
}

// All places are there and null; count and kinds are those of the other list already. Nobody but
// fill_with_copies may meet the list like this.
void Tree_ChildList::take_layout(const Tree_ChildList& other) {
  if (other.m_count == 0) return;
  if (other.is_large()) {
    m_large = new Large(*other.m_large, nullptr);
    m_capacity = kIsLarge;
  } else {
    grow_small(other.m_count);
    std::uninitialized_value_construct_n(m_slots, other.m_count);
    std::copy_n(other.hashes(), other.m_count, hashes());
  }
  m_count = other.m_count;
  m_keys = other.m_keys;
  m_key_mask = other.m_key_mask;
}

void Tree_ChildList::grow_small(uint32_t capacity) {
  capacity = std::clamp((capacity + 3) & ~3u, 4u, kSmall);
  auto* fresh = static_cast<Tree_NodePtr*>(Tree_Memory::Allocate(capacity * kSlotSize));
  auto* fresh_hashes = reinterpret_cast<uint32_t*>(fresh + capacity);
  std::uninitialized_move_n(m_slots, m_count, fresh);  // what stays behind is null
  std::copy_n(hashes(), m_count, fresh_hashes);
  std::fill_n(fresh_hashes + m_count, capacity - m_count, 0u);
  release_small();
  m_slots = fresh;
  m_capacity = static_cast<uint8_t>(capacity);
}

void Tree_ChildList::become_large(uint32_t room) {
  auto large = std::make_unique<Large>(room);
  for (uint32_t i = 0; i < m_count; ++i) {
    large->append(hashes()[i], m_key_mask >> i & 1, std::move(m_slots[i]));
  }
  release_small();
  m_large = large.release();
  m_capacity = kIsLarge;
  m_row = 0;
  m_key_mask = 0;
}

uint64_t Tree_ChildList::memory() const {
  if (!is_large()) return m_capacity == 0 ? 0 : Tree_Memory::Taken(m_capacity * kSlotSize);
  const Large& l = *m_large;
  return sizeof l + l.places.capacity() * sizeof(Tree_NodePtr) +
         (l.hashes.capacity() + l.index.capacity()) * sizeof(uint32_t) +
         l.bits.capacity() * sizeof(Large::Bits) + l.sums.capacity() * sizeof(Large::Sums);
}
