#include "change.h"

#include <tree/Tree_Node.h>

#include "activity.h"
#include "differences.h"
#include "library_log.h"
#include "paths.h"

namespace cli {

namespace {

void print_changes(Session& session, const std::vector<Difference>& changes) {
  if (session.arguments.json) {
    const char* is_dry = session.arguments.dry_run ? "true" : "false";
    JsonRows rows(session.out, std::string("{\"dry_run\":") + is_dry + ",\"changes\":", "}");
    print_differences(rows, changes, 0, 0);
    rows.end();
  } else if (session.arguments.dry_run) {
    print_differences(session.out, changes);
  }
}

}  // namespace

int change_tree(Session& session, const std::set<std::string>& paths, const std::string& done,
                const std::function<void(CFG_RepositoryServices& draft)>& edit) {
  Store& store = session.store();
  const bool is_dry = session.arguments.dry_run;
  const std::unique_ptr<Draft> draft = store.draft(paths);
  std::vector<Difference> changes;
  {
    const Activity activity("changing " + store.name());
    edit(draft->repository());
    changes = draft->changes();
    if (!is_dry && !changes.empty()) draft->save();
  }
  print_changes(session, changes);
  if (!done.empty() && !is_dry) say(done + ": " + changes_text(count_changes(changes)));
  return DONE;
}

namespace {

bool is_refused(CFG_RepositoryServices& draft, std::string_view path) {
  const Reasons unheard;
  return !draft.IsValidPath(RWCString(path), "cfg");
}

// Writes to a key of a path that validation refuses, by way of a copy of the last key above it
// that it takes.
void write_from_above(CFG_RepositoryServices& draft, const std::string& path,
                      const std::string& what, const std::function<void(Tree_Node& key)>& write) {
  std::string_view above = path;
  while (is_refused(draft, above) && !parent_of(above).empty()) above = parent_of(above);
  const std::unique_ptr<CFG_SubTree> tree(draft.GetSubTree(RWCString(above)));
  const std::string_view below =
      std::string_view(path).substr(std::min(above.size() + 1, path.size()));
  Tree_Node* key = tree ? tree->GetData()->Find(below) : nullptr;
  if (!key) return;  // it has gone with one above it
  write(*key);
  require(what, [&] { return draft.AddOrReplaceSubTree(tree.get(), RWCString(parent_of(above))); });
}

}  // namespace

void write_value(CFG_RepositoryServices& draft, const std::string& path, const std::string& text) {
  const std::string what = "cannot set " + path;
  if (!is_refused(draft, path)) {
    require(what, [&] { return draft.SetValue(RWCString(path), RWCString(text)); });
    return;
  }
  write_from_above(draft, std::string(parent_of(path)), what, [&](Tree_Node& key) {
    if (Tree_Node* value = key.Child(name_of(path))) value->GetTreeValue()->SetText(text);
  });
}

void remove(CFG_RepositoryServices& draft, const std::string& path, bool is_value) {
  const std::string what = "cannot remove " + path;
  const RWCString given(path);
  if (is_refused(draft, path)) {
    write_from_above(draft, std::string(parent_of(path)), what,
                     [&](Tree_Node& key) { key.Remove(RWCString(name_of(path))); });
  } else if (is_value && !draft.GetValue(given).isNull()) {
    require(what, [&] { return draft.DeleteValue(given); });
  } else if (!is_value && draft.IsSubTreeExist(given)) {
    require(what, [&] { return draft.DeleteSubTree(given); });
  }
}

void require(const std::string& what, const std::function<int()>& write) {
  const Reasons reasons;
  if (!write()) throw Failure(REFUSED, with_reason(what, reasons));
}

}  // namespace cli
