#include <system/Sys_Block.h>

#include <sys/mman.h>

#include <cstdint>

static size_t rounded_up(size_t bytes) {
  return (bytes + SYS_BLOCK_SIZE - 1) & ~(SYS_BLOCK_SIZE - 1);
}

void* Sys_AllocateBlock(size_t bytes, bool huge_pages) {
  if (bytes == 0 || bytes > SIZE_MAX / 2) return nullptr;
  const size_t size = rounded_up(bytes);
  // Pages are only 4 KB aligned: take one block more and give the ends back.
  const size_t taken = size + SYS_BLOCK_SIZE;
  void* mapped = mmap(nullptr, taken, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapped == MAP_FAILED) return nullptr;
  char* start = static_cast<char*>(mapped);
  const size_t head =
      rounded_up(reinterpret_cast<uintptr_t>(start)) - reinterpret_cast<uintptr_t>(start);
  if (head > 0) munmap(start, head);
  if (taken > head + size) munmap(start + head + size, taken - head - size);
  // Advice only: either kind serves.
  madvise(start + head, size, huge_pages ? MADV_HUGEPAGE : MADV_NOHUGEPAGE);
  return start + head;
}

void Sys_ReleaseBlock(void* block, size_t bytes) {
  if (block) munmap(block, rounded_up(bytes));
}

void Sys_AskForHugePages(void* memory, size_t bytes) {
  const auto begin = reinterpret_cast<uintptr_t>(memory), end = begin + bytes;
  const uintptr_t first = rounded_up(begin), last = end & ~(SYS_BLOCK_SIZE - 1);
  if (first < last) madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
}
