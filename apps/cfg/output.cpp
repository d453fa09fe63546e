#include "output.h"

#include <langinfo.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <wchar.h>

#include <cerrno>
#include <cstring>

#include <strings/RWWString.h>

#include "failure.h"

namespace cli {

namespace {

constexpr size_t BUFFER_BYTES = 64 * 1024;

int columns_of_terminal() {
  if (!isatty(STDOUT_FILENO)) return 0;
  winsize size;
  const bool is_known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return is_known ? size.ws_col : 80;
}

// The columns that a character takes; one where the locale does not tell.
int width_of(wchar_t c) {
  const int width = wcwidth(c);
  return width < 0 ? 1 : width;
}

// `text`, or as much of it as fits and a mark that there is more.
std::string cut(const std::string& text, int columns, bool is_utf8) {
  if (text.size() <= static_cast<size_t>(columns)) return text;
  const std::wstring_view mark = is_utf8 ? L"\u2026" : L"...";
  const RWWString wide = RWWString::fromUTF8(text);
  const int room = columns - static_cast<int>(mark.size());
  int used = 0;
  size_t fitting = 0;
  for (size_t i = 0; i < wide.length(); ++i) {
    used += width_of(wide.view()[i]);
    if (used <= room) fitting = i + 1;
    if (used > columns) {
      return RWWString(std::wstring(wide.view().substr(0, fitting))).append(mark).toUTF8().str();
    }
  }
  return text;
}

}  // namespace

Output::Output()
    : m_is_utf8(std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0),
      m_columns(columns_of_terminal()) {}

void Output::write(std::string_view bytes) {
  if (m_is_closed) return;
  m_buffer += bytes;
  if (m_buffer.size() >= BUFFER_BYTES) flush();
}

void Output::line(std::string_view text) {
  write(text);
  write("\n");
}

void Output::flush() {
  std::string_view rest = m_buffer;
  while (!rest.empty() && !m_is_closed) {
    const ssize_t written = ::write(STDOUT_FILENO, rest.data(), rest.size());
    if (written >= 0) {
      rest.remove_prefix(static_cast<size_t>(written));
    } else if (errno == EPIPE) {
      m_is_closed = true;
    } else if (errno != EINTR) {
      const std::string why = std::strerror(errno);
      m_buffer.clear();
      throw Failure(REFUSED, "cannot write standard output: " + why);
    }
  }
  m_buffer.clear();
}

bool Output::has_lost_reader() const {
  pollfd output = {STDOUT_FILENO, 0, 0};
  return m_is_closed || (poll(&output, 1, 0) == 1 && (output.revents & POLLERR));
}

void Output::shown(std::string_view text) {
  const std::string plain = printable(text);
  line(is_terminal() ? cut(plain, m_columns, m_is_utf8) : plain);
}

void Output::json(const Json& document) {
  line(document.dump(2, ' ', false, Json::error_handler_t::replace));
}

JsonRows::JsonRows(Output& out, std::string before, std::string after)
    : m_out(out), m_after(std::move(after)) {
  m_out.write(before + "[");
}

void JsonRows::row(const Json& element) {
  m_out.write(m_is_empty ? "\n  " : ",\n  ");
  m_out.write(json_line(element));
  m_is_empty = false;
}

void JsonRows::end() {
  m_out.write(m_is_empty ? "]" : "\n]");
  m_out.line(m_after);
}

std::string json_line(const Json& document) {
  return document.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string printable(std::string_view text) {
  const auto is_plain = [](char c) { return static_cast<unsigned char>(c) - 0x20u < 0x5F; };
  if (std::all_of(text.begin(), text.end(), is_plain)) return std::string(text);
  const RWWString wide = RWWString::fromUTF8(text);
  std::wstring shown;
  for (const wchar_t c : wide.view()) {
    const auto code = static_cast<char32_t>(c);
    const bool is_bad_byte = code >= 0xDC80 && code <= 0xDCFF;
    if (c == L'\n') {
      shown += L"\\n";
    } else if (c == L'\t') {
      shown += L"\\t";
    } else if (c == L'\r') {
      shown += L"\\r";
    } else if (is_bad_byte || code < 0x20 || (code >= 0x7F && code < 0xA0)) {
      constexpr wchar_t digits[] = L"0123456789ABCDEF";
      shown += L"\\x";
      shown += digits[code >> 4 & 15];
      shown += digits[code & 15];
    } else {
      shown += c;
    }
  }
  return RWWString(std::move(shown)).toUTF8().str();
}

namespace {

bool is_talk_json = false;

// A message that names a monstrous path keeps its beginning, which says what, and its end,
// which says why.
std::string shortened(std::string_view text) {
  constexpr size_t longest = 2000, kept = 600;
  if (text.size() <= longest) return std::string(text);
  return std::string(text.substr(0, kept)) + " ... " + std::string(text.substr(text.size() - kept));
}

void talk(std::string_view text, const Json& document) {
  const std::string line =
      (is_talk_json ? json_line(document) : "cfg: " + printable(shortened(text))) + "\n";
  // Where standard error fails there is nobody left to tell.
  static_cast<void>(!::write(STDERR_FILENO, line.data(), line.size()));
}

}  // namespace

void talk_json() { is_talk_json = true; }

void say(std::string_view text) { talk(text, {{"note", text}}); }

void say_memory_ran_out() {
  constexpr std::string_view plain = "cfg: memory ran out\n";
  constexpr std::string_view json = "{\"error\":\"memory ran out\",\"exit_code\":5}\n";
  const std::string_view line = is_talk_json ? json : plain;
  static_cast<void>(!::write(STDERR_FILENO, line.data(), line.size()));
}

void say_failure(std::string_view text, int exit_code) {
  talk(text, {{"error", text}, {"exit_code", exit_code}});
}

}  // namespace cli
