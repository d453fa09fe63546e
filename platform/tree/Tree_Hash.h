// Hashes of key names and of whole paths.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

#include <strings/Export.h>

// 64-bit hashes that differ from process to process: names come from documents and from
// other machines, and nobody outside may be able to choose names that collide.
class HALVORIA_API Tree_Hash {
 public:
  // The secret of this process, fixed at first use. Hot loops fetch it once.
  static uint64_t Seed();

  // Of a few bytes: eight at a time, folded by a 64x64 multiplication. Names are short, so
  // their ends are read with two overlapping loads instead of a loop.
  static uint64_t Text(std::string_view text, uint64_t seed) {
    const char* p = text.data();
    size_t n = text.size();
    uint64_t hash = seed ^ n;
    for (; n > 8; p += 8, n -= 8) hash = fold(hash ^ load<uint64_t>(p), 0xa0761d6478bd642fu);
    uint64_t rest = 0;
    if (n >= 4) {
      rest = load<uint32_t>(p) << 32 | load<uint32_t>(p + n - 4);
    } else if (n > 0) {
      const auto byte = [&](size_t i) { return uint64_t{static_cast<unsigned char>(p[i])}; };
      rest = byte(0) << 16 | byte(n / 2) << 8 | byte(n - 1);
    }
    return fold(hash ^ rest, 0xe7037ed1a0b428dbu);
  }
  static uint64_t Text(std::string_view text) { return Text(text, Seed()); }

  // Of a path, from the hash of its parent's path (0 for the empty path) and of its last name.
  static uint64_t Path(uint64_t parent, uint64_t name) {
    return fold(parent + 0x9e3779b97f4a7c15u, name | 1) ^ name;
  }

 private:
  template <class T>
  static uint64_t load(const char* p) {
    T value;
    std::memcpy(&value, p, sizeof value);
    return value;
  }
  static uint64_t fold(uint64_t a, uint64_t b) {
#ifdef __SIZEOF_INT128__
    __extension__ using wide = unsigned __int128;
    const wide product = static_cast<wide>(a) * b;
    return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
#else
    const uint64_t x = (a ^ (a >> 32)) * b;
    return x ^ (x >> 29);
#endif
  }
};
