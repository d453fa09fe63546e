// A pool of equal slots of memory for objects that come and go by the million.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>

#include <strings/Export.h>

// Hands out slots of one size from blocks of 2 MB. Each thread keeps a few free slots
// of its own, so that most calls take no lock. Any thread may call anything, and a
// slot may be released on another thread than the one that took it.
//
// A pool lives as long as the process: it has no destructor, so that objects which
// die late find it alive. Under a sanitizer the slots come from the general heap,
// which sees misuse that a pool would hide.
class HALVORIA_API Tmr_PoolAllocator {
 public:
  // slot_size: bytes, a multiple of 8.  id: below kPools, one for each pool of the process.
  constexpr Tmr_PoolAllocator(size_t slot_size, unsigned id) : m_slot_size(slot_size), m_id(id) {}
  Tmr_PoolAllocator(const Tmr_PoolAllocator&) = delete;
  Tmr_PoolAllocator& operator=(const Tmr_PoolAllocator&) = delete;

  static constexpr unsigned kPools = 4;

  // Throws std::bad_alloc when the system has no memory left.
  void* Allocate();
  void Release(void* slot) noexcept;

  // Has at least `slots` free ones at hand, as far as memory allows.
  void Reserve(size_t slots);
  // Gives the blocks without a slot in use back to the system. Free slots that other
  // threads keep for themselves hold their blocks back.
  void Collapse();

 private:
  struct Free {
    Free* next;
  };
  struct Chain {  // a few free slots that belong to one thread
    Free* first = nullptr;
    size_t length = 0;
  };
  struct Block;
  friend struct Tmr_PoolThread;

  void refill(Chain& chain);
  void take_back(Chain& chain, size_t keep) noexcept;
  bool add_block();

  const size_t m_slot_size;
  const unsigned m_id;
  std::mutex m_mutex;
  Block* m_blocks = nullptr;  // guarded by m_mutex
  Free* m_free = nullptr;     // guarded by m_mutex
  size_t m_free_count = 0;    // guarded by m_mutex
  char* m_fresh = nullptr;    // guarded by m_mutex: slots of the newest block never used yet
  char* m_fresh_end = nullptr;
};
