// What the process takes from the system.
#pragma once

namespace service {

// Once, at the start: what is large goes back to the system when it is freed, from every thread's
// share of the heap. The library would keep as much as the largest answers took.
void keep_little_memory();

// Gives back what this thread has kept of what it freed.
void give_memory_back();

}  // namespace service
