#include "commands.h"

#include <optional>
#include <type_traits>

#include <tree/Tree_Node.h>

#include "answers.h"

namespace service {

using namespace cfg::protocol;

namespace {

using SubTree = std::unique_ptr<CFG_SubTree>;

// One command at work.
struct Work {
  StoreRepository& store;
  const Request& request;
  Conn_FormWriter& frame;
  Outcome outcome;
  std::string refusal;  // of a change, where the store has not refused it
};

// What a handler finds, in the form that the command's row says. False when it has no such form.
template <Reply reply>
using Form = std::integral_constant<Reply, reply>;

bool write(Work& work, Form<Reply::SUCCESS_CODE>, int code) {
  write_success(work.frame, code);
  work.outcome.result = code;
  if (code || work.request.row->effect != Effect::CHANGES) return true;
  std::string why = work.store.TakeRefusal();
  if (!work.refusal.empty()) why = work.refusal;
  write_reason(work.frame, why.empty() ? "the store does not take it" : why);
  return true;
}

bool write(Work& work, Form<Reply::NUMBER>, int found) {
  write_number(work.frame, found);
  return true;
}

bool write(Work& work, Form<Reply::STRING>, const RWCString& found) {
  write_text(work.frame, found);
  return true;
}

bool write(Work& work, Form<Reply::SUBTREE>, CFG_SubTree* found) {
  if (write_sub_tree(work.frame, SubTree(found), work.store)) return true;
  work.outcome.reason = work.request.path.str() + " holds what no byte array can hold";
  return false;
}

// Of what is directly below a key. The store answers alike for a key without any and for none.
template <class Found>
struct Below {
  std::unique_ptr<Found> found;
  bool is_key = false;
};

bool write(Work& work, Form<Reply::LIST>, Below<String_Arr> names) {
  names.found || !names.is_key ? write_list(work.frame, std::move(names.found))
                               : write_empty_list(work.frame);
  return true;
}

bool write(Work& work, Form<Reply::PATH_VALUES>, Below<Tree_PathAndValueArray> values) {
  values.found || !values.is_key ? write_records(work.frame, std::move(values.found))
                                 : write_empty_list(work.frame);
  return true;
}

// A client takes an empty rule for none.
struct ByRule {
  RWCString value, rule;
};

bool write(Work& work, Form<Reply::FOUND_VALUE>, const ByRule& found) {
  write_found(work.frame, found.value, found.rule);
  return true;
}

// For operations that take a path which they may change.
RWCString path_of(const Work& work) { return work.request.path; }

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

int write_sub(Work& work) {
  const std::string_view bytes = work.request.subtree;
  const SubTree tree(CFG_RepositoryServices::CreateSubTreeFromByteArray(
      bytes.data(), static_cast<int>(bytes.size())));
  if (!tree) {
    work.refusal = "the subtree is not well formed";
    return 0;
  }
  work.outcome.changed = described(*tree, work.request.path);
  Tree_NodePtr top = tree->GetData();
  return work.store.WriteSubTree(top, work.request.path);
}

ByRule found_by_rule(Work& work) {
  const RWCString& name = work.request.value_name;
  std::optional<StoreRepository::OneState> state;
  if (work.request.rules.size() > 1) state.emplace(work.store);
  for (const RWCString& rule : work.request.rules) {
    const RWCString value = work.store.GetValue(rule.isNull() ? name : rule + "\\" + name);
    if (!value.isNull()) return {value, rule.isNull() ? name : rule};
  }
  return {};
}

CFG_SubTree* sub_tree_by_rule(Work& work) {
  const std::vector<const char*> rules = work.request.rule_texts();
  auto* texts = const_cast<const char**>(rules.data());
  const int count = static_cast<int>(rules.size());
  return work.store.GetSubTree(work.request.path, texts, work.request.merge, count);
}

CFG_SubTree* sub_tree_with_values_by_rule(Work& work) {
  const std::vector<const char*> rules = work.request.rule_texts();
  auto* texts = const_cast<const char**>(rules.data());
  const int count = static_cast<int>(rules.size());
  return work.store.GetSubTreeOnlyWithValues(work.request.path, texts, work.request.merge, count);
}

Below<String_Arr> key_names(Work& work) {
  const StoreRepository::OneState state(work.store);
  std::unique_ptr<String_Arr> names(work.store.GetSubTreePaths(work.request.path));
  const bool is_key = names || work.store.IsSubTreeExist(work.request.path);
  return {std::move(names), is_key};
}

Below<Tree_PathAndValueArray> values(Work& work) {
  const StoreRepository::OneState state(work.store);
  std::unique_ptr<Tree_PathAndValueArray> found(work.store.GetSubTreeValues(work.request.path));
  const bool is_key = found || work.store.IsSubTreeExist(work.request.path);
  return {std::move(found), is_key};
}

struct Handler {
  Command command;
  Cost cost;
  bool (*run)(Work&);
};

using enum Cost;

// `Find` is a function without a state, made where it is called.
template <Command command, class Find>
constexpr Handler handler(Cost cost, Find) {
  return {command, cost,
          [](Work& work) { return write(work, Form<row_of(command).reply>(), Find()(work)); }};
}

// In the order of the commands; those that are not here are the session's or streamed.
constexpr Handler handlers[] = {
    handler<Command::SET_VALUE>(
        SHORT, [](Work& w) { return w.store.SetValue(w.request.path, w.request.value); }),
    handler<Command::DEL_VAL>(SHORT, [](Work& w) { return w.store.DeleteValue(w.request.path); }),
    handler<Command::DEL_SUB>(LONG, [](Work& w) { return w.store.DeleteSubTree(w.request.path); }),
    handler<Command::WRITE_SUB>(LONG, [](Work& w) { return write_sub(w); }),
    handler<Command::GET_VAL>(QUICK, [](Work& w) { return w.store.GetValue(w.request.path); }),
    handler<Command::GET_VAL_INX>(SHORT,
                                  [](Work& w) {
                                    RWCString path = path_of(w);
                                    return w.store.GetValue(path, w.request.index);
                                  }),
    handler<Command::GET_VAL_NAME>(SHORT,
                                   [](Work& w) {
                                     RWCString path = path_of(w);
                                     return w.store.GetValueName(path, w.request.index);
                                   }),
    handler<Command::GET_VAL_NUM>(SHORT,
                                  [](Work& w) {
                                    RWCString path = path_of(w);
                                    return w.store.GetValueNum(path);
                                  }),
    handler<Command::GET_SUB_NUM>(SHORT,
                                  [](Work& w) {
                                    RWCString path = path_of(w);
                                    return w.store.GetSubTreeNum(path);
                                  }),
    handler<Command::GET_SUB_ENTRIES_COUNT>(
        LONG, [](Work& w) { return w.store.GetSubTreeEntriesCount(w.request.path); }),
    handler<Command::GET_SUB_EXISTS>(
        QUICK, [](Work& w) { return w.store.IsSubTreeExist(w.request.path); }),
    handler<Command::GET_SUB_PATHS>(SHORT, [](Work& w) { return key_names(w); }),
    handler<Command::GET_SUB_TREE_VALUES>(SHORT, [](Work& w) { return values(w); }),
    handler<Command::GET_SUB_INX>(LONG,
                                  [](Work& w) {
                                    RWCString path = path_of(w);
                                    return w.store.GetSubTree(path, w.request.index);
                                  }),
    handler<Command::GET_SUB_MERGE>(LONG, [](Work& w) { return sub_tree_by_rule(w); }),
    handler<Command::GET_SUB_TREE_ONLY_WITH_VALUES>(
        LONG, [](Work& w) { return sub_tree_with_values_by_rule(w); }),
    handler<Command::GET_SUB_LONG_VALUE>(
        LONG, [](Work& w) { return w.store.GetSubTreeWithLongValues(w.request.path); }),
    handler<Command::GET_SUB_LONG_VALUE_WILDCARD>(
        LONG, [](Work& w) { return w.store.GetSubTreeWithPrecentAndWildcard(w.request.path); }),
    handler<Command::GET_SUB_WITH_VALUE_PRECENT_WILDCARD>(
        LONG,
        [](Work& w) {
          return w.store.GetSubTreeOnlyWithValuesWithPrecentAndWildcard(w.request.path);
        }),
    handler<Command::GET_VALUE_BY_SEARCH_RULE>(QUICK, [](Work& w) { return found_by_rule(w); }),
    handler<Command::FILL_PATH>(
        LONG,
        [](Work& w) {
          return Below<String_Arr>{std::unique_ptr<String_Arr>(w.store.FillPath(w.request.path))};
        }),
    handler<Command::FILL_PATH_NAME_VALUE>(
        LONG,
        [](Work& w) {
          return w.store.FillPath(w.request.path, w.request.value_name, w.request.value);
        }),
    handler<Command::GET_NODE_NAME>(SHORT,
                                    [](Work& w) { return w.store.GetNodeName(w.request.path); }),
    handler<Command::GET_NODE_NAME_BY_IP>(
        SHORT, [](Work& w) { return w.store.GetNodeNameByIp(w.request.path); }),
    handler<Command::SERV_NODE_NAME>(QUICK, [](Work& w) { return w.store.GetServerNodeName(); }),
    handler<Command::GET_MAX_SEQ>(QUICK, [](Work& w) { return w.store.GetMaxSeqNumber(); }),
    handler<Command::GET_MAX_SEQ_PATH>(
        LONG, [](Work& w) { return w.store.GetMaxSeqNumber(w.request.path); }),
    handler<Command::GET_DEL_MIN_SEQ>(
        QUICK, [](Work& w) { return w.store.GetMinSeqNumberOfDeletedEntry(); }),
    handler<Command::GET_DB_DATETIME>(QUICK, [](Work& w) { return w.store.GetDbServerDateTime(); }),
    handler<Command::GET_SERVER_SYNC_ID>(QUICK, [](Work& w) { return w.store.GetServerSyncID(); }),
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
  Work work{store, request, frame, {}, {}};
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
