// Texts as they stand in the documents that are written: `&`, `<`, `>`, `"` and `'` as the five
// entities, a carriage return as "&#13;", since a reader would take one for a line feed.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace cfg {

constexpr size_t escape_growth = 6;  // bytes that one byte becomes at most
constexpr size_t escape_slack = 16;  // bytes behind the result that may be overwritten

// Escapes the text to where `to` points, which moves behind the result. Returns the number
// of bytes before the first that XML cannot hold, all of them when it holds the text.
size_t escape(std::string_view text, char*& to);

// The length of the front of `bytes` that stands for itself, whatever follows.
size_t plain_length(std::string_view bytes);

// Puts the text that escape made `escaped` of in `text`. False when it is the outcome of no
// text; `text` is of no use then.
bool unescape(std::string_view escaped, std::string& text);

}  // namespace cfg
