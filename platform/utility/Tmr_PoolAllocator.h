// A pool of equal slots of memory for objects that come and go by the million.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>

#include <strings/Export.h>

// Hands out slots of one size from blocks of 2 MB. Each thread keeps some free slots of its
// own, so that most calls take no lock. Any thread may call anything, and a slot may be
// released on another thread than the one that took it.
//
// A free slot is a bit in its block: neither taking nor releasing one touches its memory,
// which by the time a big tree is dropped is in no cache any more.
//
// A pool lives as long as the process: it has no destructor, so that objects which
// die late find it alive. Under a sanitizer the slots come from the general heap,
// which sees misuse that a pool would hide.
class HALVORIA_API Tmr_PoolAllocator {
 public:
  // slot_size: bytes, a multiple of 8, at most 1024.  id: below kPools, one for each pool of
  // the process.
  constexpr Tmr_PoolAllocator(size_t slot_size, unsigned id)
      : m_slot_size(slot_size), m_per_slot((uint64_t{1} << 32) / slot_size + 1), m_id(id) {}
  Tmr_PoolAllocator(const Tmr_PoolAllocator&) = delete;
  Tmr_PoolAllocator& operator=(const Tmr_PoolAllocator&) = delete;

  static constexpr unsigned kPools = 12;

  // Throws std::bad_alloc when the system has no memory left.
  void* Allocate();
  void Release(void* slot) noexcept;

  // Has room for at least `slots` free ones at hand, as far as memory allows. Room takes no
  // memory before it is used.
  void Reserve(size_t slots);
  // Gives the blocks without a slot in use back to the system. Free slots that other
  // threads keep for themselves hold their blocks back.
  void Collapse();

  size_t slot_size() const { return m_slot_size; }

 private:
  struct Block;
  struct Run {  // free slots among 64 neighbours
    char* first = nullptr;
    uint64_t free = 0;
  };
  static constexpr unsigned kFreed = 64;
  struct Kept {  // what one thread keeps
    Run run;
    unsigned freed_count = 0;
    void* freed[kFreed] = {};
  };
  friend struct Tmr_PoolThread;
  friend struct Tmr_PoolFork;

  void* pop_from(Run& run) const;
  Run take_run();
  void give_back(Kept& kept) noexcept;
  void set_free(void* slot) noexcept;  // m_mutex held, like the next
  bool add_block();
  void release_reserved();
  size_t slots_per_block() const;

  const size_t m_slot_size;
  const uint64_t m_per_slot;  // 2^32 / slot size, rounded up
  const unsigned m_id;
  std::mutex m_mutex;
  Block* m_blocks = nullptr;   // guarded by m_mutex: all of them
  Block* m_open = nullptr;     // guarded by m_mutex: those with a free bit
  size_t m_free_count = 0;     // guarded by m_mutex: free bits of all blocks
  char* m_reserved = nullptr;  // guarded by m_mutex: room for blocks to come
  size_t m_reserved_bytes = 0;
};
