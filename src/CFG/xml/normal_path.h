// Path texts as people write them in documents.
#pragma once

#include <string>
#include <string_view>

namespace cfg {

// No path has more components than this, in documents that are read or written. The paths of
// a chain of keys take space that grows with the square of its length.
constexpr size_t max_path_depth = 4096;

// The path as the tree keeps it: components without the white space around them and without
// those that are empty then, joined by single backslashes, in lower case. The result is a
// view of `text` when that is such a path already, and of `scratch` otherwise.
std::string_view normal_path(std::string_view text, std::string& scratch);

// Whether the name of a key or value is as it is in a normal path. Takes some for others, never
// the other way round.
bool is_normal_name(std::string_view name);

// Whether a path has more than max_path_depth components. The path is normal.
bool is_too_deep(std::string_view path);

// The bytes that are taken away at both ends of a component.
constexpr bool is_space(char c) { return static_cast<unsigned char>(c) <= 0x20 || c == 0x7F; }

}  // namespace cfg
