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

}  // namespace

int change_tree(Session& session, const std::string& done,
                const std::function<void(CFG_RepositoryServices& draft)>& edit) {
  Store& store = session.store();
  Tree_Node* before = store.node(store.root());
  CFG_SubTree after(before->DuplicateFromHereDown(true));
  CFG_MemoryRepository draft(&after);
  edit(draft);

  const auto changes = find_differences(before, after.GetData().get());
  if (!session.arguments.dry_run && !changes.empty()) {
    const Activity activity("saving " + store.name());
    store.replace_tree(after);
  }
  print_changes(session, changes);
  if (!done.empty() && !session.arguments.dry_run)
    say(done + ": " + changes_text(count_changes(changes)));
  return DONE;
}

void require(const std::string& what, const std::function<int()>& write) {
  const Reasons reasons;
  if (!write()) throw Failure(REFUSED, with_reason(what, reasons));
}

}  // namespace cli
