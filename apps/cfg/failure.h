// How a run of the command ends.
#pragma once

#include <string>
#include <utility>

namespace cli {

// The exit codes, as the manual page documents them.
enum Exit {
  DONE = 0,
  DIFFERENT = 1,  // diff found differences
  REFUSED = 1,    // something could not be written
  USAGE = 2,
  NOT_FOUND = 3,
  BAD_INPUT = 4,
  UNREACHABLE = 5,
};

// Ends the run: main prints the text on standard error and exits with the code. The text
// says what, where and why, without a line end.
struct Failure {
  Failure(Exit exit_code, std::string message) : code(exit_code), text(std::move(message)) {}

  Exit code;
  std::string text;
};

}  // namespace cli
