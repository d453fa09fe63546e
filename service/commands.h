// What each command asks of the store.
#pragma once

#include <connection/Conn_Form.h>

#include "request.h"
#include "stores.h"

namespace service {

// Carries out a command that reads or changes, and writes the fields of its answer behind the
// frame's name; trees that are streamed and commands about the session are not among them. False
// with the reason when there can be no answer. For a change, `result` receives its success code.
bool carry_out(StoreRepository& store, const Request& request, Conn_FormWriter& frame, int& result,
               std::string& reason);

// How long a command may take.
enum class Cost : uint8_t {
  QUICK,  // a few lookups whatever the size of the tree
  SHORT,  // the keys or values of one key
  LONG,   // a subtree, or more
};
Cost cost_of(const cfg::protocol::CommandRow& row);

}  // namespace service
