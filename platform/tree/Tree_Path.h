// A path split at its backslashes.
#pragma once

#include <string_view>

#include <strings/Export.h>
#include <strings/RWCString.h>

// Takes the components off the front of a path one by one, without copying. Empty
// components (leading, doubled or trailing backslashes) are passed over. The text
// must outlive the walk.
class Tree_PathWalk {
 public:
  explicit Tree_PathWalk(std::string_view path) : m_rest(path) {}

  // Gives the next component; FALSE at the end, with `component` left alone.
  bool Next(std::string_view& component) {
    while (!m_rest.empty()) {
      const size_t cut = m_rest.find('\\');
      const std::string_view head = m_rest.substr(0, cut);
      m_rest.remove_prefix(cut == std::string_view::npos ? m_rest.size() : cut + 1);
      if (head.empty()) continue;
      component = head;
      return true;
    }
    return false;
  }
  std::string_view Rest() const { return m_rest; }

 private:
  std::string_view m_rest;
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

 private:
  RWCString m_text;
};
