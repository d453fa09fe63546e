#include "change.h"

#include <tree/Tree_Node.h>

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

void require(const std::string& what, const std::function<int()>& write) {
  const Reasons reasons;
  if (!write()) throw Failure(REFUSED, with_reason(what, reasons));
}

}  // namespace cli
