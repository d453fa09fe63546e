// The 8-bit string of the installation's interfaces.
#pragma once

#include <cstddef>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>

#include <strings/Export.h>

// An owned run of bytes with a length; NUL bytes may stand inside, and data() is
// NUL-terminated. The empty string is also "null": isNull() is the test for
// "nothing found". Copies own their bytes, so a string may be used on any thread
// as long as no other thread changes that same object.
//
// A null `const char*` makes the empty string. The integer literal 0 and nullptr are
// refused by the compiler: GetValue("x", 0) must never mean a null default text.
//
// It compares with every kind of text, and becomes a std::string or, where it outlives the
// statement, a std::string_view. Of a temporary, str() gives the text itself and data() holds
// to the end of the statement.
class HALVORIA_API RWCString {
 public:
  template <class T>
  static constexpr bool is_text =
      std::is_convertible_v<const T&, std::string_view> && !std::is_null_pointer_v<T>;
  // One of the two is an RWCString, the other any text.
  template <class A, class B>
  using IfTexts =
      std::enable_if_t<is_text<A> && is_text<B> &&
                       std::disjunction_v<std::is_same<A, RWCString>, std::is_same<B, RWCString>>>;
  // Any text, a temporary too, for the length of a call.
  struct Text {
    template <class T, class = std::enable_if_t<is_text<T>>>
    Text(const T& text) : view(text) {}
    std::string_view view;
  };

  enum caseCompare { exact, ignoreCase };  // ignoreCase folds ASCII letters only
  static constexpr size_t npos = std::string::npos;

  RWCString() = default;
  RWCString(const char* text) : m_text(text ? text : "") {}
  RWCString(const char* bytes, size_t length) : m_text(bytes, length) {}
  RWCString(std::string text) noexcept : m_text(std::move(text)) {}
  RWCString(std::string_view text) : m_text(text) {}
  // The first `length` of fifteen bytes. All are copied: the processor need not know how many
  // it is about, which is worth more than the bytes spared.
  static RWCString OfFifteen(const char* bytes, size_t length) {
    return RWCString(bytes, length, Fifteen());
  }
  RWCString(std::nullptr_t) = delete;
  template <class T, std::enable_if_t<std::is_integral_v<T> || std::is_enum_v<T>, int> = 0>
  RWCString(T) = delete;

  bool isNull() const { return m_text.empty(); }
  bool empty() const { return m_text.empty(); }
  size_t length() const { return m_text.size(); }
  const char* data() const { return m_text.c_str(); }
  std::string_view view() const& { return m_text; }
  std::string_view view() const&& = delete;
  operator std::string_view() const& { return m_text; }
  operator std::string_view() const&& = delete;
  const std::string& str() const& { return m_text; }
  std::string str() && { return std::move(m_text); }
  operator std::string() const& { return m_text; }
  operator std::string() && { return std::move(m_text); }

  char operator[](size_t i) const { return m_text[i]; }
  char& operator[](size_t i) { return m_text[i]; }
  char operator()(size_t i) const { return m_text[i]; }

  // Below, equal to or above zero, as memcmp over the bytes.
  int compareTo(const RWCString& other, caseCompare how = exact) const;
  // Position of the first match at or after `from`, npos when there is none.
  size_t index(Text pattern, size_t from = 0) const { return m_text.find(pattern.view, from); }
  size_t first(char c, size_t from = 0) const { return m_text.find(c, from); }
  size_t last(char c) const { return m_text.rfind(c); }
  // The bytes from `from`, at most `count` of them; empty beyond the end.
  RWCString subString(size_t from, size_t count = npos) const;

  RWCString& append(Text text) {
    m_text.append(text.view);
    return *this;
  }
  RWCString& operator+=(Text text) { return append(text); }
  RWCString& operator+=(char c) {
    m_text.push_back(c);
    return *this;
  }
  RWCString& replace(size_t from, size_t count, Text by) {
    m_text.replace(from, count, by.view);
    return *this;
  }
  RWCString& remove(size_t from, size_t count = npos) {
    m_text.erase(from, count);
    return *this;
  }
  void clear() { m_text.clear(); }
  void reserve(size_t bytes) { m_text.reserve(bytes); }
  void toLower();  // ASCII letters only

  template <class A, class B, class = IfTexts<A, B>>
  friend bool operator==(const A& a, const B& b) {
    return std::string_view(a) == std::string_view(b);
  }
  template <class A, class B, class = IfTexts<A, B>>
  friend bool operator!=(const A& a, const B& b) {
    return std::string_view(a) != std::string_view(b);
  }
  template <class A, class B, class = IfTexts<A, B>>
  friend bool operator<(const A& a, const B& b) {
    return std::string_view(a) < std::string_view(b);
  }
  template <class A, class B, class = IfTexts<A, B>>
  friend bool operator>(const A& a, const B& b) {
    return std::string_view(a) > std::string_view(b);
  }
  template <class A, class B, class = IfTexts<A, B>>
  friend bool operator<=(const A& a, const B& b) {
    return std::string_view(a) <= std::string_view(b);
  }
  template <class A, class B, class = IfTexts<A, B>>
  friend bool operator>=(const A& a, const B& b) {
    return std::string_view(a) >= std::string_view(b);
  }
  friend RWCString operator+(RWCString a, const RWCString& b) { return std::move(a += b.view()); }
  friend RWCString operator+(RWCString a, const char* b) { return std::move(a += b); }
  friend RWCString operator+(RWCString a, char b) { return std::move(a += b); }
  friend RWCString operator+(const char* a, const RWCString& b) {
    return std::move(RWCString(a) += b.view());
  }
  friend std::ostream& operator<<(std::ostream& out, const RWCString& text) {
    return out << text.view();
  }

 private:
  struct Fifteen {};
  RWCString(const char* bytes, size_t length, Fifteen) : m_text(bytes, 15) { m_text.erase(length); }

  std::string m_text;
};

template <>
struct std::hash<RWCString> {
  size_t operator()(const RWCString& text) const {
    return std::hash<std::string_view>()(text.view());
  }
};
