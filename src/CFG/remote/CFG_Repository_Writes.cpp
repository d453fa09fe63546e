// The operations that write.
#include <CFG/CFG_Connector.h>
#include <CFG/CFG_PerformanceEvent.h>
#include <CFG/CFG_Repository.h>
#include <CFG/CFG_SubTree.h>
#include <CFG/detail/answered.h>
#include <CFG/detail/key_renaming.h>
#include <CFG/remote/connector_lease.h>
#include <CFG/remote/tree_parts.h>
#include <logging/Logger.h>
#include <tree/Tree_Node.h>

using cfg::connector_lease;
using cfg::request;

namespace {

constexpr Log_Logger logger("src/CFG/CFG_Repository", 502);
constexpr char kSource[] = "Remote";

// An array up to this is written in one request; the service takes some more.
constexpr uint64_t kLargestArray = uint64_t{16} << 20;

}  // namespace

int CFG_Repository::SetValue(const RWCString& path, const RWCString& value) try {
  constexpr char op[] = "CFG_Repository::SetValue";
  if (!IsValidPath(path, op)) return FALSE;
  const RWCString actual = change_string_with_properties(path);
  const CFG_PerformanceEvent event(CFGPerformanceEnabled(), kSource,
                                   CFG_PerformanceEvent::PERFORMANCE_SET_VALUE, actual);
  const connector_lease connector(*this);
  logger.trace("%s: _value_path = %s , _value_data = %s\n", op, actual, value);
  return connector->SetValue(actual, value);
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_Repository::DeleteValue(const RWCString& path) try {
  if (!IsValidPath(path, "CFG_SubTree::DeleteValue")) return FALSE;
  const RWCString actual = change_string_with_properties(path);
  const CFG_PerformanceEvent event(CFGPerformanceEnabled(), kSource,
                                   CFG_PerformanceEvent::PERFORMANCE_DELETE_VALUE, actual);
  return request(logger, *this, "DeleteValue(): _path = %s\n", CONNECTOR_CALL(DeleteValue), actual);
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_Repository::DeleteSubTree(const RWCString& path) try {
  if (!IsValidPath(path, "CFG_SubTree::DeleteSubTree")) return FALSE;
  const RWCString actual = change_string_with_properties(path);
  const CFG_PerformanceEvent event(CFGPerformanceEnabled(), kSource,
                                   CFG_PerformanceEvent::PERFORMANCE_DELETE_SUB_TREE, actual);
  return request(logger, *this, "DeleteSubTree(): _path = %s\n", CONNECTOR_CALL(DeleteSubTree),
                 actual);
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_Repository::AddOrReplaceSubTree(CFG_SubTree* sub_tree, const RWCString& path) try {
  if (!sub_tree) {
    return logger.reject(
        FALSE,
        "AddOrReplaceSubTree(CFG_SubTree* sub_tree,const RWCString & path), sub_tree is NULL, return FALSE\n");
  }
  if (!IsValidPath(path, "CFG_SubTree::AddOrReplaceSubTree")) return FALSE;
  const RWCString actual = change_string_with_properties(path);
  logger.trace("AddOrReplaceSubTree(): sub_tree , _path = %s\n", actual);
  Tree_NodePtr tree = sub_tree->GetData();
  return WriteSubTree(tree, actual);
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_Repository::WriteSubTree(Tree_NodePtr& sub_tree, const RWCString& path) try {
  const CFG_PerformanceEvent event(CFGPerformanceEnabled(), kSource,
                                   CFG_PerformanceEvent::PERFORMANCE_WRITE_SUB_TREE, path);
  const bool is_large = sub_tree && cfg::byte_array_size(*sub_tree) > kLargestArray;
  return is_large ? write_in_parts(sub_tree, path) : write_array(sub_tree, path);
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_Repository::write_array(Tree_NodePtr& sub_tree, const RWCString& path) {
  const connector_lease connector(*this);
  logger.trace("WriteSubTree(): sub_tree , path = %s\n", path);
  return connector->WriteSubTree(sub_tree, path);
}

int CFG_Repository::write_in_parts(const Tree_NodePtr& sub_tree, const RWCString& path) {
  return in_one_update([&] {
    for (auto& [tree, parent_path] : cfg::tree_parts(sub_tree, path, kLargestArray)) {
      if (!write_array(tree, parent_path)) return FALSE;
    }
    return TRUE;
  });
}

int CFG_Repository::SetOrRanameKeyName(const RWCString& path, const RWCString& key_name) try {
  logger.info("SetOrRanameKeyName(): path = %s , key_name = %s\n", path, key_name);
  if (key_name.isNull()) return logger.reject(FALSE, " key_name is empty string, return FALSE\n");
  if (path.isNull()) return logger.reject(FALSE, "path is empty string, return FALSE\n");
  const cfg::key_renaming asked(path, key_name);
  if (asked.fault) {
    return logger.reject(FALSE, " path <%s> can not be renamed to <%s>: %s, return FALSE\n", path,
                         key_name, asked.fault);
  }
  return in_one_update([&] { return rename(asked); });
} catch (...) {
  return cfg::answered(logger, FALSE);
}

// Within an update. The old tree goes when the new one is there: an update that its caller keeps
// although the rename failed has lost nothing.
int CFG_Repository::rename(const cfg::key_renaming& asked) {
  const std::unique_ptr<CFG_SubTree> sub_tree(CFG_Services::GetSubTree(asked.from));
  if (!sub_tree) {
    return logger.reject(
        FALSE, " path <%s> does not exist or not represent a sub tree, return FALSE\n", asked.from);
  }
  if (asked.changes_nothing()) return TRUE;
  if (is_taken(asked.to)) {
    return logger.reject(FALSE, " path <%s> can not be renamed, <%s> is there, return FALSE\n",
                         asked.from, asked.to);
  }
  Tree_NodePtr tree = sub_tree->GetData();
  tree->SetKeyName(cfg::split_path(asked.to).name);
  // Not held against path validation: it is there.
  const auto remove = [this](const RWCString& at) {
    return connector_lease(*this)->DeleteSubTree(at);
  };
  const int is_written = WriteSubTree(tree, asked.parent);
  if (is_written && remove(asked.from)) return TRUE;
  remove(asked.to);
  if (!is_written) {
    return logger.reject(FALSE, "fail to write path <%s>, return FALSE\n", asked.to);
  }
  return logger.reject(FALSE, "fail to delete path <%s>, return FALSE\n", asked.from);
}

bool CFG_Repository::is_taken(const RWCString& path) {
  const cfg::failure_watch reads;
  if (IsSubTreeExist(path) || !GetValue(path).isNull()) return true;
  reads.check();
  return false;
}
