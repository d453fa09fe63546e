#include <CFG/xml/own_layout.h>

#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include <CFG/xml/guarded_parser.h>
#include <CFG/xml/xml_escapes.h>
#include <CFG/xml/xml_layout.h>

namespace cfg {
namespace {

constexpr size_t first_window = 256 * 1024;       // of a file, and so in the processor's cache
constexpr size_t last_window = 16 * 1024 * 1024;  // a node that is longer goes to the parser

class scanner {
 public:
  explicit scanner(branch_list& branches) : m_branches(branches) {}

  // The next piece of the document. All but the last end behind a node.
  bool scan(std::string_view piece);
  bool is_at_end() const { return m_is_at_end; }

 private:
  struct Text {
    std::string_view written;
    std::string_view meant;
    std::string unescaped;  // where the two differ
  };

  bool take(std::string_view expected);
  bool take_text(Text& text);
  bool take_node();
  bool start_branch();

  branch_list& m_branches;
  const char* m_at = nullptr;
  const char* m_end = nullptr;
  bool m_has_begun = false;
  bool m_has_node = false;  // the open branch
  bool m_is_at_end = false;
  Text m_path, m_value;
};

bool scanner::scan(std::string_view piece) {
  m_at = piece.data();
  m_end = m_at + piece.size();
  if (!m_has_begun && !(take(xml_layout::prologue) && start_branch())) return false;
  m_has_begun = true;
  while (m_at != m_end && !m_is_at_end) {
    if (take(xml_layout::before_path)) {
      if (!take_node()) return false;
      continue;
    }
    if (!m_has_node || !take(xml_layout::branch_end)) return false;
    m_branches.end_branch();
    m_is_at_end = take(xml_layout::document_end);
    if (!m_is_at_end && !(take(xml_layout::next_branch) && start_branch())) return false;
  }
  return m_at == m_end;
}

inline bool scanner::take(std::string_view expected) {
  if (static_cast<size_t>(m_end - m_at) < expected.size()) return false;
  if (std::memcmp(m_at, expected.data(), expected.size()) != 0) return false;
  m_at += expected.size();
  return true;
}

// What stands before the next tag.
bool scanner::take_text(Text& text) {
  const std::string_view rest(m_at, static_cast<size_t>(m_end - m_at));
  size_t length = plain_length(rest);
  const bool is_plain = length < rest.size() && rest[length] == '<';
  if (!is_plain) length = rest.find('<', length);
  if (length == rest.npos) return false;
  m_at += length;
  text.written = text.meant = rest.substr(0, length);
  if (is_plain) return true;
  if (!unescape(text.written, text.unescaped)) return false;
  text.meant = text.unescaped;
  return true;
}

bool scanner::take_node() {
  if (!take_text(m_path) || !take(xml_layout::before_parent_path)) return false;
  const size_t cut = m_path.written.rfind('\\');
  const size_t parent_length = cut == std::string_view::npos ? 0 : cut;
  if (!take(m_path.written.substr(0, parent_length)) || !take(xml_layout::before_value)) {
    return false;
  }
  if (!take_text(m_value) || !take(xml_layout::behind_value)) return false;
  m_has_node = true;
  return m_branches.add_node(m_path.meant, m_value.meant) == branch_list::NONE;
}

bool scanner::start_branch() {
  m_has_node = false;
  return m_branches.start_branch() == branch_list::NONE;
}

}  // namespace

bool read_own_layout(std::string_view document, branch_list& branches) {
  if (document.size() > document_bounds::bytes) return false;
  scanner reader(branches);
  return reader.scan(document) && reader.is_at_end();
}

// Each window but the last is read up to the last node that ends in it. The first node of an
// exported document is a key and ends in the first window; other documents mostly show here.
bool read_own_layout(Sys_File& file, branch_list& branches) {
  if (file.size() > document_bounds::bytes) return false;
  scanner reader(branches);
  std::unique_ptr<char[]> window(new char[first_window]);
  size_t room = first_window, filled = 0, total = 0;
  for (bool is_first = true;; is_first = false) {
    bool is_last = false;
    while (filled < room && !is_last) {
      const int64_t count = file.read(window.get() + filled, room - filled);
      if (count < 0) return false;
      is_last = count == 0;
      filled += static_cast<size_t>(count);
      total += static_cast<size_t>(count);
    }
    if (total > document_bounds::bytes) return false;
    const std::string_view read(window.get(), filled);
    if (is_last) return reader.scan(read) && reader.is_at_end();
    const size_t last_node = read.rfind(xml_layout::behind_value);
    if (last_node != read.npos) {
      const size_t end = last_node + xml_layout::behind_value.size();
      if (!reader.scan(read.substr(0, end))) return false;
      filled -= end;
      std::memmove(window.get(), window.get() + end, filled);
    } else {
      if (is_first || room == last_window) return false;
      std::unique_ptr<char[]> larger(new char[2 * room]);
      std::memcpy(larger.get(), window.get(), filled);
      window = std::move(larger);
      room *= 2;
    }
  }
}

}  // namespace cfg
