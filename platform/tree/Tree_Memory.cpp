#include <tree/Tree_Memory.h>

#include <new>

#include <utility/Tmr_PoolAllocator.h>

namespace {

// The arrays of a child list take 48, 96, 144 or 192 bytes, most long texts less than 32.
constinit Tmr_PoolAllocator pools[] = {{24, 2}, {32, 3},  {48, 4}, {64, 5},
                                       {96, 6}, {144, 7}, {192, 8}};

// By the number of begun eights.
constexpr unsigned char pool_of[] = {0, 0, 0, 0, 1, 2, 2, 3, 3, 4, 4, 4, 4,
                                     5, 5, 5, 5, 5, 5, 6, 6, 6, 6, 6, 6};
static_assert(sizeof pool_of == Tree_Memory::kLargest / 8 + 1);

Tmr_PoolAllocator& pool_for(size_t bytes) { return pools[pool_of[(bytes + 7) / 8]]; }

}  // namespace

void* Tree_Memory::Allocate(size_t bytes) {
  return bytes > kLargest ? ::operator new(bytes) : pool_for(bytes).Allocate();
}

void Tree_Memory::Release(void* block, size_t bytes) noexcept {
  bytes > kLargest ? ::operator delete(block) : pool_for(bytes).Release(block);
}

size_t Tree_Memory::Taken(size_t bytes) {
  return bytes > kLargest ? bytes : pool_for(bytes).slot_size();
}

void Tree_Memory::Collapse() {
  for (Tmr_PoolAllocator& pool : pools) pool.Collapse();
}
