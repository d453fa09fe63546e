// Key names, each text stored once in the process.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

#include <strings/Export.h>

// 64-bit hash of a few bytes: eight at a time, folded by a 64x64 multiplication. Names
// are short, so the ends are read with two overlapping loads instead of a loop.
inline uint64_t Tree_HashText(std::string_view text) {
  const auto fold = [](uint64_t a, uint64_t b) {
#ifdef __SIZEOF_INT128__
    __extension__ using wide = unsigned __int128;
    const wide product = static_cast<wide>(a) * b;
    return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
#else
    const uint64_t x = (a ^ (a >> 32)) * b;
    return x ^ (x >> 29);
#endif
  };
  const auto load8 = [](const char* p) {
    uint64_t v;
    std::memcpy(&v, p, 8);
    return v;
  };
  const auto load4 = [](const char* p) {
    uint32_t v;
    std::memcpy(&v, p, 4);
    return uint64_t{v};
  };
  const char* p = text.data();
  size_t n = text.size();
  uint64_t hash = 0x9e3779b97f4a7c15u ^ n;
  for (; n > 8; p += 8, n -= 8) hash = fold(hash ^ load8(p), 0xa0761d6478bd642fu);
  uint64_t rest = 0;
  if (n >= 4) {
    rest = load4(p) << 32 | load4(p + n - 4);
  } else if (n > 0) {
    const auto byte = [&](size_t i) { return uint64_t{static_cast<unsigned char>(p[i])}; };
    rest = byte(0) << 16 | byte(n / 2) << 8 | byte(n - 1);
  }
  return fold(hash ^ rest, 0xe7037ed1a0b428dbu);
}

// One counted reference to an interned text. A tree of a million nodes holds some
// twenty thousand distinct names; equal names are one pointer. Any thread may make,
// copy and drop names.
class HALVORIA_API Tree_Name {
 public:
  explicit Tree_Name(std::string_view text);
  Tree_Name(const Tree_Name& other) : m_text(other.m_text) {
    m_text->count.fetch_add(1, std::memory_order_relaxed);
  }
  Tree_Name(Tree_Name&& other) noexcept : m_text(std::exchange(other.m_text, nullptr)) {}
  Tree_Name& operator=(Tree_Name other) noexcept { return std::swap(m_text, other.m_text), *this; }
  ~Tree_Name() {
    if (m_text) drop();
  }

  std::string_view view() const { return m_text->view(); }
  // The lower half of Tree_HashText, what child lists are searched by.
  uint32_t hash() const { return m_text->hash; }
  static uint32_t HashOf(std::string_view text) {
    return static_cast<uint32_t>(Tree_HashText(text));
  }

  friend bool operator==(const Tree_Name& a, const Tree_Name& b) { return a.m_text == b.m_text; }

  struct Text {  // the bytes stand right behind
    std::atomic<uint32_t> count;
    uint32_t hash;
    uint64_t length;
    std::string_view view() const { return {reinterpret_cast<const char*>(this + 1), length}; }
  };

 private:
  void drop();

  Text* m_text;
};
