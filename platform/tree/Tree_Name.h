// Key names, each text stored once in the process.
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>
#include <utility>

#include <strings/Export.h>
#include <strings/RWCString.h>
#include <tree/Tree_Hash.h>

// One counted reference to an interned text. A tree of a million nodes holds some
// twenty thousand distinct names; equal names are one pointer. Any thread may make,
// copy and drop names.
class HALVORIA_API Tree_Name {
 public:
  // Throws std::length_error for a text of 4 GB or more.
  explicit Tree_Name(std::string_view text);
  Tree_Name(const Tree_Name& other) : m_text(other.m_text) { share(); }
  Tree_Name(Tree_Name&& other) noexcept : m_text(std::exchange(other.m_text, nullptr)) {}
  Tree_Name& operator=(Tree_Name other) noexcept {
    std::swap(m_text, other.m_text);
    return *this;
  }
  ~Tree_Name() {
    if (m_text) drop();
  }

  std::string_view view() const { return m_text->view(); }
  // The same as a string, which is made when it is first asked for.
  const RWCString& string() const;
  // Tree_Hash::Text of the name.
  uint64_t hash() const { return m_text->hash; }

  friend bool operator==(const Tree_Name& a, const Tree_Name& b) { return a.m_text == b.m_text; }

  struct Text {  // the bytes stand right behind
    std::atomic<uint32_t> count;
    uint32_t length;
    uint64_t hash;
    std::atomic<const RWCString*> string;  // null until asked for
    std::string_view view() const { return {reinterpret_cast<const char*>(this + 1), length}; }
  };

 private:
  void share() const;
  void drop();

  Text* m_text;
};
