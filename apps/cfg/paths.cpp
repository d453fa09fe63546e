#include "paths.h"

#include <algorithm>

#include <cstdio>

#include <strings/RWWString.h>

namespace cli {

namespace {

bool is_control(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }
bool is_blank(char c) { return is_control(c) || c == ' '; }

// The characters that XML 1.0 knows.
bool is_kept_by_xml(wchar_t c) {
  const auto code = static_cast<char32_t>(c);
  if (code < 0x20) return c == L'\t' || c == L'\n' || c == L'\r';
  return code < 0xD800 || (code > 0xDFFF && code != 0xFFFE && code != 0xFFFF);
}

std::string fault_of_character(wchar_t c, size_t at) {
  const auto code = static_cast<char32_t>(c);
  char text[128];
  if (code >= 0xDC80 && code <= 0xDCFF) {
    std::snprintf(text, sizeof text, "character %zu, byte 0x%02X, is not UTF-8", at,
                  unsigned{code} & 0xFF);
  } else {
    std::snprintf(text, sizeof text, "character %zu, U+%04X, cannot stand in an XML file", at,
                  unsigned{code});
  }
  return text;
}

}  // namespace

std::string with_backslashes(std::string_view typed) {
  const char separator = typed.find('\\') == typed.npos ? '/' : '\\';
  std::string path;
  while (!typed.empty()) {
    const size_t end = std::min(typed.find(separator), typed.size());
    if (end > 0 && !path.empty()) path += '\\';
    path += typed.substr(0, end);
    typed.remove_prefix(std::min(end + 1, typed.size()));
  }
  return path;
}

bool ends_with_separator(std::string_view typed) {
  const char separator = typed.find('\\') == typed.npos ? '/' : '\\';
  return !typed.empty() && typed.back() == separator;
}

std::string_view name_of(std::string_view path) { return path.substr(path.rfind('\\') + 1); }

std::string_view parent_of(std::string_view path) {
  const size_t cut = path.rfind('\\');
  return cut == path.npos ? std::string_view() : path.substr(0, cut);
}

std::string_view first_of(std::string_view path) { return path.substr(0, path.find('\\')); }

std::string child_of(std::string_view path, std::string_view name) {
  std::string child(path);
  if (!child.empty()) child += '\\';
  return child += name;
}

bool is_within(std::string_view path, std::string_view ancestor) {
  return path.substr(0, ancestor.size()) == ancestor &&
         (path.size() == ancestor.size() || path[ancestor.size()] == '\\');
}

std::string_view placeholder_in(std::string_view path) {
  const size_t begin = path.find('<');
  if (begin == path.npos) return {};
  const size_t end = path.find('>', begin);
  return end == path.npos ? std::string_view() : path.substr(begin, end + 1 - begin);
}

// After a mismatch only the last `%` passed needs to take one byte more.
bool is_like(std::string_view text, std::string_view pattern) {
  size_t at = 0, in_pattern = 0;
  size_t last_any = pattern.npos, taken_by_any = 0;
  while (at < text.size()) {
    if (in_pattern < pattern.size() && pattern[in_pattern] == '%') {
      last_any = in_pattern++;
      taken_by_any = at;
    } else if (in_pattern < pattern.size() && pattern[in_pattern] == text[at]) {
      ++in_pattern, ++at;
    } else if (last_any != pattern.npos) {
      in_pattern = last_any + 1;
      at = ++taken_by_any;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('%', in_pattern) == pattern.npos;
}

std::string path_fault(std::string_view path) {
  for (std::string_view rest = path; !rest.empty();) {
    const std::string_view name = first_of(rest);
    if (is_blank(name.front()) || is_blank(name.back())) {
      return "the name '" + std::string(name) + "' begins or ends with a blank";
    }
    if (std::any_of(name.begin(), name.end(), is_control)) {
      return "the name '" + std::string(name) + "' holds a control character";
    }
    rest.remove_prefix(std::min(name.size() + 1, rest.size()));
  }
  return value_fault(path);
}

std::string value_fault(std::string_view value) {
  const RWWString wide = RWWString::fromUTF8(value);
  for (size_t i = 0; i < wide.length(); ++i) {
    if (!is_kept_by_xml(wide.view()[i])) return fault_of_character(wide.view()[i], i + 1);
  }
  return "";
}

}  // namespace cli
