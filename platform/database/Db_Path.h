// Paths as the store knows them.
#pragma once

#include <string>
#include <string_view>

#include <strings/RWCString.h>
#include <tree/Tree_Path.h>

// Longer paths are refused: the indexes of PostgreSQL take no more.
constexpr size_t DB_PATH_BYTES = 2600;

// What keeps a row out of every store; null when nothing does. Trees are sent as texts that end
// with a NUL byte.
inline const char* Db_FaultOf(std::string_view path, std::string_view value) {
  if (path.size() > DB_PATH_BYTES) return "the path is longer than 2600 bytes";
  if (path.find('\0') != path.npos) return "the path holds a NUL byte";
  if (value.find('\0') != value.npos) return "the value holds a NUL byte";
  return nullptr;
}

// A path without empty components; the text it was made of must outlive it.
class Db_Path {
 public:
  explicit Db_Path(const RWCString& path) : m_view(path.view()) {
    if (path.isNull() || !Tree_Path::HasEmptyComponent(m_view)) return;
    Tree_PathWalk walk(path.view());
    for (std::string_view name; walk.Next(name);) {
      if (!m_own.empty()) m_own += '\\';
      m_own += name;
    }
    m_view = m_own;
  }
  Db_Path(const Db_Path&) = delete;
  Db_Path& operator=(const Db_Path&) = delete;

  operator std::string_view() const { return m_view; }
  bool empty() const { return m_view.empty(); }

 private:
  std::string m_own;
  std::string_view m_view;
};

// The rows below a key, which are together in the order of bytes: what begins with the path and
// a backslash is everything up to the path and the byte behind the backslash. Below the empty
// path is everything.
struct Db_Range {
  explicit Db_Range(std::string_view path) : from(path), to(path) {
    from += path.empty() ? "" : "\\";
    to += path.empty() ? "\xff\xff\xff\xff" : "]";
  }
  std::string from, to;
};

inline std::string_view Db_ParentOf(std::string_view path) {
  const size_t cut = path.rfind('\\');
  return cut == path.npos ? std::string_view() : path.substr(0, cut);
}
inline std::string_view Db_NameOf(std::string_view path) {
  return path.substr(path.rfind('\\') + 1);  // npos + 1 is 0
}
inline std::string Db_Join(std::string_view parent, std::string_view name) {
  std::string path(parent);
  if (!parent.empty() && !name.empty()) path += '\\';
  return path.append(name);
}
