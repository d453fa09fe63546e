#include <utility/Tmr_PoolAllocator.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <new>
#include <utility>

#include <system/Sys_Block.h>
#include <thread/ForkHandler.h>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define POOL_FROM_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || \
    __has_feature(memory_sanitizer)
#define POOL_FROM_HEAP 1
#endif
#endif

// Blocks are aligned to their own size, so that a slot's address names its block. Behind
// the head stand the bits, one for each slot, then the slots.
struct Tmr_PoolAllocator::Block {
  Block* next;
  Block* next_open;
  uint32_t slots;
  uint32_t free_count;
  uint32_t first_word;  // no free bit in a word before this one

  uint64_t* bits() { return reinterpret_cast<uint64_t*>(this + 1); }
  uint32_t words() const { return (slots + 63) / 64; }
  char* slot_memory() { return reinterpret_cast<char*>(bits() + words()); }
};

// The locks of all pools in use are free in the child of a fork.
struct Tmr_PoolFork {
  static inline std::atomic<Tmr_PoolAllocator*> pools[Tmr_PoolAllocator::kPools];
  static ForkHandler& handler;

  static void note(Tmr_PoolAllocator* pool) {
    pools[pool->m_id].store(pool, std::memory_order_relaxed);
  }
  static void told(void*, ForkHandler::Phase phase) {
    static bool is_held[Tmr_PoolAllocator::kPools];  // others may come to be used meanwhile
    for (unsigned i = 0; i < Tmr_PoolAllocator::kPools; ++i) {
      Tmr_PoolAllocator* const pool = pools[i].load(std::memory_order_relaxed);
      if (phase == ForkHandler::BEFORE) {
        is_held[i] = pool != nullptr;
        if (pool) pool->m_mutex.lock();
      } else if (is_held[i]) {
        pool->m_mutex.unlock();
      }
    }
  }
};
ForkHandler& Tmr_PoolFork::handler =
    *new ForkHandler(ForkHandler::TREES, Tmr_PoolFork::told, nullptr);

// What a thread keeps of every pool. It is plain data and stays usable while the thread
// ends; the guard gives it back, after which the thread keeps nothing.
struct Tmr_PoolThread {
  struct Guard {
    ~Guard() {
      t_closed = true;
      for (unsigned i = 0; i < Tmr_PoolAllocator::kPools; ++i) {
        if (t_pools[i]) t_pools[i]->give_back(t_kept[i]);
      }
    }
  };
  static thread_local Tmr_PoolAllocator::Kept t_kept[Tmr_PoolAllocator::kPools];
  static thread_local Tmr_PoolAllocator* t_pools[Tmr_PoolAllocator::kPools];
  static thread_local bool t_closed;

  static Tmr_PoolAllocator::Kept& kept(Tmr_PoolAllocator* pool) {
    if (!t_pools[pool->m_id]) {
      static thread_local Guard guard;
      (void)guard;
      t_pools[pool->m_id] = pool;
    }
    return t_kept[pool->m_id];
  }
};
thread_local Tmr_PoolAllocator::Kept Tmr_PoolThread::t_kept[Tmr_PoolAllocator::kPools];
thread_local Tmr_PoolAllocator* Tmr_PoolThread::t_pools[Tmr_PoolAllocator::kPools];
thread_local bool Tmr_PoolThread::t_closed;

#ifdef POOL_FROM_HEAP

void* Tmr_PoolAllocator::Allocate() { return ::operator new(m_slot_size); }
void Tmr_PoolAllocator::Release(void* slot) noexcept { ::operator delete(slot); }
void Tmr_PoolAllocator::Reserve(size_t) {}
void Tmr_PoolAllocator::Collapse() {}

#else

void* Tmr_PoolAllocator::Allocate() {
  Kept& kept = Tmr_PoolThread::kept(this);
  if (kept.freed_count > 0) return kept.freed[--kept.freed_count];
  if (kept.run.free == 0) kept.run = take_run();
  void* slot = pop_from(kept.run);
  if (Tmr_PoolThread::t_closed) give_back(kept);
  return slot;
}

void Tmr_PoolAllocator::Release(void* slot) noexcept {
  Kept& kept = Tmr_PoolThread::kept(this);
  kept.freed[kept.freed_count++] = slot;
  if (kept.freed_count == kFreed || Tmr_PoolThread::t_closed) give_back(kept);
}

// Address space only: a block takes memory when it is opened.
void Tmr_PoolAllocator::Reserve(size_t slots) {
  const std::lock_guard lock(m_mutex);
  if (slots <= m_free_count) return;
  const size_t bytes = ((slots - m_free_count) / slots_per_block() + 1) * SYS_BLOCK_SIZE;
  if (m_reserved_bytes >= bytes) return;
  void* memory = Sys_AllocateBlock(bytes, m_blocks || bytes > SYS_BLOCK_SIZE);
  if (!memory) return;
  release_reserved();
  m_reserved = static_cast<char*>(memory);
  m_reserved_bytes = bytes;
}

void Tmr_PoolAllocator::Collapse() {
  give_back(Tmr_PoolThread::kept(this));
  const std::lock_guard lock(m_mutex);
  Block* block = std::exchange(m_blocks, nullptr);
  m_open = nullptr;
  while (block) {
    Block* const next = block->next;
    if (block->free_count == block->slots) {
      m_free_count -= block->slots;
      Sys_ReleaseBlock(block, SYS_BLOCK_SIZE);
    } else {
      block->next = std::exchange(m_blocks, block);
      if (block->free_count > 0) block->next_open = std::exchange(m_open, block);
    }
    block = next;
  }
  release_reserved();
}

#endif

// The next one is on its way into the cache when it is asked for.
void* Tmr_PoolAllocator::pop_from(Run& run) const {
  const auto slot = [&] { return run.first + std::countr_zero(run.free) * m_slot_size; };
  char* const taken = slot();
  run.free &= run.free - 1;
  if (run.free) __builtin_prefetch(slot(), 1);
  return taken;
}

Tmr_PoolAllocator::Run Tmr_PoolAllocator::take_run() {
  const std::lock_guard lock(m_mutex);
  Tmr_PoolFork::note(this);
  if (!m_open && !add_block()) throw std::bad_alloc();
  Block& block = *m_open;
  uint32_t& word = block.first_word;
  while (block.bits()[word] == 0) ++word;
  const Run run{block.slot_memory() + size_t{word} * 64 * m_slot_size,
                std::exchange(block.bits()[word], 0)};
  const auto count = static_cast<uint32_t>(std::popcount(run.free));
  m_free_count -= count;
  if ((block.free_count -= count) == 0) m_open = block.next_open;
  return run;
}

void Tmr_PoolAllocator::give_back(Kept& kept) noexcept {
  const std::lock_guard lock(m_mutex);
  while (kept.freed_count > 0) set_free(kept.freed[--kept.freed_count]);
  while (kept.run.free) set_free(pop_from(kept.run));
}

void Tmr_PoolAllocator::set_free(void* slot) noexcept {
  const auto address = reinterpret_cast<uintptr_t>(slot);
  Block& block = *reinterpret_cast<Block*>(address & ~(SYS_BLOCK_SIZE - 1));
  const uint64_t offset = address - reinterpret_cast<uintptr_t>(block.slot_memory());
  // Exact: the offset is a multiple of the slot size, and below 2^21.
  const auto place = static_cast<uint32_t>(offset * m_per_slot >> 32);
  block.bits()[place / 64] |= uint64_t{1} << place % 64;
  block.first_word = std::min(block.first_word, place / 64);
  if (block.free_count++ == 0) block.next_open = std::exchange(m_open, &block);
  ++m_free_count;
}

void Tmr_PoolAllocator::release_reserved() {
  if (m_reserved_bytes > 0) Sys_ReleaseBlock(m_reserved, std::exchange(m_reserved_bytes, 0));
}

// 64 slots and their word of bits at a time; what is left at the end stays unused.
size_t Tmr_PoolAllocator::slots_per_block() const {
  return (SYS_BLOCK_SIZE - sizeof(Block)) / (64 * m_slot_size + 8) * 64;
}

// The first block takes small pages as it needs them, so that a small tree costs little.
bool Tmr_PoolAllocator::add_block() {
  void* memory = m_reserved;
  if (m_reserved_bytes > 0) {
    m_reserved += SYS_BLOCK_SIZE;
    m_reserved_bytes -= SYS_BLOCK_SIZE;
  } else {
    memory = Sys_AllocateBlock(SYS_BLOCK_SIZE, m_blocks != nullptr);
  }
  if (!memory) return false;
  const size_t slots = slots_per_block();
  auto* block = new (memory)
      Block{m_blocks, m_open, static_cast<uint32_t>(slots), static_cast<uint32_t>(slots), 0};
  std::fill_n(block->bits(), block->words(), ~uint64_t{0});
  m_blocks = m_open = block;
  m_free_count += slots;
  return true;
}
