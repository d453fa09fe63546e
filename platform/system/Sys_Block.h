// Big blocks of page memory for pools.
#pragma once

#include <cstddef>

#include <strings/Export.h>

// Alignment and granule of a block: the size of a huge page.
constexpr size_t SYS_BLOCK_SIZE = size_t{2} << 20;

// Zeroed memory aligned to SYS_BLOCK_SIZE, `bytes` rounded up to a multiple of it; huge
// pages are asked for, or asked not to be used. NULL when the system has none left or `bytes` is 0.
// The caller gives it back with Sys_ReleaseBlock and the same `bytes`. Any thread may call either.
HALVORIA_API void* Sys_AllocateBlock(size_t bytes, bool huge_pages = true);
HALVORIA_API void Sys_ReleaseBlock(void* block, size_t bytes);  // NULL is fine

// For memory of any kind that is about to be filled for the first time: asks for huge pages where
// whole ones fit in. Faulting it in page by page costs more than filling it.
HALVORIA_API void Sys_AskForHugePages(void* memory, size_t bytes);
