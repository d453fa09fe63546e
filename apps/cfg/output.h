// Standard output, and how texts look on it.
#pragma once

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace cli {

using Json = nlohmann::ordered_json;

// Buffered standard output that notices when it fails: a full disk ends the run with a
// Failure, a reader that has gone away makes the rest go nowhere. One thread.
class Output {
 public:
  Output();

  void write(std::string_view bytes);
  void line(std::string_view text);
  void flush();

  // The reader has gone: nothing more needs to be computed for it.
  bool is_closed() const { return m_is_closed; }
  // The same, asked of the system, for when others have written to standard output.
  bool has_lost_reader() const;
  bool is_terminal() const { return m_columns > 0; }
  // A line for people: without control characters, and cut to the width of the terminal.
  void shown(std::string_view text);
  // Whether lines may be drawn with characters beyond ASCII.
  bool is_utf8() const { return m_is_utf8; }

  void json(const Json& document);

 private:
  std::string m_buffer;
  bool m_is_closed = false;
  bool m_is_utf8;
  int m_columns = 0;  // of the terminal, 0 when there is none
};

// A JSON array with one element a line, written as it comes so that it is never held whole.
class JsonRows {
 public:
  // `before` and `after` stand around the array.
  JsonRows(Output& out, std::string before, std::string after);
  void row(const Json& element);
  void end();

 private:
  Output& m_out;
  std::string m_after;
  bool m_is_empty = true;
};

// One line of JSON; bytes that are not UTF-8 become U+FFFD.
std::string json_line(const Json& document);

// `text` with control characters and bytes that are not UTF-8 written as \n, \t or \xNN.
std::string printable(std::string_view text);

// Talk on standard error, a line each: "cfg: TEXT", or {"note":"TEXT"} once JSON is wanted.
void talk_json();
void say(std::string_view text);
// Why the run ends, and its exit code: "cfg: TEXT", or {"error":"TEXT","exit_code":N}.
void say_failure(std::string_view text, int exit_code);
// The same for want of memory, with exit code 5; takes none.
void say_memory_ran_out();

}  // namespace cli
