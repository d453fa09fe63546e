// Changes of the tree.
#pragma once

#include <functional>
#include <set>
#include <string>

#include <CFG/CFG_RepositoryServices.h>

#include "session.h"

namespace cli {

// Runs `edit`, which changes what is at or below `paths` and nothing else, on a draft, which is
// saved once and only if it differs. When it throws, nothing is changed. With --dry-run the
// differences are printed and nothing is saved. `done` begins the line of talk that sums up a
// change; without it there is none.
int change_tree(Session& session, const std::set<std::string>& paths, const std::string& done,
                const std::function<void(CFG_RepositoryServices& draft)>& edit);

// Write one value, or remove what is at a path if it is still there. A refused write is a Failure.
// What exists can be written and removed also where path validation refuses its path.
void write_value(CFG_RepositoryServices& draft, const std::string& path, const std::string& text);
void remove(CFG_RepositoryServices& draft, const std::string& path, bool is_value);

// Runs one write of the library; a refused one is a Failure, which begins with `what` and
// ends with the library's reason.
void require(const std::string& what, const std::function<int()>& write);

}  // namespace cli
