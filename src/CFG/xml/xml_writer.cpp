#include <CFG/xml/xml_writer.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include <CFG/detail/actual_path.h>
#include <CFG/xml/normal_path.h>
#include <CFG/xml/xml_escapes.h>
#include <CFG/xml/xml_layout.h>
#include <logging/Logger.h>
#include <tree/Tree_Path.h>
#include <tree/Tree_Walk.h>

namespace cfg {
namespace {

constexpr Log_Logger logger("src/CFG/CFG_RepositoryServicesImp", 502);

constexpr size_t drain_size = 256 * 1024;  // what the output gets at once, or a little more
constexpr size_t slack = 64 * 1024;        // room behind it, more than any one put takes
constexpr size_t long_node = 16000;

// The front of a text, at most `size` bytes of it, not cut inside a character.
std::string_view front(std::string_view text, size_t size) {
  if (text.size() <= size) return text;
  const auto is_inside = [&](size_t at) {
    return (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80;
  };
  size_t cut = size;
  while (cut > size - 3 && is_inside(cut)) --cut;
  return text.substr(0, cut);
}

// Escapes a text of any length, by pieces of up to `size` bytes. `room()` says where the
// next result goes, `done(end)` is told where it ends.
template <class Room, class Done>
size_t escape_by_pieces(std::string_view text, size_t size, Room room, Done done) {
  size_t at = 0;
  while (at < text.size()) {
    const std::string_view piece = front(text.substr(at), size);
    char* to = room();
    const size_t good = escape(piece, to);
    done(to);
    at += good;
    if (good < piece.size()) break;
  }
  return at;
}

constexpr size_t name_piece = 256;
constexpr size_t value_piece = 8 * 1024;
static_assert(escape_growth * value_piece + escape_slack <= slack);

}  // namespace

template <class... A>
bool xml_writer::refuse(Log_Format<A...> format, const A&... args) {
  m_fault = Log_Render(format.text, {Log_Argument(args)...});
  return false;
}

xml_writer::xml_writer(Output output)
    : m_output(std::move(output)), m_buffer(new char[drain_size + slack]) {}

// Tags are constants here, and so copied in place.
inline void xml_writer::put(std::string_view text) {
  if (text.size() > slack) return put_long(text);
  if (m_filled >= drain_size) drain();
  std::memcpy(m_buffer.get() + m_filled, text.data(), text.size());
  m_filled += text.size();
}

void xml_writer::put_long(std::string_view text) {
  for (; !text.empty(); text.remove_prefix(std::min(slack, text.size()))) {
    put(text.substr(0, slack));
  }
}

bool xml_writer::write_branch(Tree_Node& top, std::string_view prefix) {
  put(m_has_branch ? xml_layout::next_branch : xml_layout::prologue);
  m_has_branch = true;
  m_open.clear();
  m_path.clear();
  m_lowered.clear();
  std::string_view name;
  for (Tree_PathWalk above(prefix); above.Next(name);) {
    if (!enter(name)) return false;
  }
  m_depth_above = m_open.size();
  for (Tree_Walk walk(&top); walk; walk.Next()) {
    m_open.resize(m_depth_above + walk.Depth());
    m_path.resize(m_open.empty() ? 0 : m_open.back().length);
    if (!enter(walk->NameView()) || !check_siblings(**walk) || !write_node(**walk)) return false;
  }
  put(xml_layout::branch_end);
  return m_output_holds;
}

bool xml_writer::finish() {
  put(xml_layout::document_end);
  drain();
  return m_output_holds;
}

// Adds a component to the path.
bool xml_writer::enter(std::string_view name) {
  const bool is_deep = m_open.size() >= max_path_depth;
  if (!m_path.empty()) m_path += '\\';
  char piece[escape_growth * name_piece + escape_slack];
  const size_t good = escape_by_pieces(
      name, name_piece, [&] { return piece; },
      [&](const char* end) { m_path.append(piece, static_cast<size_t>(end - piece)); });
  m_open.push_back({name, m_path.size()});
  if (is_deep) {
    return refuse("path <%.200s...> has more than %Iu levels", open_path(), max_path_depth);
  }
  if (good < name.size()) {
    const std::string path = open_path();
    return refuse("path <%s> cannot be written as XML: byte <0x%X> at offset %Iu", path,
                  static_cast<unsigned char>(name[good]), path.size() - name.size() + good);
  }
  return check_name(name);
}

// A reader takes white space off both ends of a name, and a backslash for the end of one.
bool xml_writer::check_name(std::string_view name) {
  if (name.empty()) return refuse("path <%s> has a key without a name", open_path());
  size_t bad = name.find('\\');
  if (is_space(name.back())) bad = name.size() - 1;
  if (is_space(name.front())) bad = 0;
  if (bad == name.npos) return true;
  const std::string path = open_path();
  return refuse("path <%s> would not be read as it is: byte <0x%X> at offset %Iu", path,
                static_cast<unsigned char>(name[bad]), path.size() - name.size() + bad);
}

// A reader puts names in lower case.
bool xml_writer::check_siblings(const Tree_Node& node) {
  std::string lowered;
  if (!is_lowered(node.NameView(), lowered)) return true;
  const Tree_Node* key = m_open.size() > m_depth_above + 1 ? node.GetParent() : nullptr;
  if (!key || (!key->Child(lowered) && m_lowered.emplace(key, lowered).second)) return true;
  return refuse("path <%s> would not be read as it is: it differs from another in case alone",
                open_path());
}

bool xml_writer::write_node(const Tree_Node& node) {
  const size_t begin = m_drained + m_filled;
  const std::string_view path = m_path;
  const size_t parent_length = m_open.size() > 1 ? m_open[m_open.size() - 2].length : 0;
  put(xml_layout::before_path);
  put(path);
  put(xml_layout::before_parent_path);
  put(path.substr(0, parent_length));
  put(xml_layout::before_value);
  const std::string_view text = node.GetText();
  const size_t good = escape_by_pieces(
      text, value_piece,
      [&] {
        if (m_filled >= drain_size) drain();
        return m_buffer.get() + m_filled;
      },
      [&](const char* end) { m_filled = static_cast<size_t>(end - m_buffer.get()); });
  put(xml_layout::behind_value);
  if (good < text.size()) {
    return refuse("value <%s> cannot be written as XML: byte <0x%X> at offset %Iu", open_path(),
                  static_cast<unsigned char>(text[good]), good);
  }
  const size_t length = m_drained + m_filled - begin;
  if (length > long_node) logger.error("Bigoffset %d\n", length);
  return m_output_holds;
}

std::string xml_writer::open_path() const {
  std::string path;
  for (const Open& key : m_open) {
    if (!path.empty()) path += '\\';
    path += key.name;
  }
  return path;
}

void xml_writer::drain() {
  m_output_holds = m_output_holds && m_output({m_buffer.get(), m_filled});
  m_drained += m_filled;
  m_filled = 0;
}

}  // namespace cfg
