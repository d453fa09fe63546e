// A path split at its backslashes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <strings/Export.h>
#include <strings/RWCString.h>

// Takes the components off the front of a path one by one, without copying. Empty
// components (leading, doubled or trailing backslashes) are passed over. The text
// must outlive the walk.
class Tree_PathWalk {
 public:
  explicit Tree_PathWalk(std::string_view path)
      : m_at(path.data()), m_end(path.data() + path.size()), m_window(m_at) {
    scan();
  }

  // Gives the next component; FALSE at the end, with `component` left alone.
  bool Next(std::string_view& component) {
    while (m_at != m_end) {
      const char* const start = m_at;
      const char* const cut = next_cut();
      m_at = cut == m_end ? m_end : cut + 1;
      if (cut == start) continue;
      component = {start, static_cast<size_t>(cut - start)};
      return true;
    }
    return false;
  }
  std::string_view Rest() const { return {m_at, static_cast<size_t>(m_end - m_at)}; }

 private:
  static constexpr size_t kWindow = 64;

  const char* next_cut() {
    while (!m_cuts) {
      if (static_cast<size_t>(m_end - m_window) <= kWindow) return m_end;
      m_window += kWindow;
      scan();
    }
    const char* cut = m_window;
#if defined(__GNUC__)
    cut += __builtin_ctzll(m_cuts);
#else
    for (uint64_t bits = m_cuts; !(bits & 1); bits >>= 1) ++cut;
#endif
    m_cuts &= m_cuts - 1;
    return cut;
  }

  // Notes the backslashes of the next 64 bytes: most paths are split in one pass.
  void scan() {
    const size_t rest = static_cast<size_t>(m_end - m_window);
    const size_t size = rest < kWindow ? rest : kWindow;
    m_cuts = 0;
    size_t i = 0;
#ifdef __SSE2__
    const auto sixteen = [this](size_t at) {
      const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(m_window + at));
      const int cuts = _mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\')));
      return static_cast<uint64_t>(static_cast<unsigned>(cuts)) << at;
    };
    for (; i + 16 <= size; i += 16) m_cuts |= sixteen(i);
    if (i < size && size > 16) {  // the last sixteen, some of them a second time
      m_cuts |= sixteen(size - 16);
      i = size;
    }
#endif
    for (; i < size; ++i) m_cuts |= uint64_t{m_window[i] == '\\'} << i;
  }

  const char* m_at;
  const char* m_end;
  const char* m_window;
  uint64_t m_cuts;  // a bit for each backslash of the window that is not behind us
};

// A parsed path, relative to the node it is used on.
class HALVORIA_API Tree_Path {
 public:
  explicit Tree_Path(const RWCString& path) : m_text(path) {}

  // The first component; empty for the empty path.
  RWCString GetRoot() const;
  // TRUE when the path has a single component.
  int IsOnlyRoot() const;
  const RWCString& GetText() const { return m_text; }
  // Whether a walk along the path passes over something: the path is empty, or has a
  // backslash at an end or beside another one.
  static bool HasEmptyComponent(std::string_view path) {
    return path.empty() || path.front() == '\\' || path.back() == '\\' ||
           path.find("\\\\") != path.npos;
  }

 private:
  RWCString m_text;
};
