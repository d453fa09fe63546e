// The words of a command line that is being typed in a shell.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace cli {

struct ShellWord {
  std::string raw;   // as typed
  std::string text;  // what the shell makes of it
  char quote = 0;    // ' or " when it stands open at the end
};

// The words of the line, the last one being that under the cursor at its end, which may be
// empty. A backslash before an ordinary letter is kept, other than by the shell: who types
// `halvoria\sys` means a separator.
std::vector<ShellWord> split_line(std::string_view line);

// `text` as it has to be typed inside `quote`, or outside of quotes for 0.
std::string as_typed(std::string_view text, char quote);

}  // namespace cli
