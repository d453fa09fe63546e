#include <utility/Tmr_PoolAllocator.h>

#include <new>
#include <unordered_map>

#include <system/Sys_Block.h>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define POOL_FROM_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || \
    __has_feature(memory_sanitizer)
#define POOL_FROM_HEAP 1
#endif
#endif

// Blocks are aligned to their own size, so that a slot's address names its block.
// The first bytes of a block hold its link.
struct Tmr_PoolAllocator::Block {
  Block* next;
};

namespace {
constexpr size_t kBlockSize = 2u << 20;
constexpr size_t kHeader = 64;
constexpr size_t kBatch = 128;  // slots moved between a thread and the pool at once
// A thread that holds more gives some back; unused where the general heap serves.
[[maybe_unused]] constexpr size_t kKept = 4 * kBatch;
}  // namespace

// What a thread keeps of every pool. The chains are plain data and stay usable while
// the thread ends; the guard gives them back, after which the thread keeps nothing.
struct Tmr_PoolThread {
  struct Guard {
    ~Guard() {
      t_closed = true;
      for (unsigned i = 0; i < Tmr_PoolAllocator::kPools; ++i) {
        if (t_pools[i]) t_pools[i]->take_back(t_chains[i], 0);
      }
    }
  };
  static thread_local Tmr_PoolAllocator::Chain t_chains[Tmr_PoolAllocator::kPools];
  static thread_local Tmr_PoolAllocator* t_pools[Tmr_PoolAllocator::kPools];
  static thread_local bool t_closed;

  static Tmr_PoolAllocator::Chain& chain(Tmr_PoolAllocator* pool) {
    if (!t_pools[pool->m_id]) {
      static thread_local Guard guard;
      (void)guard;
      t_pools[pool->m_id] = pool;
    }
    return t_chains[pool->m_id];
  }
};
thread_local Tmr_PoolAllocator::Chain Tmr_PoolThread::t_chains[Tmr_PoolAllocator::kPools];
thread_local Tmr_PoolAllocator* Tmr_PoolThread::t_pools[Tmr_PoolAllocator::kPools];
thread_local bool Tmr_PoolThread::t_closed;

#ifdef POOL_FROM_HEAP

void* Tmr_PoolAllocator::Allocate() { return ::operator new(m_slot_size); }
void Tmr_PoolAllocator::Release(void* slot) noexcept { ::operator delete(slot); }
void Tmr_PoolAllocator::Reserve(size_t) {}
void Tmr_PoolAllocator::Collapse() {}

#else

void* Tmr_PoolAllocator::Allocate() {
  Chain& chain = Tmr_PoolThread::chain(this);
  if (!chain.first) refill(chain);
  Free* slot = chain.first;
  chain.first = slot->next;
  --chain.length;
  if (Tmr_PoolThread::t_closed) take_back(chain, 0);
  return slot;
}

void Tmr_PoolAllocator::Release(void* slot) noexcept {
  Chain& chain = Tmr_PoolThread::chain(this);
  chain.first = new (slot) Free{chain.first};
  if (++chain.length > kKept || Tmr_PoolThread::t_closed) {
    take_back(chain, Tmr_PoolThread::t_closed ? 0 : kKept - kBatch);
  }
}

void Tmr_PoolAllocator::Reserve(size_t slots) {
  const std::lock_guard lock(m_mutex);
  const size_t fresh = static_cast<size_t>(m_fresh_end - m_fresh) / m_slot_size;
  const size_t have = m_free_count + fresh;
  if (slots <= have) return;
  const size_t per_block = (kBlockSize - kHeader) / m_slot_size;
  for (size_t missing = slots - have;;) {
    // What the newest block still holds goes to the free list, the new one takes its place.
    for (; m_fresh != m_fresh_end; m_fresh += m_slot_size, ++m_free_count) {
      m_free = new (m_fresh) Free{m_free};
    }
    if (!add_block() || missing <= per_block) return;
    missing -= per_block;
  }
}

void Tmr_PoolAllocator::Collapse() {
  take_back(Tmr_PoolThread::chain(this), 0);
  const std::lock_guard lock(m_mutex);
  for (; m_fresh != m_fresh_end; m_fresh += m_slot_size, ++m_free_count) {
    m_free = new (m_fresh) Free{m_free};
  }
  m_fresh = m_fresh_end = nullptr;

  const auto block_of = [](void* slot) {
    return reinterpret_cast<Block*>(reinterpret_cast<uintptr_t>(slot) & ~(kBlockSize - 1));
  };
  const size_t per_block = (kBlockSize - kHeader) / m_slot_size;
  std::unordered_map<Block*, size_t> free_in;
  for (Free* slot = m_free; slot; slot = slot->next) ++free_in[block_of(slot)];

  Free** link = &m_free;
  for (Free* slot = m_free; slot; slot = slot->next) {
    if (free_in[block_of(slot)] == per_block) {
      --m_free_count;
    } else {
      *link = slot;
      link = &slot->next;
    }
  }
  *link = nullptr;
  for (Block** at = &m_blocks; *at;) {
    Block* block = *at;
    if (free_in[block] != per_block) {
      at = &block->next;
      continue;
    }
    *at = block->next;
    Sys_ReleaseBlock(block, kBlockSize);
  }
}

#endif

bool Tmr_PoolAllocator::add_block() {
  void* memory = Sys_AllocateBlock(kBlockSize);
  if (!memory) return false;
  m_blocks = new (memory) Block{m_blocks};
  m_fresh = static_cast<char*>(memory) + kHeader;
  m_fresh_end = m_fresh + (kBlockSize - kHeader) / m_slot_size * m_slot_size;
  return true;
}

void Tmr_PoolAllocator::refill(Chain& chain) {
  const std::lock_guard lock(m_mutex);
  if (!m_free && m_fresh == m_fresh_end && !add_block()) throw std::bad_alloc();
  Free** link = &chain.first;
  for (; chain.length < kBatch && m_free; ++chain.length, --m_free_count) {
    *link = m_free;
    link = &m_free->next;
    m_free = m_free->next;
  }
  for (; chain.length < kBatch && m_fresh != m_fresh_end; ++chain.length, m_fresh += m_slot_size) {
    *link = new (m_fresh) Free{nullptr};
    link = &(*link)->next;
  }
  *link = nullptr;
}

void Tmr_PoolAllocator::take_back(Chain& chain, size_t keep) noexcept {
  if (chain.length <= keep) return;
  const std::lock_guard lock(m_mutex);
  for (; chain.length > keep; --chain.length, ++m_free_count) {
    Free* slot = chain.first;
    chain.first = slot->next;
    slot->next = m_free;
    m_free = slot;
  }
}
