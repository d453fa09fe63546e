#include "commands.h"

#include <optional>

#include <tree/Tree_Node.h>

#include "answers.h"

namespace service {

using namespace cfg::protocol;

namespace {

// One command at work.
struct Work {
  StoreRepository& store;
  const Request& request;
  Conn_FormWriter& frame;
  Outcome outcome;
};

using SubTree = std::unique_ptr<CFG_SubTree>;

// For operations that take a path which they may change.
RWCString path_of(const Work& work) { return work.request.path; }

bool text(Work& work, const RWCString& found) {
  write_text(work.frame, found);
  return true;
}

bool number(Work& work, int found) {
  write_number(work.frame, found);
  return true;
}

bool sub_tree(Work& work, CFG_SubTree* found) {
  if (write_sub_tree(work.frame, SubTree(found), work.store)) return true;
  work.outcome.reason = work.request.path.str() + " holds what no byte array can hold";
  return false;
}

bool change(Work& work, int result) {
  work.outcome.result = result;
  write_success(work.frame, result);
  if (!result) {
    const std::string why = work.store.TakeRefusal();
    write_reason(work.frame, why.empty() ? "the store does not take it" : why);
  }
  return true;
}

bool yes_or_no(Work& work, int found) {
  write_success(work.frame, found);
  return true;
}

// "halvoria\\a (3 keys, 20 values)", the top included.
std::string described(CFG_SubTree& tree, const RWCString& parent) {
  int keys = 0, values = 0;
  std::vector<Tree_Node*> open{tree.GetData().get()};
  while (!open.empty()) {
    Tree_Node& node = *open.back();
    open.pop_back();
    ++(node.IsLeaf() ? values : keys);
    for (int i = 0; i < node.GetChildCount(); ++i) open.push_back(node.GetChildAt(i).get());
  }
  const std::string above = parent.isNull() ? "" : parent.str() + "\\";
  return above + tree.GetKeyName().str() + " (" + std::to_string(keys) + " keys, " +
         std::to_string(values) + " values)";
}

bool write_sub(Work& work) {
  const std::string_view bytes = work.request.subtree;
  const SubTree tree(CFG_RepositoryServices::CreateSubTreeFromByteArray(
      bytes.data(), static_cast<int>(bytes.size())));
  if (!tree) {
    write_success(work.frame, 0);
    write_reason(work.frame, "the subtree is not well formed");
    return true;
  }
  work.outcome.changed = described(*tree, work.request.path);
  Tree_NodePtr top = tree->GetData();
  return change(work, work.store.WriteSubTree(top, work.request.path));
}

// With the rule that found it. A client takes an empty one for none.
bool found_by_rule(Work& work) {
  const RWCString& name = work.request.value_name;
  std::optional<StoreRepository::OneState> state;
  if (work.request.rules.size() > 1) state.emplace(work.store);
  for (const RWCString& rule : work.request.rules) {
    const RWCString value = work.store.GetValue(rule.isNull() ? name : rule + "\\" + name);
    if (value.isNull()) continue;
    write_found(work.frame, value, rule.isNull() ? name : rule);
    return true;
  }
  write_found(work.frame, RWCString(), RWCString());
  return true;
}

bool sub_tree_by_rule(Work& work) {
  const std::vector<const char*> rules = work.request.rule_texts();
  auto* texts = const_cast<const char**>(rules.data());
  const int count = static_cast<int>(rules.size());
  return sub_tree(work, work.store.GetSubTree(work.request.path, texts, work.request.merge, count));
}

bool sub_tree_with_values_by_rule(Work& work) {
  const std::vector<const char*> rules = work.request.rule_texts();
  auto* texts = const_cast<const char**>(rules.data());
  const int count = static_cast<int>(rules.size());
  return sub_tree(work, work.store.GetSubTreeOnlyWithValues(work.request.path, texts,
                                                            work.request.merge, count));
}

bool list(Work& work, String_Arr* found) {
  write_list(work.frame, std::unique_ptr<String_Arr>(found));
  return true;
}

// Of what is directly below a key. The store answers alike for a key without any and for none.
bool key_names(Work& work) {
  const StoreRepository::OneState state(work.store);
  String_Arr* const names = work.store.GetSubTreePaths(work.request.path);
  if (names || !work.store.IsSubTreeExist(work.request.path)) return list(work, names);
  write_empty_list(work.frame);
  return true;
}

bool values(Work& work) {
  const StoreRepository::OneState state(work.store);
  std::unique_ptr<Tree_PathAndValueArray> found(work.store.GetSubTreeValues(work.request.path));
  if (found || !work.store.IsSubTreeExist(work.request.path)) {
    write_records(work.frame, std::move(found));
  } else {
    write_empty_list(work.frame);
  }
  return true;
}

struct Handler {
  Command command;
  Cost cost;
  bool (*run)(Work&);
};

using enum Cost;

// In the order of the commands; those that are not here are the session's or streamed.
constexpr Handler handlers[] = {
    {Command::SET_VALUE, SHORT,
     [](Work& w) { return change(w, w.store.SetValue(w.request.path, w.request.value)); }},
    {Command::DEL_VAL, SHORT,
     [](Work& w) { return change(w, w.store.DeleteValue(w.request.path)); }},
    {Command::DEL_SUB, LONG,
     [](Work& w) { return change(w, w.store.DeleteSubTree(w.request.path)); }},
    {Command::WRITE_SUB, LONG, write_sub},
    {Command::GET_VAL, QUICK, [](Work& w) { return text(w, w.store.GetValue(w.request.path)); }},
    {Command::GET_VAL_INX, SHORT,
     [](Work& w) {
       RWCString path = path_of(w);
       return text(w, w.store.GetValue(path, w.request.index));
     }},
    {Command::GET_VAL_NAME, SHORT,
     [](Work& w) {
       RWCString path = path_of(w);
       return text(w, w.store.GetValueName(path, w.request.index));
     }},
    {Command::GET_VAL_NUM, SHORT,
     [](Work& w) {
       RWCString path = path_of(w);
       return number(w, w.store.GetValueNum(path));
     }},
    {Command::GET_SUB_NUM, SHORT,
     [](Work& w) {
       RWCString path = path_of(w);
       return number(w, w.store.GetSubTreeNum(path));
     }},
    {Command::GET_SUB_ENTRIES_COUNT, LONG,
     [](Work& w) { return number(w, w.store.GetSubTreeEntriesCount(w.request.path)); }},
    {Command::GET_SUB_EXISTS, QUICK,
     [](Work& w) { return yes_or_no(w, w.store.IsSubTreeExist(w.request.path)); }},
    {Command::GET_SUB_PATHS, SHORT, key_names},
    {Command::GET_SUB_TREE_VALUES, SHORT, values},
    {Command::GET_SUB_INX, LONG,
     [](Work& w) {
       RWCString path = path_of(w);
       return sub_tree(w, w.store.GetSubTree(path, w.request.index));
     }},
    {Command::GET_SUB_MERGE, LONG, sub_tree_by_rule},
    {Command::GET_SUB_TREE_ONLY_WITH_VALUES, LONG, sub_tree_with_values_by_rule},
    {Command::GET_SUB_LONG_VALUE, LONG,
     [](Work& w) { return sub_tree(w, w.store.GetSubTreeWithLongValues(w.request.path)); }},
    {Command::GET_SUB_LONG_VALUE_WILDCARD, LONG,
     [](Work& w) { return sub_tree(w, w.store.GetSubTreeWithPrecentAndWildcard(w.request.path)); }},
    {Command::GET_SUB_WITH_VALUE_PRECENT_WILDCARD, LONG,
     [](Work& w) {
       return sub_tree(w, w.store.GetSubTreeOnlyWithValuesWithPrecentAndWildcard(w.request.path));
     }},
    {Command::GET_VALUE_BY_SEARCH_RULE, QUICK, found_by_rule},
    {Command::FILL_PATH, LONG, [](Work& w) { return list(w, w.store.FillPath(w.request.path)); }},
    {Command::FILL_PATH_NAME_VALUE, LONG,
     [](Work& w) {
       return text(w, w.store.FillPath(w.request.path, w.request.value_name, w.request.value));
     }},
    {Command::GET_NODE_NAME, SHORT,
     [](Work& w) { return text(w, w.store.GetNodeName(w.request.path)); }},
    {Command::GET_NODE_NAME_BY_IP, SHORT,
     [](Work& w) { return text(w, w.store.GetNodeNameByIp(w.request.path)); }},
    {Command::SERV_NODE_NAME, QUICK, [](Work& w) { return text(w, w.store.GetServerNodeName()); }},
    {Command::GET_MAX_SEQ, QUICK, [](Work& w) { return text(w, w.store.GetMaxSeqNumber()); }},
    {Command::GET_MAX_SEQ_PATH, LONG,
     [](Work& w) { return text(w, w.store.GetMaxSeqNumber(w.request.path)); }},
    {Command::GET_DEL_MIN_SEQ, QUICK,
     [](Work& w) { return text(w, w.store.GetMinSeqNumberOfDeletedEntry()); }},
    {Command::GET_DB_DATETIME, QUICK,
     [](Work& w) { return text(w, w.store.GetDbServerDateTime()); }},
    {Command::GET_SERVER_SYNC_ID, QUICK,
     [](Work& w) { return text(w, w.store.GetServerSyncID()); }},
};

constexpr auto by_command = [] {
  struct {
    const Handler* of[COMMAND_COUNT] = {};
  } table;
  for (const Handler& handler : handlers) table.of[static_cast<size_t>(handler.command)] = &handler;
  return table;
}();

const Handler* handler_of(const CommandRow& row) {
  return by_command.of[static_cast<size_t>(row.command)];
}

}  // namespace

Outcome carry_out(StoreRepository& store, const Request& request, Conn_FormWriter& frame) {
  Work work{store, request, frame, {}};
  work.outcome.changed = request.path.str();
  const Handler* handler = handler_of(*request.row);
  if (handler) {
    work.outcome.is_answered = handler->run(work);
  } else {
    work.outcome.reason = std::string(request.row->name) + " is not carried out here";
  }
  return std::move(work.outcome);
}

Cost cost_of(const CommandRow& row) {
  const Handler* handler = handler_of(row);
  return handler ? handler->cost : SHORT;
}

}  // namespace service
