// Hashes of key names and of whole paths.
#pragma once

#include <cstddef>
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

  static uint64_t Text(std::string_view text, uint64_t seed) {
    Prefix all(seed);
    all.Extend(text);
    return all.HashOf(text);
  }
  static uint64_t Text(std::string_view text) { return Text(text, Seed()); }

  // What the beginning of a text contributes to its hash. A text that grows at its end, as
  // paths do on the way down a tree, is hashed at the cost of what is new.
  //
  // Sixteen bytes at a time, folded by a 64x64 multiplication; both factors hold something
  // secret, so that no text makes one of them zero. The last sixteen bytes are taken twice
  // where necessary instead of one by one.
  class Prefix {
   public:
    explicit Prefix(uint64_t seed) : m_state(seed), m_key(seed * 0xe7037ed1a0b428dbu) {}

    // `text` begins with the text given before.
    void Extend(std::string_view text) {
      const char* const p = text.data();
      for (; m_taken + 16 < text.size(); m_taken += 16) {
        m_state =
            fold(load<uint64_t>(p + m_taken) ^ m_state, load<uint64_t>(p + m_taken + 8) ^ m_key);
      }
    }
    // Of the text given last.
    uint64_t HashOf(std::string_view text) const {
      const char* const p = text.data();
      const size_t n = text.size();
      uint64_t first = 0, last = 0;
      if (n >= 16) {
        first = load<uint64_t>(p + n - 16);
        last = load<uint64_t>(p + n - 8);
      } else if (n >= 8) {
        first = load<uint64_t>(p);
        last = load<uint64_t>(p + n - 8);
      } else if (n >= 4) {
        first = load<uint32_t>(p);
        last = load<uint32_t>(p + n - 4);
      } else if (n > 0) {
        const auto byte = [&](size_t i) { return uint64_t{static_cast<unsigned char>(p[i])}; };
        first = byte(0) << 16 | byte(n / 2) << 8 | byte(n - 1);
      }
      return fold(fold(first ^ m_state, last ^ m_key) ^ n, m_key);
    }

   private:
    uint64_t m_state;
    uint64_t m_key;
    size_t m_taken = 0;
  };

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
