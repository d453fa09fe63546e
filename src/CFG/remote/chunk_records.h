// The records of a streamed tree.
#pragma once

#include <cstring>
#include <string_view>

namespace cfg {

// Takes one chunk apart: records of two texts each, a path and a value, that end in a NUL and
// stand back to back. The texts are parts of the chunk.
class chunk_records {
 public:
  explicit chunk_records(std::string_view chunk) : m_rest(chunk) {}

  // False at the end of the chunk, and when it ends within the record.
  bool next(std::string_view& path, std::string_view& value) {
    return !m_rest.empty() && take(path) && take(value);
  }
  // Whether the chunk ended within a record.
  bool is_cut() const { return m_is_cut; }

 private:
  bool take(std::string_view& text) {
    const void* end = m_rest.empty() ? nullptr : std::memchr(m_rest.data(), '\0', m_rest.size());
    if (!end) {
      m_is_cut = true;
      m_rest = {};
      return false;
    }
    text = m_rest.substr(0, static_cast<size_t>(static_cast<const char*>(end) - m_rest.data()));
    m_rest.remove_prefix(text.size() + 1);
    return true;
  }

  std::string_view m_rest;
  bool m_is_cut = false;
};

}  // namespace cfg
