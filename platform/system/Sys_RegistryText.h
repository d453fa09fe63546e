// The registry as text.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <strings/Export.h>

// Lines of
//
//   [HKEY_LOCAL_MACHINE\SOFTWARE\Kestral\install]    a key, to the last ']' of the line
//   "base_setup_type"="full"                         a value of that key
//   base_setup_type = full                           the same, as people write it
//   ; anything                                       a comment, as with '#'
//
// Between quotation marks \" and \\ stand for the second character, \n, \r and \t for what they
// do in C, and \x and two hexadecimal digits for that byte. Without them the name goes to the first
// '=', the value from there to the end of the line, both without the blanks around them.
// Blanks around the parts of a line mean nothing. Lines end in LF or CR LF. Keys and names are
// found in any case of ASCII letters; of several values with one name the last counts.
//
// What is changed is changed in its line: all others stay as they are, comments and those that
// are nothing of this, too. One thread at a time.
class HALVORIA_API Sys_RegistryText {
 public:
  using Fault = std::function<void(int line, const char* what)>;

  // Takes any bytes in place of what was held; `fault` is told of each line that is left out.
  void parse(std::string_view text, const Fault& fault);
  std::string text() const;

  // NULL when there is no such value; good until the next change.
  const std::string* find(std::string_view key, std::string_view name) const;
  // The key must be one that is_key accepts.
  void set(std::string_view key, std::string_view name, std::string_view value);
  // Whether there was something to remove. A key goes with the keys below it.
  bool remove(std::string_view key, std::string_view name);
  bool remove_key(std::string_view key);

  // Whether a key can have this name: not empty, no control characters, no blanks around it.
  static bool is_key(std::string_view key);

 private:
  enum Kind { NOTHING, KEY, VALUE };
  struct Line {
    std::string text;  // without its end
    Kind kind = NOTHING;
    std::string key;  // of a key, and of a value: the one that it belongs to
    std::string name, value;
  };
  using Lines = std::vector<Line>;

  static const char* read(Line& line, std::string_view key);
  bool remove_lines(const std::function<bool(const Line&)>& goes);

  Lines m_lines;
};
