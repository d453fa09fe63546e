#include "change.h"

#include <CFG/CFG_MemoryRepository.h>

#include "activity.h"
#include "differences.h"
#include "library_log.h"

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

using Edit = std::function<void(CFG_RepositoryServices& draft)>;
using Changes = std::vector<Difference>;

void change_copy(Session& session, const Edit& edit,
                 const std::function<void(const Changes&)>& tell) {
  Store& store = session.store();
  Tree_Node* before = store.node(store.root());
  CFG_SubTree after(before->DuplicateFromHereDown(true));
  CFG_MemoryRepository draft(&after);
  edit(draft);

  const Changes changes = find_differences(before, after.GetData().get());
  if (!session.arguments.dry_run && !changes.empty()) {
    const Activity activity("saving " + store.name());
    store.replace_tree(after);
  }
  tell(changes);
}

// The update sees its own changes before anybody else does, and so can be tried.
void change_shared(Session& session, const std::set<std::string>& paths, const Edit& edit,
                   const std::function<void(const Changes&)>& tell) {
  SharedTree& shared = *session.store().shared();
  CFG_SubTree before = shared.mirror().copy(paths);
  const Activity activity("changing " + shared.name());
  edit(shared.repository());
  shared.mirror().forget();
  CFG_SubTree after = shared.mirror().copy(paths);
  const Changes changes = find_differences(before.GetData().get(), after.GetData().get());
  if (!session.arguments.dry_run && !changes.empty()) shared.commit();
  tell(changes);
}

}  // namespace

int change_tree(Session& session, const std::set<std::string>& paths, const std::string& done,
                const Edit& edit) {
  const auto tell = [&](const Changes& changes) {
    print_changes(session, changes);
    if (!done.empty() && !session.arguments.dry_run) {
      say(done + ": " + changes_text(count_changes(changes)));
    }
  };
  if (session.store().shared()) {
    change_shared(session, paths, edit, tell);
  } else {
    change_copy(session, edit, tell);
  }
  return DONE;
}

void require(const std::string& what, const std::function<int()>& write) {
  const Reasons reasons;
  if (!write()) throw Failure(REFUSED, with_reason(what, reasons));
}

}  // namespace cli
