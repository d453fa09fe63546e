// Numbers of a few ASCII digits.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

// Reads texts of one to eight digits, and of as many characters with a point among them,
// without a loop. Nearly all numbers are of that kind, and a loop over digits ends where the
// processor cannot foresee it: then it waits for the text to come from memory, where it could
// already have begun what the caller does next.
//
// False for any other text, with nothing said about the results.
class I18n_ShortNumber {
 public:
  static bool ReadInteger(std::string_view text, uint32_t& number) {
    if (text.empty() || text.size() > 8) return false;
    const uint64_t eight = digits_of(text);
    if (above_nine(eight)) return false;
    number = value_of(eight);
    return true;
  }

  static bool ReadDecimal(std::string_view text, double& number) {
    if (text.empty() || text.size() > 8) return false;
    uint64_t eight = digits_of(text);
    double power = 1;
    if (const uint64_t others = above_nine(eight)) {  // then a single one, the point, goes
      static constexpr double powers[] = {1e7, 1e6, 1e5, 1e4, 1e3, 1e2, 1e1, 1};
      const unsigned at = static_cast<unsigned>(std::countr_zero(others)) - 7;
      if ((others & (others - 1)) != 0 || (eight >> at & 0xFF) != ('.' ^ '0')) return false;
      const uint64_t behind = ~uint64_t{0xFF} << at;
      eight = (eight & behind) | (eight << 8 & ~behind);
      power = powers[at / 8];
    }
    number = value_of(eight) / power;  // both exact, so this is the nearest double
    return true;
  }

 private:
  static constexpr uint64_t all(unsigned char byte) { return byte * uint64_t{0x0101010101010101}; }

  // The last character in the highest byte, nothing before the first, '0' taken away from each:
  // so that digits, and what is not there, are their values, and all else is above nine.
  static uint64_t digits_of(std::string_view text) {
    const size_t n = text.size();
    const size_t room = 8 * (8 - n);
    const auto byte = [&](size_t i) {
      return uint64_t{static_cast<unsigned char>(text[i])} << 8 * i;
    };
    uint64_t bytes = 0;
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    if (n >= 4) [[likely]] {  // two halves that overlap
      uint32_t first, last;
      std::memcpy(&first, text.data(), 4);
      std::memcpy(&last, text.data() + n - 4, 4);
      bytes = uint64_t{first} << room | uint64_t{last} << 32;
    } else {
      bytes = (byte(0) | byte(n / 2) | byte(n - 1)) << room;
    }
#else
    for (size_t i = 0; i < n; ++i) bytes |= byte(i);
    bytes <<= room;
#endif
    return bytes ^ all('0') << room;
  }

  // The highest bit of each byte that is no digit; where there are several, perhaps of more.
  static uint64_t above_nine(uint64_t eight) {
    return ((eight + all(0x80 - 10)) | eight) & all(0x80);
  }

  // Pairs of digits, then pairs of pairs, then all of them.
  static uint32_t value_of(uint64_t eight) {
    eight = eight * 10 + (eight >> 8);
    constexpr uint64_t pairs = 0x000000FF000000FF;
    eight = (eight & pairs) * (100 + (uint64_t{1000000} << 32)) +
            (eight >> 16 & pairs) * (1 + (uint64_t{10000} << 32));
    return static_cast<uint32_t>(eight >> 32);
  }
};
