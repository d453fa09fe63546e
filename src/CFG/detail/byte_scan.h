// What kinds of bytes a path holds, in one pass.
#pragma once

#include <string_view>

namespace cfg {

// A set of these.
enum byte_kinds : unsigned {
  PLACEHOLDER = 1,  // `<`
  CAPITAL = 2,      // A to Z
  HIGH_BYTE = 4,    // above 0x7F
  SUSPECT = 8,      // 0x00 to 0x20, 0x7F, `%`, `'`: bytes that a valid path may not have everywhere
};

// The kinds of `text` among PLACEHOLDER, CAPITAL and HIGH_BYTE.
unsigned scan_for_change(std::string_view text);
// The position of the first HIGH_BYTE at or behind `from`, npos when there is none.
size_t first_high_byte(std::string_view text, size_t from);
// Whether there is a SUSPECT byte.
bool has_suspect_byte(std::string_view text);
// Copies `text` to `to`, which has room for it, with A to Z changed to a to z, and finds the
// same kinds meanwhile. `to` may be where the text stands.
unsigned copy_lower(std::string_view text, char* to);

// The same byte by byte: what the fast forms are held against, and what processors without
// vector instructions use.
unsigned scan_bytewise(std::string_view text, unsigned wanted);
unsigned copy_lower_bytewise(std::string_view text, char* to);

}  // namespace cfg
