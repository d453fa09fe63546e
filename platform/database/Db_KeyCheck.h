// Whether rows in order of path make a tree.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// Told of row after row. Between a key and what is below it others may
// stand (`a`, `a-b`, `a\c`), so keys are kept until nothing below them can come.
class Db_KeyCheck {
 public:
  enum Fault { NONE, NO_PARENT, PARENT_IS_VALUE };

  // Rows without a backslash, and the one path given, need no parent.
  explicit Db_KeyCheck(std::string_view top = std::string_view()) : m_top(top) {}

  Fault add(std::string_view path, bool is_key) {
    while (!m_open.empty() && is_over(m_open.back().size, path)) m_open.pop_back();
    const Fault fault = path == m_top ? NONE : fault_of_parent(path);
    m_last.assign(path);
    m_open.push_back({path.size(), is_key});
    return fault;
  }

 private:
  struct Row {
    size_t size;  // of the path, the beginning of m_last
    bool is_key;
  };

  bool is_over(size_t size, std::string_view path) const {
    return path.size() <= size || path[size] > '\\' || path.compare(0, size, m_last, 0, size) != 0;
  }

  Fault fault_of_parent(std::string_view path) const {
    const size_t cut = path.rfind('\\');
    if (cut == path.npos) return NONE;
    for (auto row = m_open.rbegin(); row != m_open.rend(); ++row) {
      if (row->size == cut) return row->is_key ? NONE : PARENT_IS_VALUE;
    }
    return NO_PARENT;
  }

  std::string_view m_top;
  std::string m_last;
  std::vector<Row> m_open;  // each the beginning of the next
};
