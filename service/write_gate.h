// Who may change what.
#pragma once

#include <string>

#include <CFG/CFG_Protocol.h>

#include "caller.h"

namespace service {

// The one place that every command which changes the tree or a transaction passes before
// anything is done. The service listens to this computer only, and lets all who reach it
// change everything. Any thread.
class WriteGate {
 public:
  // False with the reason when the caller may not. `path` is empty where a command has none.
  bool admits(const Caller& caller, const cfg::protocol::CommandRow& row, const std::string& path,
              std::string& reason) const;
};

}  // namespace service
