// Who may do what.
#pragma once

#include <string>

#include "caller.h"
#include "request.h"

namespace service {

// The one place that every command passes, reads included, before anything is done. The service
// listens to this computer only, and lets all who reach it do everything. Any thread.
class Gate {
 public:
  // False with the reason when the caller may not.
  bool admits(const Caller& caller, const Request& request, std::string& reason) const;
};

}  // namespace service
