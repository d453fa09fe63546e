// The least that lower-casing a path can cost: what a caller would write by hand for ASCII.
#pragma once

#include <cstddef>
#include <cstring>

#include <emmintrin.h>

namespace bench {

// Copies with A to Z changed to a to z, and looks in the same pass for `<` and for bytes above
// 0x7F, which need more than that.
struct lower_sse2 {
  static constexpr const char* name = "SSE2 copy, lower-casing";

  bool has_mark, has_high;

  lower_sse2(const char* from, char* to, size_t size) {
    if (size < 16) {
      char in[16] = {}, out[16];
      std::memcpy(in, from, size);
      block(in, out);
      std::memcpy(to, out, size);
    } else {
      for (size_t at = 0; at + 16 <= size; at += 16) block(from + at, to + at);
      if (size % 16) block(from + size - 16, to + size - 16);
    }
    has_mark = _mm_movemask_epi8(m_marks) != 0;
    has_high = _mm_movemask_epi8(m_all) != 0;
  }

 private:
  void block(const char* from, char* to) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    const __m128i shifted = _mm_add_epi8(v, _mm_set1_epi8(static_cast<char>(0x80 - 'A')));
    const __m128i capital = _mm_cmplt_epi8(shifted, _mm_set1_epi8(static_cast<char>(-128 + 26)));
    m_all = _mm_or_si128(m_all, v);
    m_marks = _mm_or_si128(m_marks, _mm_cmpeq_epi8(v, _mm_set1_epi8('<')));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to),
                     _mm_or_si128(v, _mm_and_si128(capital, _mm_set1_epi8(0x20))));
  }

  __m128i m_all = _mm_setzero_si128(), m_marks = _mm_setzero_si128();
};

}  // namespace bench
