// Walks a byte string that is UTF-8 for the most part. For this library's sources only.
#pragma once

#include <algorithm>
#include <string_view>

#include <i18n/I18n_Utf8.h>

// Calls valid(run) for each run of well-formed UTF-8 and stray(byte) for each byte that
// is part of no character, in their order. Runs are cut between characters to a length
// that ICU's 32-bit lengths can hold, whatever the conversion makes of them.
template <class Valid, class Stray>
void I18n_ForEachRun(std::string_view text, Valid valid, Stray stray) {
  constexpr size_t kLongestRun = size_t{1} << 28;
  while (!text.empty()) {
    size_t length = std::min(text.size(), kLongestRun);
    I18n_IsValidUtf8(text.substr(0, length), &length);
    if (length) {
      valid(text.substr(0, length));
    } else {
      stray(text[length++]);
    }
    text.remove_prefix(length);
  }
}
