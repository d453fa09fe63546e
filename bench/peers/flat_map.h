// Every path in one hash table.
#pragma once

#include <string>
#include <string_view>

#include <absl/container/flat_hash_map.h>

#include <common/installation.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace bench {

inline void lower_scalar(const std::string& text, std::string& to) {
  to.assign(text);
  for (char& c : to) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  }
}

// Blocks of 16 bytes, the last one over the end of the one before.
inline void lower_in_blocks(const std::string& text, std::string& to) {
#if defined(__SSE2__)
  if (text.size() >= 16) {
    to.resize(text.size());
    const auto block = [&](size_t at) {
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + at));
      const __m128i shifted = _mm_add_epi8(v, _mm_set1_epi8(static_cast<char>(0x80 - 'A')));
      const __m128i capital = _mm_cmplt_epi8(shifted, _mm_set1_epi8(static_cast<char>(-128 + 26)));
      const __m128i lower = _mm_or_si128(v, _mm_and_si128(capital, _mm_set1_epi8(0x20)));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(to.data() + at), lower);
    };
    for (size_t at = 0; at + 16 <= text.size(); at += 16) block(at);
    block(text.size() - 16);
    return;
  }
#endif
  lower_scalar(text, to);
}

// The leanest way to answer a read: no tree, no operations but this one.
class flat_map {
 public:
  static constexpr const char* name = "absl::flat_hash_map";

  // The first `cut` bytes of each path are left out.
  explicit flat_map(const records& all, size_t cut = 0) {
    m_map.reserve(all.size());
    for (const record& r : all) m_map.emplace(r.path.substr(std::min(cut, r.path.size())), r.value);
  }

  // What a caller gets: the path in lower case, looked up, a text of the caller's own.
  template <auto Lower = lower_scalar>
  std::string read(const std::string& path, std::string& lowered) const {
    Lower(path, lowered);
    const auto found = m_map.find(lowered);
    return found == m_map.end() ? std::string() : found->second;
  }

 private:
  absl::flat_hash_map<std::string, std::string> m_map;
};

}  // namespace bench
