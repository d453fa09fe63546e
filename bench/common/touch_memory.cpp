#include <common/touch_memory.h>

#include <malloc.h>
#include <sys/mman.h>

#include <stdexcept>

namespace bench {

void touch_memory(size_t bytes) {
  void* memory = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::runtime_error("no memory");
  ::madvise(memory, bytes, MADV_HUGEPAGE);
  for (size_t at = 0; at < bytes; at += 4096) static_cast<volatile char*>(memory)[at] = 1;
  ::munmap(memory, bytes);
}

void begin_with_empty_heap(size_t nodes) {
  ::malloc_trim(0);
  touch_memory(nodes * 700);
}

}  // namespace bench
