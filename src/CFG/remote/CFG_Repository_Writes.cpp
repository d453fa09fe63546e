// The operations that write.
#include <CFG/CFG_Connector.h>
#include <CFG/CFG_PerformanceEvent.h>
#include <CFG/CFG_Repository.h>
#include <CFG/CFG_SubTree.h>
#include <CFG/detail/paths.h>
#include <CFG/remote/connector_lease.h>
#include <CFG/remote/connector_pool.h>
#include <CFG/remote/tree_parts.h>
#include <logging/Logger.h>

using cfg::connector_lease;
using cfg::request;

namespace {

constexpr Log_Logger logger("src/CFG/CFG_Repository", 502);
constexpr char kSource[] = "Remote";

// An array up to this is written in one request; the service takes some more.
constexpr uint64_t kLargestArray = uint64_t{16} << 20;

}  // namespace

int CFG_Repository::SetValue(const RWCString& path, const RWCString& value) {
  constexpr char op[] = "CFG_Repository::SetValue";
  if (!IsValidPath(path, op)) return FALSE;
  const RWCString actual = change_string_with_properties(path);
  const CFG_PerformanceEvent event(CFGPerformanceEnabled(), kSource,
                                   CFG_PerformanceEvent::PERFORMANCE_SET_VALUE, actual);
  const connector_lease connector(*this);
  logger.trace("%s: _value_path = %s , _value_data = %s\n", op, actual, value);
  return connector->SetValue(actual, value);
}

int CFG_Repository::DeleteValue(const RWCString& path) {
  if (!IsValidPath(path, "CFG_SubTree::DeleteValue")) return FALSE;
  const RWCString actual = change_string_with_properties(path);
  const CFG_PerformanceEvent event(CFGPerformanceEnabled(), kSource,
                                   CFG_PerformanceEvent::PERFORMANCE_DELETE_VALUE, actual);
  return request(logger, *this, "DeleteValue(): _path = %s\n", CONNECTOR_CALL(DeleteValue), actual);
}

int CFG_Repository::DeleteSubTree(const RWCString& path) {
  if (!IsValidPath(path, "CFG_SubTree::DeleteSubTree")) return FALSE;
  const RWCString actual = change_string_with_properties(path);
  const CFG_PerformanceEvent event(CFGPerformanceEnabled(), kSource,
                                   CFG_PerformanceEvent::PERFORMANCE_DELETE_SUB_TREE, actual);
  return request(logger, *this, "DeleteSubTree(): _path = %s\n", CONNECTOR_CALL(DeleteSubTree),
                 actual);
}

int CFG_Repository::AddOrReplaceSubTree(CFG_SubTree* sub_tree, const RWCString& path) {
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
}

int CFG_Repository::WriteSubTree(Tree_NodePtr& sub_tree, const RWCString& path) {
  const CFG_PerformanceEvent event(CFGPerformanceEnabled(), kSource,
                                   CFG_PerformanceEvent::PERFORMANCE_WRITE_SUB_TREE, path);
  const bool is_large = sub_tree && cfg::byte_array_size(*sub_tree) > kLargestArray;
  return is_large ? write_in_parts(sub_tree, path) : write_array(sub_tree, path);
}

int CFG_Repository::write_array(Tree_NodePtr& sub_tree, const RWCString& path) {
  const connector_lease connector(*this);
  logger.trace("WriteSubTree(): sub_tree , path = %s\n", path);
  return connector->WriteSubTree(sub_tree, path);
}

// Nobody sees a part without the others: they are one update, this thread's own where it has
// none. Of an update that is open already the caller keeps or undoes the whole.
int CFG_Repository::write_in_parts(const Tree_NodePtr& sub_tree, const RWCString& path) {
  const auto write = [&] {
    for (auto& [tree, parent_path] : cfg::tree_parts(sub_tree, path, kLargestArray)) {
      if (!write_array(tree, parent_path)) return FALSE;
    }
    return TRUE;
  };
  if (m_connectors->is_locked()) return write();
  if (!IsInTransaction()) {
    if (!StartTransactionUpdate()) return FALSE;
    const int is_written = write();
    return EndTransactionUpdate(!is_written) && is_written;
  }
  if (!Lock()) return FALSE;
  const int is_written = write();
  if (!is_written) Rollback();
  return UnLock() && is_written;
}

int CFG_Repository::SetOrRanameKeyName(const RWCString& path, const RWCString& key_name) {
  logger.info("SetOrRanameKeyName(): path = %s , key_name = %s\n", path, key_name);
  if (key_name.isNull()) return logger.reject(FALSE, " key_name is empty string, return FALSE\n");
  if (path.isNull()) return logger.reject(FALSE, "path is empty string, return FALSE\n");
  const std::unique_ptr<CFG_SubTree> sub_tree(CFG_Services::GetSubTree(path));
  if (!sub_tree) {
    return logger.reject(
        FALSE, " path <%s> does not exist or not represent a sub tree, return FALSE\n", path);
  }
  Tree_NodePtr tree = sub_tree->GetData();
  tree->SetKeyName(key_name);
  if (!DeleteSubTree(path)) {
    return logger.reject(FALSE, "fail to delete path <%s>, return FALSE\n", path);
  }
  return WriteSubTree(tree, RWCString(cfg::split_path(path).parent));
}
