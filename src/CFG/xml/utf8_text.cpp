#include <CFG/xml/utf8_text.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace cfg {
namespace {

// Copies units below 0x80 from the front of a text, 8 at a time: how many.
size_t copy_ascii(const char16_t* units, size_t count, char* to) {
  size_t done = 0;
#if defined(__SSE2__)
  const __m128i above = _mm_set1_epi16(static_cast<short>(0xFF80));
  for (; done + 8 <= count; done += 8) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(units + done));
    const __m128i is_ascii = _mm_cmpeq_epi16(_mm_and_si128(v, above), _mm_setzero_si128());
    if (_mm_movemask_epi8(is_ascii) != 0xFFFF) break;
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to + done), _mm_packus_epi16(v, v));
  }
#endif
  for (; done < count && units[done] < 0x80; ++done) to[done] = static_cast<char>(units[done]);
  return done;
}

bool is_high(char16_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool is_low(char16_t unit) { return unit >= 0xDC00 && unit < 0xE000; }

}  // namespace

void utf8_text::append(const char16_t* units, size_t count) {
  make_room(3 * (count + 1));
  char* to = m_bytes.get() + m_size;
  for (size_t at = 0; at < count; ++at) {
    if (!m_high) {
      const size_t copied = copy_ascii(units + at, count - at, to);
      to += copied;
      at += copied;
      if (at == count) break;
    }
    to = put_unit(to, units[at]);
  }
  m_size = static_cast<size_t>(to - m_bytes.get());
}

// Half a pair without the other half becomes U+FFFD.
char* utf8_text::put_unit(char* to, char16_t unit) {
  const auto put = [&](unsigned bits) { *to++ = static_cast<char>(bits); };
  const auto put3 = [&](unsigned point) {
    put(0xE0 | point >> 12);
    put(0x80 | (point >> 6 & 0x3F));
    put(0x80 | (point & 0x3F));
  };
  if (m_high && is_low(unit)) {
    const unsigned point = 0x10000u + ((m_high & 0x3FFu) << 10) + (unit & 0x3FFu);
    put(0xF0 | point >> 18);
    put(0x80 | (point >> 12 & 0x3F));
    put(0x80 | (point >> 6 & 0x3F));
    put(0x80 | (point & 0x3F));
    m_high = 0;
    return to;
  }
  if (m_high) put3(0xFFFD);
  m_high = is_high(unit) ? unit : 0;
  if (m_high) return to;
  if (unit < 0x80) {
    put(unit);
  } else if (unit < 0x800) {
    put(0xC0u | unit >> 6);
    put(0x80 | (unit & 0x3F));
  } else {
    put3(is_low(unit) ? 0xFFFD : unit);
  }
  return to;
}

void utf8_text::make_room(size_t more) {
  if (m_room - m_size >= more) return;
  const size_t room = std::max(m_size + more, m_room + m_room / 2);
  std::unique_ptr<char[]> bytes(new char[room]);
  if (m_size) std::memcpy(bytes.get(), m_bytes.get(), m_size);
  m_bytes = std::move(bytes);
  m_room = room;
}

}  // namespace cfg
