// What comes back from the datagrid. Whatever that is, a reader gives what stands in it or nothing,
// the feeder takes a state from it or none, and who asks next gets his own answer.
//
// The first byte says who asks, and how the rest is sent: as it is, as one text, or as a list of
// two texts, of which a byte says how long the first is.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <list>
#include <string>
#include <string_view>

#include <datagrid/Grid_Feed.h>
#include <datagrid/IgniteOdbcClient.h>
#include <logging/Tmr_GLog.h>
#include "../support/scripted_grid.h"
#include "reach.h"

namespace {

Reach value_found("a value is found");
Reach key_found("a key is found");
Reach value_hidden("a value is hidden");
Reach value_failed("a value makes no sense");
Reach tree_found("a subtree is found");
Reach tree_failed("a subtree makes no sense");
Reach state_found("a state is found");
Reach state_missing("there is no state");
Reach connection_lost("the connection is lost");

constexpr char PATH[] = "a\\b";
constexpr char ITS_OWN[] = "*2\r\n$8\r\n1 vowned\r\n$0\r\n\r\n";

void demand(bool is_right) {
  if (!is_right) std::abort();
}

std::string text_of(std::string_view text) {
  return "$" + std::to_string(text.size()) + "\r\n" + std::string(text) + "\r\n";
}

std::string answer_of(unsigned form, std::string_view rest) {
  if (form % 3 == 0) return std::string(rest);
  if (form % 3 == 1) return text_of(rest);
  const size_t given = rest.empty() ? 0 : static_cast<unsigned char>(rest.front());
  rest.remove_prefix(rest.empty() ? 0 : 1);
  const size_t first = std::min(given, rest.size());
  return "*2\r\n" + text_of(rest.substr(0, first)) + text_of(rest.substr(first));
}

bool stands_in(const RWCString& text, const std::string& answer) {
  return answer.find(text.view()) != std::string::npos;
}

void read_value(IgniteOdbcClient& client, const std::string& answer) {
  bool ok = false;
  const auto found = client.GetValue(PATH, ok);
  value_failed(!ok);
  value_hidden(ok && !found && answer.find(" v") != std::string::npos);
  if (!found) return;
  demand(ok && found->exists && stands_in(found->value, answer));
  value_found(!found->is_subtree);
  key_found(found->is_subtree);
}

void read_tree(IgniteOdbcClient& client, const std::string& answer) {
  bool ok = false;
  std::list<std::pair<RWCString, RWCString>> values;
  const auto found = client.GetSubTree(PATH, values, ok);
  tree_failed(!ok);
  demand(found ? ok : values.empty());
  tree_found(values.size() > 1);
  for (const auto& [path, value] : values) {
    demand(path.view().substr(0, sizeof PATH) == std::string(PATH) + "\\");
    demand(stands_in(RWCString(path.view().substr(sizeof PATH)), answer));
    demand(stands_in(value, answer));
  }
}

void look(Grid_Feed& feed, const std::string& answer) {
  Grid_Feed::State state;
  const bool is_answered = feed.look("id", 1, state) == Grid_Feed::DONE;
  connection_lost(!is_answered);
  demand(is_answered == feed.is_connected());
  state_missing(is_answered && !state.is_whole);
  if (!state.is_whole) return demand(state.id.empty() && state.marked_values.empty());
  state_found(!state.marked_trees.empty() && !state.marked_values.empty());
  demand(is_answered && stands_in(RWCString(state.id), answer));
  for (const auto* marked : {&state.marked_trees, &state.marked_values}) {
    for (const std::string& path : *marked) demand(stands_in(RWCString(path), answer));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static ScriptedGrid grid;
  TmrGLog.SetLevel(0);
  if (size == 0) return 0;
  const std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);
  const std::string answer = answer_of(data[0] / 3, rest);
  std::string place = "host=127.0.0.1 port=" + std::to_string(grid.port());
  grid.answer(answer, false, true);
  if (data[0] % 3 == 2) {
    Grid_Place where;
    std::string fault;
    demand(where.read(place, fault));
    Grid_Feed feed(where, 1000);
    demand(feed.connect());
    look(feed, answer);
  } else {
    IgniteOdbcClient client;
    demand(client.Connect(place));
    data[0] % 3 == 0 ? read_value(client, answer) : read_tree(client, answer);
  }
  grid.answer(ITS_OWN, false, true);
  IgniteOdbcClient next;
  bool ok = false;
  demand(next.Connect(place));
  const auto own = next.GetValue(PATH, ok);
  demand(own && own->value == "owned");
  return 0;
}
