#include <utility/Tmr_INI.h>

#include <ini.h>

#include <cstring>

#include <logging/Logger.h>
#include <system/Sys_File.h>

// The lines are read by inih, one at a time, so that what is wrong with one says its number
// and touches no other. Its line buffer has a fixed size, 200 bytes as Debian builds it, and
// what lies beyond is cut off without a word; the switches for more are variables of the
// whole process, not ours to change. A line that is longer goes through in pieces: a first
// line and continuation lines, which the parser hands on one by one under the same name.

namespace {

constexpr Log_Logger logger("platform/utility/Tmr_INI", 502);

constexpr std::string_view kBlanks = " \t";
constexpr int kMaxComplaints = 20;  // about the lines of one file

bool is_blank(char c) { return kBlanks.find(c) != kBlanks.npos; }
bool begins_comment(char c) { return c == ';' || c == '#'; }

std::string_view trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string_view without_comment(std::string_view line) {
  for (size_t i = 0; i < line.size(); ++i) {
    if (begins_comment(line[i]) && (i == 0 || is_blank(line[i - 1]))) return line.substr(0, i);
  }
  return line;
}

// Cuts the first line off `text`.
std::string_view next_line(std::string_view& text) {
  const size_t end = text.find_first_of("\r\n");
  const std::string_view line = text.substr(0, end);
  const bool two_bytes = text.substr(line.size(), 2) == "\r\n";
  text.remove_prefix(end == text.npos ? text.size() : end + (two_bytes ? 2 : 1));
  return line;
}

// One line on its way through the parser.
class LineParser {
 public:
  explicit LineParser(std::string_view line)
      : m_rest(line), m_separator(line.find_first_of("=:")) {}

  // True for a section and for a name with a value; the name is empty for a section.
  bool parse() {
    return ini_parse_stream(next_piece, this, take_value, this) == 0 && !m_failed &&
           m_rest.empty() && (m_values == 0 || (m_values == m_pieces && !m_name.empty()));
  }
  const std::string& name() const { return m_name; }
  const std::string& value() const { return m_value; }

 private:
  // Gives the parser its next line, like fgets.
  static char* next_piece(char* buffer, int size, void* self) {
    return static_cast<LineParser*>(self)->put_piece(buffer, static_cast<size_t>(size));
  }
  static int take_value(void* self, const char*, const char* name, const char* value) {
    return static_cast<LineParser*>(self)->add_value(name, value);
  }

  char* put_piece(char* buffer, size_t size) {
    const size_t indent = m_pieces > 0;  // marks a continuation
    const size_t length = m_rest.empty() ? 0 : piece_length(size - indent - 3);
    if (length == 0) return nullptr;
    ++m_pieces;
    buffer[0] = ' ';
    memcpy(buffer + indent, m_rest.data(), length);
    memcpy(buffer + indent + length, "\n", 2);
    m_rest.remove_prefix(length);
    return buffer;
  }

  // How much of the rest goes into the next piece of at most `room` bytes; 0 when it can't be
  // divided. The parser strips the blanks around a piece and takes one that starts like a
  // comment for a comment, so the cut goes between two bytes that are neither; and the
  // first piece must have the '='.
  size_t piece_length(size_t room) const {
    if (m_rest.size() <= room) return m_rest.size();
    const size_t least = m_pieces > 0 ? 1 : m_separator + 1;  // 0 when there is no separator
    if (least == 0) return 0;
    for (size_t length = room; length >= least; --length) {
      const char before = m_rest[length - 1], behind = m_rest[length];
      if (!is_blank(before) && !is_blank(behind) && !begins_comment(behind)) return length;
    }
    return 0;
  }

  int add_value(const char* name, const char* value) {
    if (m_values++ == 0) m_name = name;
    // A continuation comes under the name of the first piece, as far as the parser keeps it.
    m_failed |= !value || m_name.compare(0, strlen(name), name) != 0;
    if (!m_failed) m_value += value;
    return !m_failed;
  }

  std::string_view m_rest;
  const size_t m_separator;
  size_t m_pieces = 0, m_values = 0;
  bool m_failed = false;
  std::string m_name, m_value;
};

// What shows that a text is no parameters file: nothing when it may be one.
RWCString fault_of(std::string_view text) {
  if (text.substr(0, 2) == "\xFF\xFE" || text.substr(0, 2) == "\xFE\xFF") {
    return "it is UTF-16 text, save it as UTF-8";
  }
  int line = 1;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    line += c == '\n' || (c == '\r' && text.substr(i + 1, 1) != "\n");
    if ((c >= 0 && c < ' ' && c != '\t' && c != '\r' && c != '\n') || c == 0x7F) {
      char fault[80];
      snprintf(fault, sizeof fault, "line %d holds the control character 0x%02X", line, c);
      return fault;
    }
  }
  return RWCString();
}

std::string lower(const RWCString& key) {
  RWCString copy = key;
  copy.toLower();
  return copy.str();
}

}  // namespace

bool Tmr_INI::ReadINIFile(const RWCString& file) { return ReadINIFile(RWWString::fromUTF8(file)); }

bool Tmr_INI::ReadINIFile(const RWWString& file) {
  std::string text;
  RWCString error;
  if (!Sys_File::ReadWhole(file, text, MAX_BYTES, error)) {
    return logger.reject(false, "ReadINIFile() : %s\n", error);
  }
  return ReadText(text, file.toUTF8());
}

bool Tmr_INI::ReadText(std::string_view text, const RWCString& name) {
  const RWCString fault = fault_of(text);
  if (!fault.isNull()) {
    return logger.reject(false, "ReadINIFile() : <%s> is not a parameters file: %s\n", name, fault);
  }
  if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
  Values values;
  int complaints = 0;
  for (int number = 1; !text.empty(); ++number) {
    const std::string_view line = trimmed(without_comment(next_line(text)));
    if (line.empty()) continue;
    LineParser parser(line);
    if (!parser.parse()) {
      if (++complaints > kMaxComplaints) continue;
      logger.warning("ReadINIFile() : <%s> line %d is not \"name = value\", it is left out\n", name,
                     number);
    } else if (!parser.name().empty()) {
      values[lower(parser.name())] = parser.value();
    }
  }
  if (complaints > kMaxComplaints) {
    logger.warning("ReadINIFile() : <%s> has %d such lines\n", name, complaints);
  }
  const MutexGuard guard(m_mutex);
  m_values = std::move(values);
  return m_is_init = true;
}

bool Tmr_INI::IsInit() const {
  const MutexGuard guard(m_mutex);
  return m_is_init;
}

bool Tmr_INI::GetValue(const RWCString& key, RWCString& value) const {
  const std::string name = lower(key);
  const MutexGuard guard(m_mutex);
  const auto found = m_values.find(name);
  if (found == m_values.end()) return false;
  value = found->second;
  return true;
}

std::vector<std::string> Tmr_INI::Names() const {
  std::vector<std::string> names;
  const MutexGuard guard(m_mutex);
  for (const auto& entry : m_values) names.push_back(entry.first);
  return names;
}

bool Tmr_INI::SetValue(const RWCString& key, const RWCString& value, bool replace) {
  const std::string name = lower(key);
  const MutexGuard guard(m_mutex);
  if (!replace) return m_values.emplace(name, value).second;
  m_values[name] = value;
  return true;
}
