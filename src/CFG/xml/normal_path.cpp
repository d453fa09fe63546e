#include <CFG/xml/normal_path.h>

#include <algorithm>

#include <CFG/detail/actual_path.h>
#include <CFG/detail/byte_scan.h>

namespace cfg {
namespace {

std::string_view trimmed(std::string_view name) {
  while (!name.empty() && is_space(name.front())) name.remove_prefix(1);
  while (!name.empty() && is_space(name.back())) name.remove_suffix(1);
  return name;
}

bool holds_normal_bytes(std::string_view path) {
  return !has_suspect_byte(path) && !(scan_for_change(path) & (CAPITAL | HIGH_BYTE));
}

// Takes some normal paths for others; never the other way round.
bool is_normal(std::string_view path) {
  if (path.empty()) return true;
  return path.front() != '\\' && path.back() != '\\' && holds_normal_bytes(path) &&
         path.find("\\\\") == path.npos;
}

}  // namespace

std::string_view normal_path(std::string_view text, std::string& scratch) {
  if (is_normal(text)) return text;
  scratch.clear();
  for (size_t from = 0; from <= text.size();) {
    const size_t end = std::min(text.find('\\', from), text.size());
    const std::string_view name = trimmed(text.substr(from, end - from));
    if (!name.empty() && !scratch.empty()) scratch += '\\';
    scratch += name;
    from = end + 1;
  }
  to_lower(scratch);
  return scratch;
}

bool is_normal_name(std::string_view name) { return !name.empty() && holds_normal_bytes(name); }

bool is_too_deep(std::string_view path) {
  if (path.size() <= 2 * max_path_depth) return false;  // a component takes two bytes
  return static_cast<size_t>(std::count(path.begin(), path.end(), '\\')) >= max_path_depth;
}

}  // namespace cfg
