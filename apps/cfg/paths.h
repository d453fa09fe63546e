// Paths and values as people type them.
#pragma once

#include <string>
#include <string_view>

namespace cli {

// The components of `typed` joined by single backslashes. A slash separates components too
// when `typed` holds no backslash. Separators at both ends are dropped.
std::string with_backslashes(std::string_view typed);
bool ends_with_separator(std::string_view typed);

// "a\b\c" is "c" below "a\b"; one component has the empty parent.
std::string_view name_of(std::string_view path);
std::string_view parent_of(std::string_view path);
std::string_view first_of(std::string_view path);
std::string child_of(std::string_view path, std::string_view name);
// `path` is `ancestor`, or lies below it.
bool is_within(std::string_view path, std::string_view ancestor);

// The first `<name>` of the path, empty when there is none.
std::string_view placeholder_in(std::string_view path);

// Whether `text` matches `pattern`, in which each `%` stands for any run of bytes.
bool is_like(std::string_view text, std::string_view pattern);

// Why an XML tree cannot hold this path, or this value, and give it back unchanged; empty
// when it can.
std::string path_fault(std::string_view path);
std::string value_fault(std::string_view value);

}  // namespace cli
