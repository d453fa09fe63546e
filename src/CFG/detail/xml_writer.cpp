// The layout of a document. Blanks and line ends are exactly these; %s is escaped:
//
//   <?xml  version="1.0" encoding="UTF-8"?>
//   <!DOCTYPE tree [
//   ... the declarations of the six elements ...
//   ]>
//   <tree>
//   <branch>
//                                                        empty line, in the first branch only
//   <node>                                               per node, a key before what is below it
//   <path_segment>%s</path_segment>                      its whole path
//   <parent_path_segment>%s</parent_path_segment>        that path before its last backslash
//   <value>%s</value>                                    empty for a key
//   </node>
//                                                        empty line
//   </branch>
//                                                        empty line and "<branch>" per further
//   </tree>                                              tree

#include <CFG/detail/xml_writer.h>

#include <array>
#include <cstring>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <CFG/detail/normal_path.h>
#include <i18n/I18n_Utf8.h>
#include <logging/Logger.h>
#include <tree/Tree_Path.h>
#include <tree/Tree_Walk.h>

namespace {

constexpr Log_Logger logger("src/CFG/detail/xml_writer", 502);

constexpr std::string_view prologue =
    "<?xml  version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE tree [\n"
    "<!ELEMENT tree (branch)+>\n"
    "<!ELEMENT branch (node)+>\n"
    "<!ELEMENT node (path_segment,parent_path_segment?,value?)>\n"
    "<!ELEMENT path_segment (#PCDATA)>\n"
    "<!ELEMENT parent_path_segment (#PCDATA)>\n"
    "<!ELEMENT value (#PCDATA)>\n"
    "]>\n"
    "<tree>\n"
    "<branch>\n\n";

constexpr size_t drain_size = 256 * 1024;  // what the output gets at once, or a little more
constexpr size_t slack = 64 * 1024;        // room behind it, more than any one put takes
constexpr size_t long_node = 16000;

// --- escaping ----------------------------------------------------------------------------------

constexpr size_t escape_growth = 6;  // bytes that one byte becomes at most
constexpr size_t escape_slack = 16;  // bytes behind the result that may be overwritten

// What stands for a byte that is not copied as it is; empty for one that XML cannot hold.
// A reader would take a carriage return for a line feed.
constexpr std::string_view escaped(char c) {
  switch (c) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '"':
      return "&quot;";
    case '\'':
      return "&apos;";
    case '\r':
      return "&#13;";
    case '\n':
      return "\n";
    case '\t':
      return "\t";
    default:
      return {};
  }
}

constexpr bool is_high(char c) { return static_cast<unsigned char>(c) >= 0x80; }

constexpr std::array<bool, 256> copied_bytes() {
  std::array<bool, 256> copied{};
  for (int i = 0; i < 256; ++i) {
    const char c = static_cast<char>(i);
    copied[static_cast<size_t>(i)] =
        !is_high(c) && (escaped(c) == std::string_view(&c, 1) || (i >= 0x20 && escaped(c).empty()));
  }
  return copied;
}
constexpr auto is_copied = copied_bytes();

// Copies bytes from the front of a text up to the first that needs a closer look: how many.
size_t copy_plain(std::string_view text, char* to) {
  size_t done = 0;
#if defined(__SSE2__)
  const auto all = [](char c) { return _mm_set1_epi8(c); };
  for (; done + 16 <= text.size(); done += 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text.data() + done));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + done), v);
    const __m128i low_or_high = _mm_cmplt_epi8(v, all(0x20));  // as signed bytes
    const __m128i quot = _mm_cmpeq_epi8(v, all('"'));
    const __m128i amp_apos = _mm_cmpeq_epi8(_mm_or_si128(v, all(1)), all('&' | 1));
    const __m128i lt_gt = _mm_cmpeq_epi8(_mm_or_si128(v, all(2)), all('<' | 2));
    const int found = _mm_movemask_epi8(
        _mm_or_si128(_mm_or_si128(low_or_high, quot), _mm_or_si128(amp_apos, lt_gt)));
    if (found) return done + static_cast<size_t>(__builtin_ctz(static_cast<unsigned>(found)));
  }
#endif
  for (; done < text.size() && is_copied[static_cast<unsigned char>(text[done])]; ++done) {
    to[done] = text[done];
  }
  return done;
}

// Of a run of bytes above 0x7F, how many are characters that XML holds: not U+FFFE and U+FFFF.
size_t good_characters(std::string_view run) {
  size_t good = run.size();
  I18n_IsValidUtf8(run, &good);
  run = run.substr(0, good);
  for (size_t at = 0; (at = run.find("\xEF\xBF", at)) != run.npos; at += 3) {
    if (static_cast<unsigned char>(run[at + 2]) >= 0xBE) return at;
  }
  return good;
}

// Escapes the text to where `to` points, which moves behind the result. Returns the number
// of bytes before the first that XML cannot hold, all of them when it holds the text.
size_t escape(std::string_view text, char*& to) {
  size_t at = 0;
  while (at < text.size()) {
    const size_t copied = copy_plain(text.substr(at), to);
    at += copied;
    to += copied;
    if (at == text.size()) break;
    if (!is_high(text[at])) {
      const std::string_view instead = escaped(text[at]);
      if (instead.empty()) return at;
      to += instead.copy(to, instead.size());
      ++at;
      continue;
    }
    size_t end = at;
    while (end < text.size() && is_high(text[end])) ++end;
    const size_t good = good_characters(text.substr(at, end - at));
    to += text.copy(to, good, at);
    at += good;
    if (at < end) return at;
  }
  return at;
}

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

// The same for a text of any length, by pieces of up to `size` bytes. `room()` says where the
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

namespace cfg {

template <class... A>
bool xml_writer::refuse(Log_Format<A...> format, const A&... args) {
  m_fault = Log_Render(format.text, {Log_Argument(args)...});
  return false;
}

xml_writer::xml_writer(Output output)
    : m_output(std::move(output)), m_buffer(new char[drain_size + slack]) {}

bool xml_writer::write_branch(Tree_Node& top, std::string_view prefix) {
  put(m_has_branch ? "\n<branch>\n" : prologue);
  m_has_branch = true;
  m_open.clear();
  m_path.clear();
  std::string_view name;
  for (Tree_PathWalk above(prefix); above.Next(name);) {
    if (!enter(name)) return false;
  }
  const size_t depth_above = m_open.size();
  for (Tree_Walk walk(&top); walk; walk.Next()) {
    m_open.resize(depth_above + walk.Depth());
    m_path.resize(m_open.empty() ? 0 : m_open.back().length);
    if (!enter(walk->NameView()) || !write_node(**walk)) return false;
  }
  put("</branch>\n");
  return m_output_holds;
}

bool xml_writer::finish() {
  put("</tree>\n");
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

bool xml_writer::write_node(const Tree_Node& node) {
  const size_t begin = m_drained + m_filled;
  const std::string_view path = m_path;
  const size_t parent_length = m_open.size() > 1 ? m_open[m_open.size() - 2].length : 0;
  put("<node>\n<path_segment>");
  put(path);
  put("</path_segment>\n<parent_path_segment>");
  put(path.substr(0, parent_length));
  put("</parent_path_segment>\n<value>");
  const std::string_view text = node.GetText();
  const size_t good = escape_by_pieces(
      text, value_piece,
      [&] {
        if (m_filled >= drain_size) drain();
        return m_buffer.get() + m_filled;
      },
      [&](const char* end) { m_filled = static_cast<size_t>(end - m_buffer.get()); });
  put("</value>\n</node>\n\n");
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

void xml_writer::put(std::string_view text) {
  while (text.size() > slack) {
    put(text.substr(0, slack));
    text.remove_prefix(slack);
  }
  if (m_filled >= drain_size) drain();
  std::memcpy(m_buffer.get() + m_filled, text.data(), text.size());
  m_filled += text.size();
}

void xml_writer::drain() {
  m_output_holds = m_output_holds && m_output({m_buffer.get(), m_filled});
  m_drained += m_filled;
  m_filled = 0;
}

}  // namespace cfg
