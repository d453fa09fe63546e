// Reads that go past a cache.
#pragma once

namespace cfg {

// While one lives, its thread is inside an operation of the repository: what that reads, to write
// it back or in one state, is what is stored.
class direct_reads {
 public:
  direct_reads() { ++s_depth; }
  direct_reads(const direct_reads&) = delete;
  direct_reads& operator=(const direct_reads&) = delete;
  ~direct_reads() { --s_depth; }
  static bool are_on() { return s_depth > 0; }

 private:
  static inline constinit thread_local int s_depth = 0;
};

}  // namespace cfg
