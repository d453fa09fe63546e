#include <CFG/xml/xml_escapes.h>

#include <algorithm>
#include <array>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <i18n/I18n_Utf8.h>

namespace cfg {
namespace {

constexpr std::string_view escaped_bytes = "&<>\"'\r";

// What stands for a byte that is not copied as it is; empty for one that XML cannot hold.
constexpr std::string_view escaped_form(char c) {
  switch (c) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '"':
      return "&quot;";
    case '\'':
      return "&apos;";
    case '\r':
      return "&#13;";
    case '\n':
      return "\n";
    case '\t':
      return "\t";
    default:
      return {};
  }
}

constexpr bool is_high(char c) { return static_cast<unsigned char>(c) >= 0x80; }

constexpr std::array<bool, 256> copied_bytes() {
  std::array<bool, 256> copied{};
  for (int i = 0; i < 256; ++i) {
    const char c = static_cast<char>(i);
    const std::string_view form = escaped_form(c);
    copied[static_cast<size_t>(i)] =
        !is_high(c) && (form == std::string_view(&c, 1) || (i >= 0x20 && form.empty()));
  }
  return copied;
}
constexpr auto is_copied = copied_bytes();

// Goes over the front of a text up to the first byte that needs a closer look: how many bytes.
// Copies them to `to` on the way, or leaves it alone.
template <bool copies>
size_t over_plain(std::string_view text, char* to) {
  size_t done = 0;
#if defined(__SSE2__)
  const auto all = [](char c) { return _mm_set1_epi8(c); };
  for (; done + 16 <= text.size(); done += 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + done));
    if constexpr (copies) _mm_storeu_si128(reinterpret_cast<__m128i*>(to + done), v);
    const __m128i low_or_high = _mm_cmplt_epi8(v, all(0x20));  // as signed bytes
    const __m128i quot = _mm_cmpeq_epi8(v, all('"'));
    const __m128i amp_apos = _mm_cmpeq_epi8(_mm_or_si128(v, all(1)), all('&' | 1));
    const __m128i lt_gt = _mm_cmpeq_epi8(_mm_or_si128(v, all(2)), all('<' | 2));
    const int found = _mm_movemask_epi8(
        _mm_or_si128(_mm_or_si128(low_or_high, quot), _mm_or_si128(amp_apos, lt_gt)));
    if (found) return done + static_cast<size_t>(__builtin_ctz(static_cast<unsigned>(found)));
  }
#endif
  for (; done < text.size() && is_copied[static_cast<unsigned char>(text[done])]; ++done) {
    if constexpr (copies) to[done] = text[done];
  }
  return done;
}

// Of a run of bytes above 0x7F, how many are characters that XML holds: not U+FFFE and U+FFFF.
size_t good_characters(std::string_view run) {
  size_t good = run.size();
  I18n_IsValidUtf8(run, &good);
  run = run.substr(0, good);
  for (size_t at = 0; (at = run.find("\xEF\xBF", at)) != run.npos; at += 3) {
    if (static_cast<unsigned char>(run[at + 2]) >= 0xBE) return at;
  }
  return good;
}

size_t high_run(std::string_view text) {
  const auto is_ascii = [](char c) { return !is_high(c); };
  return static_cast<size_t>(std::find_if(text.begin(), text.end(), is_ascii) - text.begin());
}

// The byte that a form from the front of a text stands for, which is taken off; 0 for none.
char take_form(std::string_view& text) {
  for (const char c : escaped_bytes) {
    const std::string_view form = escaped_form(c);
    if (text.substr(0, form.size()) != form) continue;
    text.remove_prefix(form.size());
    return c;
  }
  return 0;
}

}  // namespace

size_t plain_length(std::string_view bytes) { return over_plain<false>(bytes, nullptr); }

size_t escape(std::string_view text, char*& to) {
  size_t at = 0;
  while (at < text.size()) {
    const size_t copied = over_plain<true>(text.substr(at), to);
    at += copied;
    to += copied;
    if (at == text.size()) break;
    if (is_high(text[at])) {
      const std::string_view run = text.substr(at, high_run(text.substr(at)));
      const size_t good = good_characters(run);
      to += run.copy(to, good);
      at += good;
      if (good < run.size()) return at;
    } else {
      const std::string_view form = escaped_form(text[at]);
      if (form.empty()) return at;
      to += form.copy(to, form.size());
      ++at;
    }
  }
  return at;
}

bool unescape(std::string_view escaped, std::string& text) {
  text.clear();
  while (!escaped.empty()) {
    size_t copied = plain_length(escaped);
    if (copied == 0 && is_high(escaped[0])) {
      copied = high_run(escaped);
      if (good_characters(escaped.substr(0, copied)) != copied) return false;
    } else if (copied == 0 && is_copied[static_cast<unsigned char>(escaped[0])]) {
      copied = 1;  // a line feed or a tab
    }
    text += escaped.substr(0, copied);
    escaped.remove_prefix(copied);
    if (copied > 0) continue;
    const char c = take_form(escaped);
    if (!c) return false;
    text += c;
  }
  return true;
}

}  // namespace cfg
