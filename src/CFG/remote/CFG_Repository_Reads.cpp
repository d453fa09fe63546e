// The operations that read.
#include <CFG/CFG_Connector.h>
#include <CFG/CFG_PerformanceEvent.h>
#include <CFG/CFG_Repository.h>
#include <CFG/CFG_SubTree.h>
#include <CFG/detail/answered.h>
#include <CFG/detail/key_search.h>
#include <CFG/detail/paths.h>
#include <CFG/detail/patterns.h>
#include <CFG/remote/connector_lease.h>
#include <logging/Logger.h>
#include <tree/Tree_Node.h>

using cfg::connector_lease;
using cfg::request;

namespace {

constexpr Log_Logger logger("src/CFG/CFG_Repository", 502);
constexpr char kSource[] = "Remote";

using SubTreePtr = std::unique_ptr<CFG_SubTree>;

CFG_SubTree* sub_tree_of(const Tree_NodePtr& tree) {
  return tree ? new CFG_SubTree(tree) : nullptr;
}

// Whatever its sequence numbers are.
Tree_NodePtr whole_tree(CFG_Repository& repository, const RWCString& path, bool compressed) {
  const connector_lease connector(repository);
  logger.trace("GetSubTree(): _path = %s\n", path);
  RWCString seq_number, tree_path;
  return connector->GetSubTreeBySeqNumber(path, seq_number, tree_path, compressed);
}

// The subtree in the bytes that `read` gets. It hangs under the key at `parent_path`.
template <class Read>
CFG_SubTree* sub_tree_of_bytes(Read read, std::string_view parent_path = {}) {
  long length = 0;
  const std::unique_ptr<char[]> bytes(read(length));
  CFG_SubTree* sub_tree =
      CFG_RepositoryServices::CreateSubTreeFromByteArray(bytes.get(), static_cast<int>(length));
  if (sub_tree && !parent_path.empty()) {
    sub_tree->GetData()->SetPathAbove(RWCString(parent_path));
  }
  return sub_tree;
}

// Of the key that a path, or what stands before its first `%`, leads to.
std::string_view parent_of(const RWCString& path) {
  return cfg::split_path(cfg::before_wildcard(path)).parent;
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
  // Of the entry that the service names as the one at which it found `name`: that is the name
  // itself where the entry is empty. -1 when it is none of these.
  int place_of(std::string_view found, std::string_view name) const {
    for (size_t i = 0; i < m_texts.size(); ++i) {
      if (found == (m_texts[i].isNull() ? name : m_texts[i].view())) return static_cast<int>(i);
    }
    return -1;
  }
  int count() const { return static_cast<int>(m_texts.size()); }

 private:
  std::vector<RWCString> m_texts;
  std::vector<const char*> m_pointers;
};

}  // namespace

// --- values and counts -----------------------------------------------------------------------

RWCString CFG_Repository::GetValue(const RWCString& path) try {
  const RWCString actual = change_string_with_properties(path);
  const CFG_PerformanceEvent event(CFGPerformanceEnabled(), kSource,
                                   CFG_PerformanceEvent::PERFORMANCE_GET_VALUE, actual);
  return request(logger, *this, "GetValue(): _path = %s\n", CONNECTOR_CALL(GetValue), actual);
} catch (...) {
  return cfg::answered(logger, RWCString());
}

RWCString CFG_Repository::GetValue(RWCString& path, int index) try {
  return request(logger, *this, "GetValue(): _path = %s , index = %d\n", CONNECTOR_CALL(GetValue),
                 change_string_with_properties(path), index);
} catch (...) {
  return cfg::answered(logger, RWCString());
}

Tree_ValueAndPath* CFG_Repository::GetValue(RWCString name, const char** search_rule,
                                            int search_num) try {
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
  const int matched = rule.place_of(path, name);
  return new Tree_ValueAndPath(matched < 0 ? path : RWCString(search_rule[matched]), value);
} catch (...) {
  return cfg::answered(logger, nullptr);
}

RWCString CFG_Repository::GetValueName(RWCString& path, int index) try {
  return request(logger, *this, "GetValueName(): _path = %s , index = %d\n",
                 CONNECTOR_CALL(GetValueName), change_string_with_properties(path), index);
} catch (...) {
  return cfg::answered(logger, RWCString());
}

int CFG_Repository::GetValueNum(RWCString& path) try {
  return request(logger, *this, "GetValueNum(): _path = %s\n", CONNECTOR_CALL(GetValueNum),
                 change_string_with_properties(path));
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_Repository::GetSubTreeNum(RWCString& path) try {
  return request(logger, *this, "GetSubTreeNum(): _path = %s\n", CONNECTOR_CALL(GetSubTreeNum),
                 change_string_with_properties(path));
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_Repository::GetSubTreeEntriesCount(const RWCString& path) try {
  return request(logger, *this, "GetSubTreeEntriesCount(): _path = %s\n",
                 CONNECTOR_CALL(GetSubTreeEntriesCount), change_string_with_properties(path));
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_Repository::IsSubTreeExist(const RWCString& path) try {
  return request(logger, *this, "IsSubTreeExist(): _path = %s\n", CONNECTOR_CALL(IsSubTreeExist),
                 change_string_with_properties(path));
} catch (...) {
  return cfg::answered(logger, FALSE);
}

String_Arr* CFG_Repository::GetSubTreePaths(const RWCString& path) try {
  return request(logger, *this, "GetSubTreePaths(): _path = %s\n", CONNECTOR_CALL(GetSubTreePaths),
                 change_string_with_properties(path));
} catch (...) {
  return cfg::answered(logger, nullptr);
}

Tree_PathAndValueArray* CFG_Repository::GetSubTreeValues(const RWCString& path) try {
  const RWCString actual = change_string_with_properties(path);
  const connector_lease connector(*this);
  logger.detail("_path = <%s>\n", actual);
  return connector->GetSubTreeValues(actual);
} catch (...) {
  return cfg::answered(logger, nullptr);
}

// --- wildcards, nodes, the store -------------------------------------------------------------

String_Arr* CFG_Repository::FillPath(RWCString path) try {
  return request(logger, *this, "FillPath(): _path = %s\n", CONNECTOR_CALL(FillPath),
                 change_string_with_properties(path));
} catch (...) {
  return cfg::answered(logger, nullptr);
}

RWCString CFG_Repository::FillPath(RWCString path, RWCString value_name, RWCString value_data) try {
  return request(logger, *this, "FillPath(): _path = %s , value_name = %s , value_data = %s\n",
                 CONNECTOR_CALL(FillPath), change_string_with_properties(path), value_name,
                 value_data);
} catch (...) {
  return cfg::answered(logger, RWCString());
}

RWCString CFG_Repository::GetNodeName(RWCString ae) try {
  return request(logger, *this, "GetNodeName(): ae = %s\n", CONNECTOR_CALL(GetNodeName), ae);
} catch (...) {
  return cfg::answered(logger, RWCString());
}

RWCString CFG_Repository::GetNodeNameByIp(RWCString ip) try {
  return request(logger, *this, "GetNodeNameByIp(): ip = %s\n", CONNECTOR_CALL(GetNodeNameByIp),
                 ip);
} catch (...) {
  return cfg::answered(logger, RWCString());
}

RWCString CFG_Repository::GetDbServerDateTime() try {
  return request(logger, *this, "Start GetDbServerDateTime()\n",
                 CONNECTOR_CALL(GetDbServerDateTime));
} catch (...) {
  return cfg::answered(logger, RWCString());
}

RWCString CFG_Repository::GetMaxSeqNumber(const RWCString& path) try {
  return request(logger, *this, "Start GetMaxSeqNumber\n",
                 [&](CFG_Connector& connector) { return connector.GetMaxSeqNumber(path); });
} catch (...) {
  return cfg::answered(logger, RWCString());
}

RWCString CFG_Repository::GetMaxSeqNumber() try {
  return request(logger, *this, "Start GetMaxSeqNumber\n", CONNECTOR_CALL(GetMaxSeqNumber));
} catch (...) {
  return cfg::answered(logger, RWCString());
}

RWCString CFG_Repository::GetMinSeqNumberOfDeletedEntry() try {
  return request(logger, *this, "Start GetMinSeqNumberOfDeletedEntry\n",
                 CONNECTOR_CALL(GetMinSeqNumberOfDeletedEntry));
} catch (...) {
  return cfg::answered(logger, RWCString());
}

RWCString CFG_Repository::GetServerSyncID() try {
  const RWCString id =
      request(logger, *this, "Start GetServerSyncID\n", CONNECTOR_CALL(GetServerSyncID));
  logger.trace("got GetServerSyncID %s\n", id);
  return id;
} catch (...) {
  return cfg::answered(logger, RWCString());
}

void CFG_Repository::SetWorkCompressed(bool compressed) { m_work_compressed = compressed; }

// --- subtrees ----------------------------------------------------------------------------------

CFG_SubTree* CFG_Repository::GetSubTree(RWCString& path) try {
  const RWCString actual = change_string_with_properties(path);
  CFG_PerformanceEvent event(CFGPerformanceEnabled(), kSource,
                             CFG_PerformanceEvent::PERFORMANCE_GET_SUB_TREE, actual);
  SubTreePtr sub_tree(sub_tree_of(whole_tree(*this, actual, m_work_compressed)));
  if (sub_tree && event.is_enabled()) event.set_count(sub_tree->GetSubTreeEntriesCount(""));
  return sub_tree.release();
} catch (...) {
  return cfg::answered(logger, nullptr);
}

CFG_SubTree* CFG_Repository::GetSubTreeOnlyWithValuesLong(const RWCString& path) try {
  const Tree_NodePtr tree =
      whole_tree(*this, change_string_with_properties(path), m_work_compressed);
  if (tree) tree->RemoveEmptyBranches();
  return sub_tree_of(tree);
} catch (...) {
  return cfg::answered(logger, nullptr);
}

CFG_SubTree* CFG_Repository::GetSubTreeOnlyWithValues(const RWCString& path) try {
  return GetSubTreeOnlyWithValuesLong(path);
} catch (...) {
  return cfg::answered(logger, nullptr);
}

CFG_SubTree* CFG_Repository::GetSubTreeBySeqNumber(const RWCString& path,
                                                   RWCString& seq_number) try {
  const RWCString actual = change_string_with_properties(path);
  const connector_lease connector(*this);
  logger.trace("GetSubTreeBySeqNumber(): _path = %s seq_number = %s\n", actual, seq_number);
  RWCString tree_path;
  return sub_tree_of(
      connector->GetSubTreeBySeqNumber(actual, seq_number, tree_path, m_work_compressed));
} catch (...) {
  return cfg::answered(logger, nullptr);
}

CFG_SubTree* CFG_Repository::GetSubTreeOnlyDeletedNodes(const RWCString& path,
                                                        RWCString& seq_number, bool) try {
  const RWCString actual = change_string_with_properties(path);
  const connector_lease connector(*this);
  logger.trace("GetSubTreeOnlyDeletedNodes(): _path = %s seq_number = %s\n", actual, seq_number);
  RWCString tree_path;
  return sub_tree_of(
      connector->GetSubTreeOnlyDeletedNodes(actual, seq_number, tree_path, m_work_compressed));
} catch (...) {
  return cfg::answered(logger, nullptr);
}

CFG_SubTree* CFG_Repository::GetSubTree(RWCString& path, int index) try {
  const RWCString actual = change_string_with_properties(path);
  const connector_lease connector(*this);
  logger.trace("Start GetSubTree(): _path = %s , index = %d \n", actual, index);
  return sub_tree_of_bytes(
      [&](long& length) { return connector->GetSubTree(actual, index, length); }, actual);
} catch (...) {
  return cfg::answered(logger, nullptr);
}

CFG_SubTree* CFG_Repository::GetSubTree(RWCString name, const char** search_rule,
                                        int search_num) try {
  return GetSubTree(name, search_rule, FALSE, search_num);
} catch (...) {
  return cfg::answered(logger, nullptr);
}

CFG_SubTree* CFG_Repository::GetSubTree(RWCString name, const char** search_rule, int merge,
                                        int search_num) try {
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
} catch (...) {
  return cfg::answered(logger, nullptr);
}

CFG_SubTree* CFG_Repository::GetSubTreeOnlyWithValues(const RWCString& path,
                                                      const char** search_rule, int merge,
                                                      int search_num) try {
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
} catch (...) {
  return cfg::answered(logger, nullptr);
}

CFG_SubTree* CFG_Repository::GetSubTreeWithLongValues(const RWCString& path) try {
  const RWCString actual = change_string_with_properties(path);
  const connector_lease connector(*this);
  logger.trace("GetSubTreeWithLongValues(): _path = %s\n", actual);
  return sub_tree_of_bytes(
      [&](long& length) { return connector->GetSubTreeWithLongValues(actual, length); },
      cfg::split_path(actual).parent);
} catch (...) {
  return cfg::answered(logger, nullptr);
}

CFG_SubTree* CFG_Repository::GetSubTreeWithPrecentAndWildcard(const RWCString& path) try {
  const RWCString actual = change_string_with_properties(path);
  const connector_lease connector(*this);
  logger.trace("GetSubTreeWithPrecentAndWildcard(): _path = %s\n", actual);
  return sub_tree_of_bytes(
      [&](long& length) { return connector->GetSubTreeWithPrecentAndWildcard(actual, length); },
      parent_of(actual));
} catch (...) {
  return cfg::answered(logger, nullptr);
}

CFG_SubTree* CFG_Repository::GetSubTreeOnlyWithValuesWithPrecentAndWildcard(
    const RWCString& path) try {
  const RWCString actual = change_string_with_properties(path);
  const connector_lease connector(*this);
  logger.trace("GetSubTreeOnlyWithValuesWithPrecentAndWildcard(): _path = %s\n", actual);
  return sub_tree_of_bytes(
      [&](long& length) {
        return connector->GetSubTreeOnlyWithValuesWithPrecentAndWildcard(actual, length);
      },
      parent_of(actual));
} catch (...) {
  return cfg::answered(logger, nullptr);
}

Tree_NodePtr CFG_Repository::GetTreeNode(const RWCString&) { return {}; }
Tree_NodePtr CFG_Repository::GetTreeNodeOnlyWithValuesLong(const RWCString&) { return {}; }
Tree_NodePtr CFG_Repository::GetTreeNodeOnlyWithValues(const RWCString&) { return {}; }
Tree_NodePtr CFG_Repository::GetTreeNodeWithPrecentAndWildcard(const RWCString&) { return {}; }
Tree_NodePtr CFG_Repository::GetTreeNodeOnlyWithValuesWithPrecentAndWildcard(const RWCString&) {
  return {};
}

String_Arr* CFG_Repository::SearchKeyOrValueName(const RWCString& name, const RWCString& path) try {
  logger.trace("SearchKeyOrValueName(): name = %s , path = %s\n", name, path);
  return cfg::search_below(logger, name, path, [this](const RWCString& at) {
    const SubTreePtr sub_tree(CFG_Services::GetSubTree(at));
    return sub_tree ? sub_tree->GetData() : Tree_NodePtr();
  });
} catch (...) {
  return cfg::answered(logger, nullptr);
}
