// What a synced file is held against before it is believed.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace cfg {

uint64_t checksum(std::string_view bytes);  // XXH3

// Length of the data, and checksums of data and header, of a file's last two generations: the side
// file FILE.sum, which is written before the file is. Whichever of the two generations the file
// then is, after a crash between the two, agrees with it. Of each generation there are two headers,
// as a header is written over in place after its sum is.
//
// A text of two lines, whose length is always the same, so that it can be written over in place:
//   length 00000000000000001234 data 0123456789abcdef header 0123456789abcdef 0123456789abcdef
struct file_sums {
  struct Generation {
    uint64_t length = 0;
    uint64_t data = 0;
    uint64_t header = 0, header_before = 0;

    bool has_header(uint64_t sum) const { return sum == header || sum == header_before; }
  };
  Generation newest, before;

  std::string text() const;
  static constexpr size_t SIZE = 2 * 91;
  // False for any other text.
  static bool read(std::string_view text, file_sums& sums);

  // The generation of that length and header; null when it is neither.
  Generation* find(uint64_t length, std::string_view header);
};

}  // namespace cfg
