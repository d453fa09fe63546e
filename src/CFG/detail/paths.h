// Joining and cutting paths.
#pragma once

#include <string_view>

#include <strings/RWCString.h>

namespace cfg {

// `parent`, a backslash and `child`; one of them alone when the other is empty.
inline RWCString join(std::string_view parent, std::string_view child) {
  RWCString path;
  path.reserve(parent.size() + 1 + child.size());
  path.append(parent);
  if (!parent.empty() && !child.empty()) path += '\\';
  return std::move(path.append(child));
}

// A path cut at its last backslash. Without one, all of it is the name.
struct split_path {
  explicit split_path(std::string_view path) : name(path) {
    const size_t cut = path.rfind('\\');
    if (cut == path.npos) return;
    parent = path.substr(0, cut);
    name = path.substr(cut + 1);
    has_parent = true;
  }
  std::string_view parent;
  std::string_view name;
  bool has_parent = false;
};

// Whether `key`, unless it is empty, stands somewhere in `path` with a backslash behind it.
inline bool has_key_inside(std::string_view path, std::string_view key) {
  if (key.empty()) return false;
  for (size_t at = path.find(key); at != std::string_view::npos; at = path.find(key, at + 1)) {
    const size_t end = at + key.size();
    if (end < path.size() && path[end] == '\\') return true;
  }
  return false;
}

}  // namespace cfg
