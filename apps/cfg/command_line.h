// From the words of the command line to a run of a verb.
#pragma once

#include "output.h"

namespace cli {

// Runs the command; the exit code. Failures are thrown.
int run_command(int argc, char** argv, Output& out);

}  // namespace cli
