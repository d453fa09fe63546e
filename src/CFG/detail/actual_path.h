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
  explicit actual_path(std::string_view path) {
    // In lower case while it is looked at: that costs no more, and what needs no other change
    // is ready then.
    const bool is_short = path.size() <= sizeof m_short;
    const unsigned kinds = is_short ? copy_lower(path, m_short) : scan_for_change(path);
    m_view = {kinds && is_short ? m_short : path.data(), path.size()};
    if (kinds & ~(is_short ? CAPITAL : 0u)) change(path, kinds);
  }
  actual_path(const actual_path&) = delete;
  actual_path& operator=(const actual_path&) = delete;

  std::string_view view() const { return m_view; }
  operator std::string_view() const { return m_view; }
  bool empty() const { return m_view.empty(); }
  RWCString copy() const { return RWCString(m_view); }

 private:
  void change(std::string_view path, unsigned kinds);

  std::string_view m_view;
  RWCString m_long;
  char m_short[256];
};

// While one lives, the paths of its thread are actual ones already: nothing in them is taken for a
// placeholder, whichever operations they pass through. For who has replaced what its caller gave
// and goes on with names that are stored, of which one may be `<x>`.
class stored_paths {
 public:
  stored_paths();
  ~stored_paths();
  stored_paths(const stored_paths&) = delete;
  stored_paths& operator=(const stored_paths&) = delete;

 private:
  const bool m_before;
};

// An actual path for operations that take a string: the caller's own when the path needs no change.
class actual_string {
 public:
  explicit actual_string(const RWCString& path) : m_text(&path) {
    const actual_path actual(path);
    if (actual.view().data() == path.data()) return;
    m_changed = actual.copy();
    m_text = &m_changed;
  }
  actual_string(const actual_string&) = delete;
  actual_string& operator=(const actual_string&) = delete;

  operator const RWCString&() const { return *m_text; }
  const RWCString& text() const { return *m_text; }
  bool empty() const { return m_text->isNull(); }

 private:
  RWCString m_changed;
  const RWCString* m_text;
};

// `text` with its placeholders replaced up to the first whose property is not set; what was
// put in is not searched again.
std::string replace_placeholders(std::string_view text);
// Lower-cases a text: A to Z byte by byte, a text with letters beyond ASCII as a whole.
void to_lower(std::string& text);
// Whether that changes a name; `lowered` is what it becomes then.
bool is_lowered(std::string_view name, std::string& lowered);

}  // namespace cfg
