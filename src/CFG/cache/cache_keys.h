// What the caches and their configuration make of paths.
#pragma once

#include <string_view>
#include <vector>

namespace cfg {

// The pieces of a list between ";", as they stand there.
inline std::vector<std::string_view> list_entries(std::string_view list) {
  std::vector<std::string_view> entries;
  for (;;) {
    const size_t end = list.find(';');
    entries.push_back(list.substr(0, end));
    if (end == std::string_view::npos) return entries;
    list.remove_prefix(end + 1);
  }
}

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
