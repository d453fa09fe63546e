// Memory of the short texts and small arrays that hang on nodes.
#pragma once

#include <cstddef>

#include <strings/Export.h>

// Blocks of up to kLargest bytes come from pools of a few sizes, longer ones from the general
// heap: by the million, a pool is several times faster and spares eight bytes a block.
// Any thread may call either; throws std::bad_alloc.
class HALVORIA_API Tree_Memory {
 public:
  static constexpr size_t kLargest = 192;

  static void* Allocate(size_t bytes);
  // `bytes`: as they were asked for.
  static void Release(void* block, size_t bytes) noexcept;
  // Bytes that a request takes.
  static size_t Taken(size_t bytes);
  // Gives what is not in use back to the system, as far as whole blocks are free.
  static void Collapse();
};
