#include <datagrid/Grid_Records.h>

#include <algorithm>
#include <charconv>

namespace {

// Takes a number that `end` follows off the front, with that.
bool take_number(std::string_view& text, char end, int64_t& number) {
  const char* const last = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), last, number);
  if (error != std::errc() || number < 0 || rest == last || *rest != end) return false;
  text.remove_prefix(static_cast<size_t>(rest - text.data()) + 1);
  return true;
}

bool is_at_or_below(std::string_view path, std::string_view top) {
  return top.empty() || (path.substr(0, top.size()) == top &&
                         (path.size() == top.size() || path[top.size()] == '\\'));
}

}  // namespace

Grid_Keys::Grid_Keys(const std::string& grid) {
  // In braces, so that a grid of several servers keeps them on one.
  const std::string prefix = "halvoria:{" + grid + "}:";
  records = prefix + "records", order = prefix + "order", marked = prefix + "marked";
  new_records = records + ":new", new_order = order + ":new", new_marked = marked + ":new";
}

bool Grid_Record::read(std::string_view text) {
  *this = Grid_Record();
  if (!text.empty() && text.front() == '?') return true;
  int64_t sequence = 0;
  if (!take_number(text, ' ', sequence) || text.empty()) return false;
  const char sign = text.front();
  kind = sign == 'k' ? KEY : VALUE;
  value = text.substr(1);
  return sign == 'v' || (sign == 'k' && value.empty());
}

bool Grid_ReadMarks(std::string_view marks,
                    std::vector<std::pair<int64_t, std::string_view>>& read) {
  read.clear();
  while (!marks.empty()) {
    int64_t number = 0;
    if (!take_number(marks, ' ', number)) return false;
    const size_t end = marks.find('\0');
    if (end == marks.npos) return false;
    read.emplace_back(number, marks.substr(0, end));
    marks.remove_prefix(end + 1);
  }
  return true;
}

// What is no list of marks hides everything.
bool Grid_IsMarked(std::string_view marks, std::string_view path) {
  if (marks.empty()) return false;
  std::vector<std::pair<int64_t, std::string_view>> read;
  return !Grid_ReadMarks(marks, read) || std::any_of(read.begin(), read.end(), [&](const auto& m) {
    return is_at_or_below(path, m.second);
  });
}

bool Grid_TakeText(std::string_view& packed, std::string_view& text) {
  int64_t length = 0;
  if (!take_number(packed, ':', length)) return false;
  if (static_cast<uint64_t>(length) > packed.size()) return false;
  text = packed.substr(0, static_cast<size_t>(length));
  packed.remove_prefix(static_cast<size_t>(length));
  return true;
}
