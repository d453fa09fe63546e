#include <CFG/detail/byte_scan.h>

#include <array>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace cfg {
namespace {

constexpr std::array<uint8_t, 256> kinds_of_bytes() {
  std::array<uint8_t, 256> kinds{};
  for (int c = 0; c < 256; ++c) {
    if (c == '<') kinds[c] |= PLACEHOLDER;
    if (c >= 'A' && c <= 'Z') kinds[c] |= CAPITAL;
    if (c > 0x7F) kinds[c] |= HIGH_BYTE;
    if (c <= 0x20 || c == 0x7F || c == '%' || c == '\'') kinds[c] |= SUSPECT;
  }
  return kinds;
}
constexpr auto kind_table = kinds_of_bytes();

constexpr char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

constexpr unsigned kinds_to_change = PLACEHOLDER | CAPITAL | HIGH_BYTE;

#if defined(__SSE2__)

__m128i bytes_of(char c) { return _mm_set1_epi8(c); }

// Shifted so that A is the lowest signed byte, the capitals are the 26 lowest.
__m128i capitals(__m128i v) {
  const __m128i shifted = _mm_sub_epi8(v, bytes_of(static_cast<char>('A' + 0x80)));
  return _mm_cmplt_epi8(shifted, bytes_of(static_cast<char>(-128 + 26)));
}

__m128i load16(const char* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }

// Less than 16 bytes, at least one, as a block. A byte may stand in it more than once; no
// byte stands in it that is not in the text.
__m128i load_short(const char* p, size_t n) {
  uint64_t low, high;
  if (n >= 8) {
    std::memcpy(&low, p, 8);
    std::memcpy(&high, p + n - 8, 8);
    return _mm_set_epi64x(static_cast<long long>(high), static_cast<long long>(low));
  }
  if (n >= 4) {
    int first, last;
    std::memcpy(&first, p, 4);
    std::memcpy(&last, p + n - 4, 4);
    return _mm_set_epi32(first, last, first, last);
  }
  const char a = p[0], b = p[n / 2], c = p[n - 1];
  return _mm_set_epi8(a, b, c, a, a, b, c, a, a, b, c, a, a, b, c, a);
}

// Calls `see` with blocks that together cover the text; the last one overlaps the one before.
template <class See>
void for_each_block(std::string_view text, See&& see) {
  const char* p = text.data();
  const size_t n = text.size();
  if (n < 16) {
    if (n) see(load_short(p, n));
    return;
  }
  size_t at = 0;
  for (; at + 16 <= n; at += 16) see(load16(p + at));
  if (at < n) see(load16(p + n - 16));
}

// What was seen in any block: capitals, and bytes that make a text need more than lower case,
// told apart afterwards since they are rare.
struct seen_kinds {
  __m128i upper = _mm_setzero_si128(), others = upper;  // others: the highest bit of each byte

  // Returns the block in lower case.
  __m128i add(__m128i v) {
    const __m128i upper_here = capitals(v);
    upper = _mm_or_si128(upper, upper_here);
    others = _mm_or_si128(others, _mm_or_si128(v, _mm_cmpeq_epi8(v, bytes_of('<'))));
    return _mm_or_si128(v, _mm_and_si128(upper_here, bytes_of(0x20)));
  }
  unsigned kinds(std::string_view text) const {
    unsigned found = _mm_movemask_epi8(upper) ? unsigned{CAPITAL} : 0;
    if (!_mm_movemask_epi8(others)) return found;
    if (text.find('<') != text.npos) found |= PLACEHOLDER;
    if (first_high_byte(text, 0) != text.npos) found |= HIGH_BYTE;
    return found;
  }
};

#endif

}  // namespace

unsigned scan_bytewise(std::string_view text, unsigned wanted) {
  unsigned kinds = 0;
  for (const char c : text) kinds |= kind_table[static_cast<unsigned char>(c)];
  return kinds & wanted;
}

unsigned copy_lower_bytewise(std::string_view text, char* to) {
  const unsigned kinds = scan_bytewise(text, kinds_to_change);
  for (const char c : text) *to++ = lower(c);
  return kinds;
}

size_t first_high_byte(std::string_view text, size_t from) {
  for (uint64_t eight; from + sizeof eight <= text.size(); from += sizeof eight) {
    std::memcpy(&eight, text.data() + from, sizeof eight);
    if (eight & 0x8080808080808080u) break;
  }
  while (from < text.size() && !(text[from] & 0x80)) ++from;
  return from < text.size() ? from : text.npos;
}

#if defined(__SSE2__)

unsigned scan_for_change(std::string_view text) {
  seen_kinds seen;
  for_each_block(text, [&](__m128i v) { seen.add(v); });
  return seen.kinds(text);
}

bool has_suspect_byte(std::string_view text) {
  __m128i found = _mm_setzero_si128();
  for_each_block(text, [&](__m128i v) {
    const __m128i low = _mm_cmpeq_epi8(_mm_min_epu8(v, bytes_of(0x20)), v);
    const __m128i del = _mm_cmpeq_epi8(v, bytes_of(0x7F));
    const __m128i marks =
        _mm_or_si128(_mm_cmpeq_epi8(v, bytes_of('%')), _mm_cmpeq_epi8(v, bytes_of('\'')));
    found = _mm_or_si128(found, _mm_or_si128(low, _mm_or_si128(del, marks)));
  });
  return _mm_movemask_epi8(found) != 0;
}

unsigned copy_lower(std::string_view text, char* to) {
  const char* const p = text.data();
  const size_t n = text.size();
  if (n < 8) return copy_lower_bytewise(text, to);
  seen_kinds seen;
  if (n < 16) {
    const __m128i both_ends = seen.add(load_short(p, n));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to), both_ends);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to + n - 8), _mm_srli_si128(both_ends, 8));
    return seen.kinds(text);
  }
  const auto store = [&](size_t at, __m128i v) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + at), v);
  };
  const __m128i last = load16(p + n - 16);  // before it is overwritten in place
  for (size_t at = 0; at + 16 < n; at += 16) store(at, seen.add(load16(p + at)));
  store(n - 16, seen.add(last));
  return seen.kinds(text);
}

#else

unsigned scan_for_change(std::string_view text) { return scan_bytewise(text, kinds_to_change); }
bool has_suspect_byte(std::string_view text) { return scan_bytewise(text, SUSPECT) != 0; }
unsigned copy_lower(std::string_view text, char* to) { return copy_lower_bytewise(text, to); }

#endif

}  // namespace cfg
