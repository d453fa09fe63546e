// The parameters file that names the tree.
#pragma once

#include <string>

#include <CFG/CFG_ConnectionParameters.h>

namespace cli {

struct ChosenParameters {
  std::string file;
  CFG_ConnectionParameters values;
};

// Of the file `given`, or without one of the process's own: that of HALVORIA_CFG_FILE, or the
// first in the default places. A Failure(UNREACHABLE) when there is none or it cannot be read.
ChosenParameters choose_parameters(const std::string& given);

}  // namespace cli
