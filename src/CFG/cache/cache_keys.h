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

}  // namespace cfg
