// The wide string of the installation's interfaces, used for file names.
#pragma once

#include <ostream>
#include <string>
#include <string_view>

#include <strings/Export.h>
#include <strings/RWCString.h>

// An owned run of wchar_t with a length: UTF-32 here, UTF-16 where wchar_t has 16
// bits. Wide text is turned into UTF-8 by toUTF8 before it meets printf or the file
// system; it is never handed to either as it is. Threads: as RWCString.
class HALVORIA_API RWWString {
 public:
  RWWString() = default;
  RWWString(const wchar_t* text) : m_text(text ? text : L"") {}
  RWWString(std::wstring text) noexcept : m_text(std::move(text)) {}
  RWWString(std::nullptr_t) = delete;

  // From UTF-8. A byte that is not part of valid UTF-8 becomes the lone surrogate
  // U+DC80..U+DCFF, which toUTF8 turns back into that byte: every file name of
  // the system survives the trip.
  static RWWString fromUTF8(RWCString::Text utf8);
  RWCString toUTF8() const;

  bool isNull() const { return m_text.empty(); }
  size_t length() const { return m_text.size(); }
  const wchar_t* data() const { return m_text.c_str(); }
  std::wstring_view view() const { return m_text; }
  RWWString& append(std::wstring_view text) {
    m_text.append(text);
    return *this;
  }
  RWWString& operator+=(std::wstring_view text) { return append(text); }

  friend bool operator==(const RWWString& a, const RWWString& b) { return a.m_text == b.m_text; }
  friend bool operator!=(const RWWString& a, const RWWString& b) { return !(a == b); }
  friend bool operator<(const RWWString& a, const RWWString& b) { return a.m_text < b.m_text; }
  friend RWWString operator+(RWWString a, const RWWString& b) { return std::move(a += b.view()); }
  friend std::ostream& operator<<(std::ostream& out, const RWWString& text) {
    return out << text.toUTF8();
  }

 private:
  std::wstring m_text;
};
