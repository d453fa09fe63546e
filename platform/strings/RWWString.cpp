#include <strings/RWWString.h>

#include <cstdint>

namespace {

constexpr char32_t kByteEscape = 0xDC00;  // 0xDC80..0xDCFF stand for the bytes 0x80..0xFF

// Length of the valid UTF-8 sequence at the start of `text` and its code point;
// length 0 when the first byte starts none (overlong, surrogate, cut short).
struct Sequence {
  size_t length;
  char32_t point;
};
Sequence decode(std::string_view text) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const auto tail = [&](size_t i) { return i < text.size() && (byte(i) & 0xC0) == 0x80; };
  const unsigned first = byte(0);
  if (first < 0x80) return {1, first};
  if (first >= 0xC2 && first <= 0xDF && tail(1))
    return {2, (first & 0x1Fu) << 6 | (byte(1) & 0x3Fu)};
  if ((first & 0xF0) == 0xE0 && tail(1) && tail(2)) {
    const char32_t point = (first & 0x0Fu) << 12 | (byte(1) & 0x3Fu) << 6 | (byte(2) & 0x3Fu);
    if (point >= 0x800 && (point < 0xD800 || point > 0xDFFF)) return {3, point};
  }
  if ((first & 0xF8) == 0xF0 && tail(1) && tail(2) && tail(3)) {
    const char32_t point = (first & 0x07u) << 18 | (byte(1) & 0x3Fu) << 12 |
                           (byte(2) & 0x3Fu) << 6 | (byte(3) & 0x3Fu);
    if (point >= 0x10000 && point <= 0x10FFFF) return {4, point};
  }
  return {0, 0};
}

void encode(std::string& out, char32_t point) {
  const auto put = [&](char32_t byte) { out.push_back(static_cast<char>(byte)); };
  if (point < 0x80) return put(point);
  if (point >= kByteEscape + 0x80 && point <= kByteEscape + 0xFF) return put(point - kByteEscape);
  if (point < 0x800) return put(0xC0 | point >> 6), put(0x80 | (point & 0x3F));
  if (point < 0x10000) {
    return put(0xE0 | point >> 12), put(0x80 | (point >> 6 & 0x3F)), put(0x80 | (point & 0x3F));
  }
  put(0xF0 | point >> 18), put(0x80 | (point >> 12 & 0x3F));
  put(0x80 | (point >> 6 & 0x3F)), put(0x80 | (point & 0x3F));
}

}  // namespace

RWWString RWWString::fromUTF8(RWCString::Text utf8) {
  std::string_view text = utf8.view;
  std::wstring out;
  out.reserve(text.size());
  while (!text.empty()) {
    const Sequence s = decode(text);
    const char32_t point = s.length ? s.point : kByteEscape + static_cast<unsigned char>(text[0]);
    if (sizeof(wchar_t) == 2 && point > 0xFFFF) {
      out.push_back(static_cast<wchar_t>(0xD800 + ((point - 0x10000) >> 10)));
      out.push_back(static_cast<wchar_t>(0xDC00 + ((point - 0x10000) & 0x3FF)));
    } else {
      out.push_back(static_cast<wchar_t>(point));
    }
    text.remove_prefix(s.length ? s.length : 1);
  }
  return out;
}

RWCString RWWString::toUTF8() const {
  std::string out;
  out.reserve(m_text.size());
  for (size_t i = 0; i < m_text.size(); ++i) {
    auto point = static_cast<char32_t>(m_text[i]);
    const bool high = sizeof(wchar_t) == 2 && point >= 0xD800 && point <= 0xDBFF;
    if (high && i + 1 < m_text.size()) {
      point = 0x10000 + ((point - 0xD800) << 10) + (static_cast<char32_t>(m_text[++i]) - 0xDC00);
    }
    encode(out, point > 0x10FFFF ? 0xFFFD : point);
  }
  return out;
}
