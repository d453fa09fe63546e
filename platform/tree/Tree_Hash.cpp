#include <tree/Tree_Hash.h>

#include <random>

uint64_t Tree_Hash::Seed() {
  static const uint64_t seed = [] {
    std::random_device device;
    return uint64_t{device()} << 32 | device();
  }();
  return seed;
}
// No child of a fork waits for its making.
[[maybe_unused]] static const uint64_t made_early = Tree_Hash::Seed();
