// A request, taken apart as its row of the command table says.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <CFG/CFG_Protocol.h>
#include <strings/RWCString.h>

#include "caller.h"

namespace service {

// Kept with the session, so that its buffers serve the next request. The subtree is a view into
// the frame, which holds until the request is answered.
struct Request {
  const cfg::protocol::CommandRow* row = nullptr;
  RWCString path;
  RWCString value;
  RWCString value_name;
  RWCString seq_number;
  std::string_view subtree;
  int index = 0;
  int merge = 0;
  int compressed = 0;
  std::vector<RWCString> rules;

  // Gives large buffers back.
  void shrink();
  // The rules as the services take them; valid until they change.
  std::vector<const char*> rule_texts() const;
};

// Most rules of one request: as many candidates are read.
constexpr int MAX_RULES = 1000;
// Bytes of a text that is no value: these are kept with the session, and written to the log.
constexpr size_t MAX_TEXT = 8192;

// Reads the header, the token when there is one, and the arguments of `row`. False with what is
// wrong: a field that is missing, out of place or not well formed, one too many, a NUL byte in a
// text.
bool read_request(std::string_view fields, const cfg::protocol::CommandRow& row, Caller& caller,
                  Request& request, std::string& fault);

}  // namespace service
