// Looking in the places of a search rule.
#pragma once

#include <CFG/CFG_ServicesImp.h>
#include <CFG/CFG_SubTree.h>
#include <CFG/detail/answered.h>
#include <CFG/detail/paths.h>
#include <logging/Logger.h>
#include <tree/Tree_Node.h>

namespace cfg {

// A read by a search rule: path prefixes in order of priority, as callers pass them, an array of
// texts, of which one that is null counts as empty. Refers to what the operation `op` was given.
struct rule_read {
  const Log_Logger& logger;
  const char* op;
  const RWCString& name;
  const char** prefixes;
  int count;

  // Calls `visit` with each place where the name is looked for, and its prefix, in order until it
  // answers true. False for a bad rule, after a line in the log. Throws when a look failed: what
  // has priority may be there.
  template <class Visit>
  bool each_candidate(Visit visit) const {
    if (!CFG_ServicesImp::CheckSearchRule(op, name, prefixes, count)) return false;
    const failure_watch reads;
    for (int i = 0; i < count; ++i) {
      const RWCString prefix(prefixes[i]);
      if (visit(join(prefix.str(), name), prefix)) break;
      reads.check();
    }
    return true;
  }
};

// The first subtree that `read` finds at a candidate, null after a line in the log when there is
// none; owned by the caller.
template <class Read>
CFG_SubTree* first_found(const rule_read& asked, Read read) try {
  CFG_SubTree* found = nullptr;
  const bool is_valid = asked.each_candidate([&](const RWCString& candidate, const RWCString&) {
    found = read(candidate);
    return found != nullptr;
  });
  if (is_valid && !found) asked.logger.trace("%s : sub tree not found , return NULL\n", asked.op);
  return found;
} catch (...) {
  return answered(asked.logger, nullptr, asked.op);
}

// The same of all trees that `read` finds at the candidates, laid over each other by `combine`;
// those of earlier candidates are on top.
template <class Read>
CFG_SubTree* all_found(const rule_read& asked, Read read,
                       Tree_NodePtr combine(const Tree_NodePtr& base,
                                            const Tree_NodePtr& overlay)) try {
  Tree_NodePtr result;
  const bool is_valid = asked.each_candidate([&](const RWCString& candidate, const RWCString&) {
    const Tree_NodePtr found = read(candidate);
    if (found && !found->IsLeaf()) result = result ? combine(found, result) : found;
    return false;
  });
  if (!is_valid) return nullptr;
  if (!result) {
    return asked.logger.reject_at(LOG_LEVEL_TRACE, nullptr,
                                  "%s : sub tree not found , return NULL\n", asked.op);
  }
  Tree_Node::ChangeTreeNodePtrProtection(result, Tree_Node::TRUE_BOOL);
  return new CFG_SubTree(result);
} catch (...) {
  return answered(asked.logger, nullptr, asked.op);
}

}  // namespace cfg
