// The operations that are one request each.
#include <CFG/CFG_Connector.h>
#include <CFG/CFG_PerformanceEvent.h>
#include <CFG/CFG_Repository.h>
#include <CFG/CFG_SubTree.h>
#include <CFG/detail/connector_lease.h>
#include <CFG/detail/paths.h>
#include <CFG/detail/tree_parts.h>
#include <logging/Logger.h>

using cfg::connector_lease;

namespace {

constexpr Log_Logger logger("src/CFG/CFG_Repository", 502);
constexpr char kSource[] = "Remote";

// An array up to this is written in one request; the service takes some more.
constexpr uint64_t kLargestArray = uint64_t{16} << 20;

using SubTreePtr = std::unique_ptr<CFG_SubTree>;

// Every operation: lease a connector, log the entry line, ask, give back.
template <class Call, class... A>
auto request(CFG_Repository* repository, Log_Format<A...> entry, Call call, const A&... args) {
  const connector_lease connector(*repository);
  logger.trace(entry, args...);
  return call(*connector, args...);
}

#define CONNECTOR_CALL(operation) \
  [](CFG_Connector& connector, const auto&... args) { return connector.operation(args...); }

CFG_SubTree* sub_tree_of(const Tree_NodePtr& tree) {
  return tree ? new CFG_SubTree(tree) : nullptr;
}

// The subtree in the bytes that `read` gets. It hangs under the key at `parent_path`.
template <class Read>
CFG_SubTree* sub_tree_of_bytes(Read read, std::string_view parent_path = {}) {
  long length = 0;
  const std::unique_ptr<char[]> bytes(read(length));
  CFG_SubTree* sub_tree =
      CFG_RepositoryServices::CreateSubTreeFromByteArray(bytes.get(), static_cast<int>(length));
  if (sub_tree && !parent_path.empty()) {
    sub_tree->GetData()->SetVirtualParentPath(RWCString(parent_path));
  }
  return sub_tree;
}

// A search rule with its properties in place.
class ActualRule {
 public:
  ActualRule(CFG_ServicesImp& services, const char** rule, int count) {
    for (int i = 0; i < count; ++i) {
      m_texts.push_back(services.change_string_with_properties(RWCString(rule[i])));
    }
    for (const RWCString& text : m_texts) m_pointers.push_back(text.data());
  }
  const std::vector<RWCString>& texts() const { return m_texts; }
  const char** pointers() { return m_pointers.data(); }
  int count() const { return static_cast<int>(m_texts.size()); }

 private:
  std::vector<RWCString> m_texts;
  std::vector<const char*> m_pointers;
};

}  // namespace

// --- values and counts -----------------------------------------------------------------------

RWCString CFG_Repository::GetValue(const RWCString& path) {
  const RWCString actual = change_string_with_properties(path);
  const CFG_PerformanceEvent event(CFGPerformanceEnabled(), kSource,
                                   CFG_PerformanceEvent::PERFORMANCE_GET_VALUE, actual);
  return request(this, "GetValue(): _path = %s\n", CONNECTOR_CALL(GetValue), actual);
}

RWCString CFG_Repository::GetValue(RWCString& path, int index) {
  return request(this, "GetValue(): _path = %s , index = %d\n", CONNECTOR_CALL(GetValue),
                 change_string_with_properties(path), index);
}

Tree_ValueAndPath* CFG_Repository::GetValue(RWCString name, const char** search_rule,
                                            int search_num) {
  constexpr char op[] =
      "GetValue(const RWCString value_name,const char** search_rule,int search_num)";
  logger.trace("GetValue(): value_name = %s\n", name);
  if (name.isNull()) {
    return logger.reject(nullptr, "%s : value_name is an empty string , return NULL\n", op);
  }
  if (!CheckSearchRule(op, name, search_rule, search_num)) return nullptr;
  const connector_lease connector(*this);
  logger.trace("GetValue(): value name = %s\n", name);
  ActualRule rule(*this, search_rule, search_num);
  for (const RWCString& text : rule.texts()) logger.trace("GetValue(): search_rule = %s\n", text);
  char *value = nullptr, *path = nullptr;
  if (connector->GetValue(name.data(), rule.pointers(), rule.count(), &value, &path) != 0) {
    return nullptr;
  }
  const std::unique_ptr<char[]> owned_value(value), owned_path(path);
  return new Tree_ValueAndPath(path, value);
}

RWCString CFG_Repository::GetValueName(RWCString& path, int index) {
  return request(this, "GetValueName(): _path = %s , index = %d\n", CONNECTOR_CALL(GetValueName),
                 change_string_with_properties(path), index);
}

int CFG_Repository::GetValueNum(RWCString& path) {
  return request(this, "GetValueNum(): _path = %s\n", CONNECTOR_CALL(GetValueNum),
                 change_string_with_properties(path));
}

int CFG_Repository::GetSubTreeNum(RWCString& path) {
  return request(this, "GetSubTreeNum(): _path = %s\n", CONNECTOR_CALL(GetSubTreeNum),
                 change_string_with_properties(path));
}

int CFG_Repository::GetSubTreeEntriesCount(const RWCString& path) {
  return request(this, "GetSubTreeEntriesCount(): _path = %s\n",
                 CONNECTOR_CALL(GetSubTreeEntriesCount), change_string_with_properties(path));
}

int CFG_Repository::IsSubTreeExist(const RWCString& path) {
  return request(this, "IsSubTreeExist(): _path = %s\n", CONNECTOR_CALL(IsSubTreeExist),
                 change_string_with_properties(path));
}

String_Arr* CFG_Repository::GetSubTreePaths(const RWCString& path) {
  return request(this, "GetSubTreePaths(): _path = %s\n", CONNECTOR_CALL(GetSubTreePaths),
                 change_string_with_properties(path));
}

Tree_PathAndValueArray* CFG_Repository::GetSubTreeValues(const RWCString& path) {
  const RWCString actual = change_string_with_properties(path);
  const connector_lease connector(*this);
  logger.detail("_path = <%s>\n", actual);
  return connector->GetSubTreeValues(actual);
}

// --- wildcards, nodes, the store -------------------------------------------------------------

String_Arr* CFG_Repository::FillPath(RWCString path) {
  return request(this, "FillPath(): _path = %s\n", CONNECTOR_CALL(FillPath),
                 change_string_with_properties(path));
}

RWCString CFG_Repository::FillPath(RWCString path, RWCString value_name, RWCString value_data) {
  return request(this, "FillPath(): _path = %s , value_name = %s , value_data = %s\n",
                 CONNECTOR_CALL(FillPath), change_string_with_properties(path), value_name,
                 value_data);
}

RWCString CFG_Repository::GetNodeName(RWCString ae) {
  return request(this, "GetNodeName(): ae = %s\n", CONNECTOR_CALL(GetNodeName), ae);
}

RWCString CFG_Repository::GetNodeNameByIp(RWCString ip) {
  return request(this, "GetNodeNameByIp(): ip = %s\n", CONNECTOR_CALL(GetNodeNameByIp), ip);
}

RWCString CFG_Repository::GetDbServerDateTime() {
  return request(this, "Start GetDbServerDateTime()\n", CONNECTOR_CALL(GetDbServerDateTime));
}

RWCString CFG_Repository::GetMaxSeqNumber(const RWCString& path) {
  return request(this, "Start GetMaxSeqNumber\n",
                 [&](CFG_Connector& connector) { return connector.GetMaxSeqNumber(path); });
}

RWCString CFG_Repository::GetMaxSeqNumber() {
  return request(this, "Start GetMaxSeqNumber\n", CONNECTOR_CALL(GetMaxSeqNumber));
}

RWCString CFG_Repository::GetMinSeqNumberOfDeletedEntry() {
  return request(this, "Start GetMinSeqNumberOfDeletedEntry\n",
                 CONNECTOR_CALL(GetMinSeqNumberOfDeletedEntry));
}

RWCString CFG_Repository::GetServerSyncID() {
  const RWCString id = request(this, "Start GetServerSyncID\n", CONNECTOR_CALL(GetServerSyncID));
  logger.trace("got GetServerSyncID %s\n", id);
  return id;
}

void CFG_Repository::SetWorkCompressed(bool compressed) { m_work_compressed = compressed; }

// --- subtrees ----------------------------------------------------------------------------------

CFG_SubTree* CFG_Repository::GetSubTree(RWCString& path) {
  const RWCString actual = change_string_with_properties(path);
  CFG_PerformanceEvent event(CFGPerformanceEnabled(), kSource,
                             CFG_PerformanceEvent::PERFORMANCE_GET_SUB_TREE, actual);
  RWCString everything, tree_path;
  SubTreePtr sub_tree(sub_tree_of(request(
      this, "GetSubTree(): _path = %s\n",
      [&](CFG_Connector& connector, const RWCString& asked) {
        return connector.GetSubTreeBySeqNumber(asked, everything, tree_path, m_work_compressed);
      },
      actual)));
  if (sub_tree && event.is_enabled()) event.set_count(sub_tree->GetSubTreeEntriesCount(""));
  return sub_tree.release();
}

CFG_SubTree* CFG_Repository::GetSubTreeOnlyWithValuesLong(const RWCString& path) {
  RWCString everything, tree_path;
  const Tree_NodePtr tree = request(
      this, "GetSubTree(): _path = %s\n",
      [&](CFG_Connector& connector, const RWCString& asked) {
        return connector.GetSubTreeBySeqNumber(asked, everything, tree_path, m_work_compressed);
      },
      change_string_with_properties(path));
  if (tree) tree->RemoveEmptyBranches();
  return sub_tree_of(tree);
}

CFG_SubTree* CFG_Repository::GetSubTreeOnlyWithValues(const RWCString& path) {
  return GetSubTreeOnlyWithValuesLong(path);
}

CFG_SubTree* CFG_Repository::GetSubTreeBySeqNumber(const RWCString& path, RWCString& seq_number) {
  const RWCString actual = change_string_with_properties(path);
  const connector_lease connector(*this);
  logger.trace("GetSubTreeBySeqNumber(): _path = %s seq_number = %s\n", actual, seq_number);
  RWCString tree_path;
  return sub_tree_of(
      connector->GetSubTreeBySeqNumber(actual, seq_number, tree_path, m_work_compressed));
}

CFG_SubTree* CFG_Repository::GetSubTreeOnlyDeletedNodes(const RWCString& path,
                                                        RWCString& seq_number, bool) {
  const RWCString actual = change_string_with_properties(path);
  const connector_lease connector(*this);
  logger.trace("GetSubTreeOnlyDeletedNodes(): _path = %s seq_number = %s\n", actual, seq_number);
  RWCString tree_path;
  return sub_tree_of(
      connector->GetSubTreeOnlyDeletedNodes(actual, seq_number, tree_path, m_work_compressed));
}

CFG_SubTree* CFG_Repository::GetSubTree(RWCString& path, int index) {
  const RWCString actual = change_string_with_properties(path);
  const connector_lease connector(*this);
  logger.trace("Start GetSubTree(): _path = %s , index = %d \n", actual, index);
  return sub_tree_of_bytes(
      [&](long& length) { return connector->GetSubTree(actual, index, length); }, actual);
}

CFG_SubTree* CFG_Repository::GetSubTree(RWCString name, const char** search_rule, int search_num) {
  return GetSubTree(name, search_rule, FALSE, search_num);
}

CFG_SubTree* CFG_Repository::GetSubTree(RWCString name, const char** search_rule, int merge,
                                        int search_num) {
  constexpr char op[] =
      "GetSubTree(const RWCString name,const char ** search_rule,T_Bool merge,int search_num)";
  if (!CheckSearchRule(op, name, search_rule, search_num)) return nullptr;
  const RWCString actual = change_string_with_properties(name);
  const connector_lease connector(*this);
  logger.trace("GetSubTreeOnlyWithValuesLong(): name = %s\n", actual);
  ActualRule rule(*this, search_rule, search_num);
  for (const RWCString& text : rule.texts()) {
    logger.trace("GetSubTreeOnlyWithValuesLong(): search_rule = %s\n", text);
  }
  return sub_tree_of_bytes([&](long& length) {
    return connector->GetSubTree(actual, rule.pointers(), rule.count(), merge, length);
  });
}

CFG_SubTree* CFG_Repository::GetSubTreeOnlyWithValues(const RWCString& path,
                                                      const char** search_rule, int merge,
                                                      int search_num) {
  constexpr char op[] =
      "GetSubTreeOnlyWithValues(const RWCString & path,const char ** search_rule,T_Bool merge,int search_num)";
  if (!CheckSearchRule(op, path, search_rule, search_num)) return nullptr;
  const RWCString actual = change_string_with_properties(path);
  const connector_lease connector(*this);
  logger.trace("GetSubTreeOnlyWithValuesLong(): _path = %s\n", actual);
  ActualRule rule(*this, search_rule, search_num);
  for (const RWCString& text : rule.texts()) {
    logger.trace("GetSubTreeOnlyWithValuesLong(): search_rule = %s\n", text);
  }
  return sub_tree_of_bytes([&](long& length) {
    return connector->GetSubTreeOnlyWithValues(actual, rule.pointers(), rule.count(), merge,
                                               length);
  });
}

CFG_SubTree* CFG_Repository::GetSubTreeWithLongValues(const RWCString& path) {
  const RWCString actual = change_string_with_properties(path);
  const connector_lease connector(*this);
  logger.trace("GetSubTreeWithLongValues(): _path = %s\n", actual);
  return sub_tree_of_bytes(
      [&](long& length) { return connector->GetSubTreeWithLongValues(actual, length); },
      cfg::split_path(actual).parent);
}

CFG_SubTree* CFG_Repository::GetSubTreeWithPrecentAndWildcard(const RWCString& path) {
  const RWCString actual = change_string_with_properties(path);
  const connector_lease connector(*this);
  logger.trace("GetSubTreeWithPrecentAndWildcard(): _path = %s\n", actual);
  return sub_tree_of_bytes(
      [&](long& length) { return connector->GetSubTreeWithPrecentAndWildcard(actual, length); });
}

CFG_SubTree* CFG_Repository::GetSubTreeOnlyWithValuesWithPrecentAndWildcard(const RWCString& path) {
  const RWCString actual = change_string_with_properties(path);
  const connector_lease connector(*this);
  logger.trace("GetSubTreeOnlyWithValuesWithPrecentAndWildcard(): _path = %s\n", actual);
  return sub_tree_of_bytes([&](long& length) {
    return connector->GetSubTreeOnlyWithValuesWithPrecentAndWildcard(actual, length);
  });
}

Tree_NodePtr CFG_Repository::GetTreeNode(const RWCString&) { return {}; }
Tree_NodePtr CFG_Repository::GetTreeNodeOnlyWithValuesLong(const RWCString&) { return {}; }
Tree_NodePtr CFG_Repository::GetTreeNodeOnlyWithValues(const RWCString&) { return {}; }
Tree_NodePtr CFG_Repository::GetTreeNodeWithPrecentAndWildcard(const RWCString&) { return {}; }
Tree_NodePtr CFG_Repository::GetTreeNodeOnlyWithValuesWithPrecentAndWildcard(const RWCString&) {
  return {};
}

// --- writes --------------------------------------------------------------------------------

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
  return request(this, "DeleteValue(): _path = %s\n", CONNECTOR_CALL(DeleteValue), actual);
}

int CFG_Repository::DeleteSubTree(const RWCString& path) {
  if (!IsValidPath(path, "CFG_SubTree::DeleteSubTree")) return FALSE;
  const RWCString actual = change_string_with_properties(path);
  const CFG_PerformanceEvent event(CFGPerformanceEnabled(), kSource,
                                   CFG_PerformanceEvent::PERFORMANCE_DELETE_SUB_TREE, actual);
  return request(this, "DeleteSubTree(): _path = %s\n", CONNECTOR_CALL(DeleteSubTree), actual);
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
  if (is_locked()) return write();
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
  const SubTreePtr sub_tree(CFG_Services::GetSubTree(path));
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

String_Arr* CFG_Repository::SearchKeyOrValueName(const RWCString& name, const RWCString& path) {
  constexpr char op[] = "SearchKeyOrValueName(const RWCString & name,const RWCString & path)";
  logger.trace("SearchKeyOrValueName(): name = %s , path = %s\n", name, path);
  if (name.isNull()) {
    return logger.reject(nullptr, "%s : name parameter is an empty string, return NULL\n", op);
  }
  if (path.isNull()) {
    return logger.reject(nullptr, "%s : path parameter is an empty string, return NULL\n", op);
  }
  const SubTreePtr sub_tree(CFG_Services::GetSubTree(path));
  if (!sub_tree) {
    return logger.reject(nullptr, "%s : fail to get sub tree for path : %s, return NULL\n", op,
                         path);
  }
  const Tree_NodePtr key = sub_tree->GetData();
  if (key->IsLeaf()) {
    return logger.reject(nullptr, "%s : path %s represent a value, return NULL\n", op, path);
  }
  return key->Search(name, key, FALSE);
}
