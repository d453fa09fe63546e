#include "memory.h"

#include <malloc.h>

#include <array>
#include <cstddef>
#include <new>

#include <tree/Tree_Node.h>

namespace service {

namespace {

// Each thread keeps some free blocks of each small size, and those of a large answer lie far
// apart: hundreds of them hold as many pages. New blocks are cut from one place. So as many are
// taken twice, and those that came first go back last, when there is room for the others only.
void gather_small_blocks() {
  constexpr size_t LARGEST = 1032, STEP = 16, KEPT = 7;
  std::array<void*, 2 * KEPT> blocks;
  for (size_t size = STEP + 8; size <= LARGEST; size += STEP) {
    for (void*& block : blocks) block = ::operator new(size);
    for (size_t i = blocks.size(); i-- > 0;) ::operator delete(blocks[i]);
  }
}

}  // namespace

void keep_little_memory() {
  mallopt(M_MMAP_THRESHOLD, 1 << 20);
  mallopt(M_TRIM_THRESHOLD, 256 << 10);
}

void give_memory_back() {
  Tree_Node::CollapsePools();
  gather_small_blocks();
  malloc_trim(0);
  // What is free at the end of a thread's share goes when something large is freed, and only then.
  ::operator delete(::operator new(128 << 10));
}

}  // namespace service
