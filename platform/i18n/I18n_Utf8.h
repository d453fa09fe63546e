// UTF-8: the check, and the way to UTF-16 and back.
// Any thread may call any of these. No length is too long.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <strings/Export.h>
#include <strings/RWCString.h>

// True when `text` is well-formed UTF-8 (no overlong forms, no surrogates, nothing cut
// short). Otherwise `bad_offset`, where given, gets the position of the first byte that
// is part of no character; it is left alone when the answer is true.
HALVORIA_API bool I18n_IsValidUtf8(std::string_view text, size_t* bad_offset = nullptr);

class HALVORIA_API I18n_Utf8 {
 public:
  // A byte that is part of no character becomes the lone surrogate U+DC80..U+DCFF, and
  // FromUtf16 turns that back into the byte, so every byte string survives the trip; the
  // same rule as RWWString's. Any other lone surrogate becomes U+FFFD.
  static std::u16string ToUtf16(std::string_view text);
  static RWCString FromUtf16(std::u16string_view text);
};
