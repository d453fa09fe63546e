// set, rm, cp, mv, merge.
#include <tree/Tree_Node.h>

#include "change.h"
#include "input_file.h"
#include "paths.h"
#include "verbs.h"

namespace cli {

namespace {

bool is_root(const Store& store, const std::string& path) { return path == store.root(); }

std::string value_to_set(const Arguments& arguments) {
  std::string text = arguments.value;
  if (text == "-") {
    text = InputFile("-").bytes();
    // What `get` has put behind the text.
    if (!text.empty() && text.back() == '\n') text.pop_back();
  }
  if (text.empty()) {
    throw Failure(BAD_INPUT, "an empty text cannot be stored; 'cfg rm' removes a value");
  }
  const std::string fault = value_fault(text);
  if (!fault.empty()) {
    throw Failure(BAD_INPUT, "the text cannot be stored: " + fault +
                                 "; 'cfg blob put --base64' stores any bytes");
  }
  return text;
}

}  // namespace

int run_set(Session& session) {
  const std::string text = value_to_set(session.arguments);
  Store& store = session.store();
  const std::string path = store.writable_path(session.arguments.path);
  const Tree_Node* there = store.node(path);
  if (there && !there->IsLeaf()) throw Failure(REFUSED, path + " is a key and cannot hold a text");
  return change_tree(session, {path}, "",
                     [&](CFG_RepositoryServices& draft) { write_value(draft, path, text); });
}

int run_rm(Session& session) {
  Store& store = session.store();
  std::set<std::string> keys, values;
  for (const std::string& typed : session.arguments.paths) {
    const std::string path = store.path(typed);
    const Tree_Node* node = store.node(path);
    if (!node) throw store.not_found(path);
    if (is_root(store, path)) throw Failure(REFUSED, path + " is the root and cannot be removed");
    (node->IsLeaf() ? values : keys).insert(path);
  }
  std::set<std::string> all = keys;
  all.insert(values.begin(), values.end());
  return change_tree(session, all, "rm", [&](CFG_RepositoryServices& draft) {
    for (const std::string& path : values) remove(draft, path, true);
    for (const std::string& path : keys) remove(draft, path, false);
  });
}

namespace {

// Where a copy goes. `cp` and `mv` share it.
struct Move {
  std::string source, target;
  bool is_value;
};

Move move_of(Session& session) {
  const Arguments& arguments = session.arguments;
  Store& store = session.store();
  Move move;
  move.source = store.path(arguments.path);
  const Tree_Node* node = store.node(move.source);
  if (!node) throw store.not_found(move.source);
  move.is_value = node->IsLeaf();

  move.target = store.writable_path(arguments.target);
  if (ends_with_separator(arguments.target)) {
    move.target = child_of(move.target, name_of(move.source));
  }
  const Tree_Node* there = store.node(move.target);
  if (is_root(store, move.target)) {
    throw Failure(REFUSED, move.target + " is the root and cannot be replaced");
  }
  if (there && there != node && !arguments.force) {
    throw Failure(REFUSED, move.target + " is there already; --force replaces it" +
                               (there->IsLeaf() ? "" : ", 'cfg merge' adds to it"));
  }
  return move;
}

void write_copy(Store& store, CFG_RepositoryServices& draft, const Move& move) {
  Tree_Node* source = store.node(move.source);
  if (move.is_value) {
    // A key of that name would stay in the way.
    if (draft.IsSubTreeExist(RWCString(move.target))) remove(draft, move.target, false);
    require("cannot write " + move.target,
            [&] { return draft.SetValue(RWCString(move.target), RWCString(source->GetText())); });
    return;
  }
  const Tree_NodePtr copy = source->DuplicateFromHereDown(true);
  copy->SetKeyName(name_of(move.target));
  CFG_SubTree tree(copy);
  require("cannot write " + move.target,
          [&] { return draft.AddOrReplaceSubTree(&tree, RWCString(parent_of(move.target))); });
}

}  // namespace

int run_cp(Session& session) {
  const Move move = move_of(session);
  if (move.source == move.target) throw Failure(REFUSED, move.source + " is source and target");
  return change_tree(session, {move.target}, "cp", [&](CFG_RepositoryServices& draft) {
    write_copy(session.store(), draft, move);
  });
}

int run_mv(Session& session) {
  const Move move = move_of(session);
  if (is_root(session.store(), move.source)) {
    throw Failure(REFUSED, move.source + " is the root and cannot be moved");
  }
  if (is_within(move.target, move.source)) {
    throw Failure(REFUSED, move.source + " cannot be moved to " + move.target +
                               ", which is itself or below it");
  }
  // The source would go with what is replaced.
  if (is_within(move.source, move.target)) {
    throw Failure(REFUSED, move.target + " holds " + move.source + " and cannot be replaced by it");
  }
  return change_tree(session, {move.source, move.target}, "mv", [&](CFG_RepositoryServices& draft) {
    remove(draft, move.source, move.is_value);
    write_copy(session.store(), draft, move);
  });
}

int run_merge(Session& session) {
  Store& store = session.store();
  const std::string source = store.path(session.arguments.path);
  const std::string target = store.writable_path(session.arguments.target);
  Tree_Node& from = store.key(source);
  const Tree_Node* there = store.node(target);
  if (there && there->IsLeaf()) throw Failure(REFUSED, target + " is a value and not a key");

  const Tree_NodePtr copy = from.DuplicateFromHereDown(true);
  copy->SetKeyName(name_of(target));
  CFG_SubTree tree(copy);
  const RWCString parent(parent_of(target));
  return change_tree(session, {target}, "merge", [&](CFG_RepositoryServices& draft) {
    require("cannot merge into " + target, [&] {
      return session.arguments.keep ? draft.AddMoreInfoToSubTree(&tree, parent)
                                    : draft.AddOrReplaceSubTree(&tree, parent, TRUE);
    });
  });
}

}  // namespace cli
