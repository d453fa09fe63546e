#include <common/footprint.h>

#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

namespace bench {

footprint footprint_now() {
  unsigned long pages[6] = {};
  FILE* statm = std::fopen("/proc/self/statm", "r");
  const int read = statm ? std::fscanf(statm, "%lu %lu %lu %lu %*u %lu", &pages[0], &pages[1],
                                       &pages[2], &pages[3], &pages[5])
                         : 0;
  if (statm) std::fclose(statm);
  if (read != 5) throw std::runtime_error("cannot read /proc/self/statm");
  const double page = static_cast<double>(::sysconf(_SC_PAGESIZE));
  const struct mallinfo2 heap = ::mallinfo2();
  const double writable = static_cast<double>(pages[5]) * page;
  const double of_heap = static_cast<double>(heap.arena + heap.hblkhd);
  return {static_cast<double>(heap.uordblks + heap.hblkhd) + writable - of_heap,
          static_cast<double>(pages[1]) * page};
}

void give_memory_back() { ::malloc_trim(0); }

}  // namespace bench
