// What each command asks of the store.
#pragma once

#include <connection/Conn_Form.h>

#include "request.h"
#include "stores.h"

namespace service {

// Carries out a command that reads or changes, and writes the fields of its answer behind the
// frame's name; trees that are streamed and commands about the session are not among them.
struct Outcome {
  bool is_answered = false;
  std::string reason;   // when there can be no answer
  int result = 0;       // success code of a change
  std::string changed;  // what it is about, for the log
};
Outcome carry_out(StoreRepository& store, const Request& request, Conn_FormWriter& frame);

// How long a command may take.
enum class Cost : uint8_t {
  QUICK,  // a few lookups whatever the size of the tree
  SHORT,  // the keys or values of one key
  LONG,   // a subtree, or more
};
Cost cost_of(const cfg::protocol::CommandRow& row);

}  // namespace service
