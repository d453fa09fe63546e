// The memory that this process takes.
#pragma once

namespace bench {

struct footprint {
  double in_use;    // bytes: of the heap what is in use, and all blocks that are mapped beside it
  double resident;  // bytes of the process that are in real memory
};
footprint footprint_now();

void give_memory_back();  // what the heap holds without use

}  // namespace bench
