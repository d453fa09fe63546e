// The arguments of every command, as the service reads and carries them out.
//
// The first byte chooses the command, the rest are the fields behind the connection's own ones.
// The store is a file in memory, which keeps what earlier inputs wrote.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include <logging/Tmr_GLog.h>
#include <service/commands.h>

#include "reach.h"

using namespace cfg::protocol;

namespace {

Reach request_refused("a request is refused before it is carried out");
Reach read_answered("a read is answered");
Reach change_done("a change is done");
Reach change_refused("a change is refused by the store");

service::StoreRepository& store() {
  static service::StoreRepository& repository = []() -> service::StoreRepository& {
    TmrGLog.SetLevel(0);
    auto* made = new service::StoreRepository(RWCString("sqlite::memory:"), RWCString());
    if (!made->Connect()) std::abort();
    made->SetValue("halvoria\\a\\b", "text");
    return *made;
  }();
  return repository;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const CommandRow& row = row_of(static_cast<Command>(data[0] % COMMAND_COUNT));
  const std::string_view fields(reinterpret_cast<const char*>(data) + 1, size - 1);
  service::Caller caller;
  service::Request request;
  std::string fault;
  if (!service::read_request(fields, row, caller, request, fault)) {
    if (fault.empty()) std::abort();
    request_refused();
    return 0;
  }
  Conn_FormWriter frame;
  frame.begin("answer");
  const service::Outcome outcome = service::carry_out(store(), request, frame);
  const bool is_change = row.effect == Effect::CHANGES;
  read_answered(outcome.is_answered && !is_change);
  change_done(outcome.is_answered && is_change && outcome.result);
  change_refused(outcome.is_answered && is_change && !outcome.result);
  return 0;
}
