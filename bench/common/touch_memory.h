// Memory that the machine has at hand.
#pragma once

#include <cstddef>

namespace bench {

// A virtual machine gives free memory back to its host and gets it again page by page, at up
// to milliseconds for a large page. Touching as much as a sample may take, before its time is
// taken, makes the machine have it, so that no sample pays for what another gave back.
void touch_memory(size_t bytes);

// Before a sample that builds trees of so many nodes in a process of its own: what the heap
// holds without use goes, too.
void begin_with_empty_heap(size_t nodes);

}  // namespace bench
