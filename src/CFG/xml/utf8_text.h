// UTF-8 text gathered from pieces of UTF-16.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

namespace cfg {

// Pieces may be cut anywhere, between the halves of a surrogate pair, too. The room that
// the text takes is kept when it is cleared.
class utf8_text {
 public:
  void append(const char16_t* units, size_t count);
  void clear() {
    m_size = 0;
    m_high = 0;
  }
  // Valid until the text is changed.
  std::string_view view() const { return {m_bytes.get(), m_size}; }

 private:
  void make_room(size_t more);
  char* put_unit(char* to, char16_t unit);

  std::unique_ptr<char[]> m_bytes;
  size_t m_size = 0;
  size_t m_room = 0;
  char16_t m_high = 0;  // the first half of a pair whose second half has not come yet
};

}  // namespace cfg
