// A path as it is looked up: placeholders replaced, in lower case.
#pragma once

#include <string>
#include <string_view>

#include <CFG/detail/byte_scan.h>
#include <strings/RWCString.h>

namespace cfg {

// Made from the path that a caller gave. A path that needs no change is not copied: then
// this is a view of the caller's text, which must outlive it. Otherwise the text is in
// here, for most paths without an allocation.
class actual_path {
 public:
  explicit actual_path(std::string_view path) : m_view(path) {
    if (const unsigned kinds = scan_for_change(path)) change(kinds);
  }
  actual_path(const actual_path&) = delete;
  actual_path& operator=(const actual_path&) = delete;

  std::string_view view() const { return m_view; }
  operator std::string_view() const { return m_view; }
  bool empty() const { return m_view.empty(); }
  RWCString copy() const { return RWCString(m_view); }

 private:
  void change(unsigned kinds);

  std::string_view m_view;
  std::string m_long;
  char m_short[256];  // not initialised: most paths never use it
};

// `text` with its placeholders replaced up to the first whose property is not set; what was
// put in is not searched again.
std::string replace_placeholders(std::string_view text);
// Lower-cases a text: A to Z byte by byte, a text with letters beyond ASCII as a whole.
void to_lower(std::string& text);

}  // namespace cfg
