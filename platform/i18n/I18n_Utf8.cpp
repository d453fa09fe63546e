#include <i18n/I18n_Utf8.h>

#include <unicode/ustring.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include <i18n/I18n_Runs.h>

namespace {

constexpr char16_t kByteEscape = 0xDC00;  // 0xDC80..0xDCFF stand for the bytes 0x80..0xFF

// The first position at or after `from` that may hold a byte above 0x7F.
size_t skip_ascii(std::string_view text, size_t from) {
  constexpr uint64_t high_bits = 0x8080808080808080u;
  uint64_t eight = 0;
  for (; from + sizeof eight <= text.size(); from += sizeof eight) {
    std::memcpy(&eight, text.data() + from, sizeof eight);
    if (eight & high_bits) break;
  }
  return from;
}

void append_utf16(std::u16string& out, std::string_view run) {
  const size_t begin = out.size();
  out.resize(begin + run.size());  // a byte makes at most one unit
  int32_t length = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strFromUTF8(out.data() + begin, static_cast<int32_t>(run.size()), &length, run.data(),
                static_cast<int32_t>(run.size()), &status);
  out.resize(begin + static_cast<size_t>(length));
}

void append_utf8(std::string& out, std::u16string_view run) {
  const size_t begin = out.size();
  out.resize(begin + 3 * run.size());  // a unit makes at most three bytes
  int32_t length = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strToUTF8WithSub(out.data() + begin, static_cast<int32_t>(3 * run.size()), &length, run.data(),
                     static_cast<int32_t>(run.size()), 0xFFFD, nullptr, &status);
  out.resize(begin + static_cast<size_t>(length));
}

bool is_escaped_byte(std::u16string_view text, size_t at) {
  const bool follows_high = at > 0 && U16_IS_LEAD(text[at - 1]);
  return text[at] >= kByteEscape + 0x80 && text[at] <= kByteEscape + 0xFF && !follows_high;
}

}  // namespace

bool I18n_IsValidUtf8(std::string_view text, size_t* bad_offset) {
  for (size_t at = skip_ascii(text, 0); at < text.size();) {
    const size_t begin = at;
    UChar32 point = 0;
    U8_NEXT(text.data(), at, text.size(), point);
    if (point < 0) {
      if (bad_offset) *bad_offset = begin;
      return false;
    }
    if (point < 0x80) at = skip_ascii(text, at);
  }
  return true;
}

std::u16string I18n_Utf8::ToUtf16(std::string_view text) {
  std::u16string out;
  I18n_ForEachRun(
      text, [&](std::string_view run) { append_utf16(out, run); },
      [&](char byte) { out.push_back(kByteEscape + static_cast<unsigned char>(byte)); });
  return out;
}

RWCString I18n_Utf8::FromUtf16(std::u16string_view text) {
  constexpr size_t kLongestRun = size_t{1} << 28;
  std::string out;
  while (!text.empty()) {
    size_t length = 0;
    const size_t longest = std::min(text.size(), kLongestRun);
    while (length < longest && !is_escaped_byte(text, length)) ++length;
    if (length == longest && length < text.size() && U16_IS_LEAD(text[length - 1])) --length;
    if (length) {
      append_utf8(out, text.substr(0, length));
    } else {
      out.push_back(static_cast<char>(text[length++] - kByteEscape));
    }
    text.remove_prefix(length);
  }
  return out;
}
