#include <CFG/CFG_RepositoryServicesImp.h>

#include <algorithm>
#include <memory>
#include <utility>

#include <CFG/CFG_SubTree.h>
#include <CFG/detail/actual_path.h>
#include <CFG/detail/answered.h>
#include <CFG/detail/exact_reads.h>
#include <CFG/detail/once_value.h>
#include <CFG/detail/paths.h>
#include <CFG/detail/patterns.h>
#include <CFG/detail/search_rule.h>
#include <CFG/detail/tree_builder.h>
#include <logging/Logger.h>
#include <tree/Tree_Node.h>
#include <utility/Tmr_TNLToken.h>

namespace {

constexpr Log_Logger logger("src/CFG/CFG_RepositoryServicesImp", 502);

using SubTreePtr = std::unique_ptr<CFG_SubTree>;

Tree_NodePtr root_of(const SubTreePtr& sub_tree) {
  return sub_tree ? sub_tree->GetData() : Tree_NodePtr();
}

// --- reads by search rule --------------------------------------------------------------------

// The first subtree that `read` finds at a candidate, with a line in the log.
template <class Read>
CFG_SubTree* first_found(const cfg::rule_read& asked, Read read) {
  return cfg::first_found(asked, [&](const RWCString& candidate) {
    CFG_SubTree* const found = read(candidate);
    if (found) {
      logger.trace("%s : sub tree found in path <%s> , return it\n", asked.op, candidate);
    }
    return found;
  });
}

// --- application information -----------------------------------------------------------------

constexpr char kInfoPath[] = "halvoria\\system\\applications\\cfg\\info";

// Fills `table` from the subtree at kInfoPath. FALSE when any of it is missing.
int read_app_info(CFG_SubTree* info, std::unordered_map<RWCString, RWCString>& table) {
  if (!info) {
    return logger.reject(FALSE, "InitAppInfoTable() : Fail to get info sub tree, return FALSE");
  }
  table["vendor_name"] = info->GetValue("vendor_name");
  if (table["vendor_name"].isNull()) {
    return logger.reject(
        FALSE, "InitAppInfoTable() : Fail to get vendor_name from info sub tree, return FALSE");
  }
  const SubTreePtr applications(info->GetSubTree("application_names"));
  if (!applications) {
    return logger.reject(FALSE, "InitAppInfoTable() : Fail to get application_names sub tree");
  }
  for (int i = 0; const SubTreePtr application{applications->GetSubTree("", i)}; ++i) {
    const RWCString key = application->GetKeyName();
    const RWCString display_name = application->GetValue("display_name");
    if (display_name.isNull()) {
      return logger.reject(FALSE, "InitAppInfoTable() : display_name return null or empty for %s",
                           key);
    }
    const RWCString name = application->GetValue("name");
    if (name.isNull()) {
      return logger.reject(FALSE, "InitAppInfoTable() : name return null or empty for %s", key);
    }
    table[key + "_display_name"] = display_name;
    table[key + "_name"] = name;
  }
  return TRUE;
}

// --- comparison --------------------------------------------------------------------------------

// A key that both compared trees have, while its children are gone through.
struct ComparedKey {
  ComparedKey(const Tree_NodePtr& current, const Tree_NodePtr& stored_key, size_t length)
      : stored(stored_key), path_length(length) {
    const Tree_ChildList& list = *current->Children();
    children.reserve(list.count());
    for (uint32_t i = list.next(0); i != Tree_ChildList::npos; i = list.next(i + 1)) {
      children.push_back(list.at(i));
    }
  }

  Tree_NodePtr stored;
  // Of the current tree. A list of its own, since what is written may change the tree's.
  std::vector<Tree_NodePtr> children;
  size_t next = 0;
  size_t path_length;  // of the key's path
};

bool is_key(const Tree_Node* node) { return node && !node->IsLeaf(); }

}  // namespace

CFG_RepositoryServicesImp::CFG_RepositoryServicesImp() = default;
CFG_RepositoryServicesImp::~CFG_RepositoryServicesImp() = default;

// --- answers of a store without a server ---------------------------------------------------------

String_Arr* CFG_RepositoryServicesImp::FillPathWithRuleList(RWCString, Tree_PathAndValueArray*, int,
                                                            int) {
  return logger.reject(nullptr, "FillPathWithRuleList not supported for this CFG TYPE\n");
}

RWCString CFG_RepositoryServicesImp::GetNodeName(RWCString ae) try {
  return cfg::component(FillPath("halvoria\\system\\nodes\\%\\servers\\%\\dicom", "ae", ae).str(),
                        3);
} catch (...) {
  return cfg::answered(logger, RWCString());
}
RWCString CFG_RepositoryServicesImp::GetServerNodeName() { return GetProperty("current_node"); }

int CFG_RepositoryServicesImp::DisConnect() { return TRUE; }
int CFG_RepositoryServicesImp::Lock() { return TRUE; }
int CFG_RepositoryServicesImp::SetSessionInfo(const std::string&, int) { return TRUE; }
RWCString CFG_RepositoryServicesImp::GetCfgPass() { return RWCString(); }
RWCString CFG_RepositoryServicesImp::GetConnectionAlias() { return RWCString(); }
void* CFG_RepositoryServicesImp::GetOracleContext() { return nullptr; }
RWCString CFG_RepositoryServicesImp::GetDbServerDateTime() { return RWCString(); }

bool CFG_RepositoryServicesImp::IsSubTreeInCache(RWCString&) { return false; }
bool CFG_RepositoryServicesImp::IsValueInCache(RWCString&) { return false; }
void CFG_RepositoryServicesImp::ClearCache() {}

RWCString CFG_RepositoryServicesImp::GetMinSeqNumberOfDeletedEntry() { return RWCString(); }
RWCString CFG_RepositoryServicesImp::GetMaxSeqNumber(const RWCString&) { return RWCString(); }
RWCString CFG_RepositoryServicesImp::GetMaxSeqNumber() { return RWCString(); }
CFG_SubTree* CFG_RepositoryServicesImp::GetSubTreeBySeqNumber(const RWCString&, RWCString&) {
  return nullptr;
}
CFG_SubTree* CFG_RepositoryServicesImp::GetSubTreeOnlyDeletedNodes(const RWCString&, RWCString&,
                                                                   bool) {
  return nullptr;
}
void CFG_RepositoryServicesImp::SetWorkCompressed(bool) {}

int CFG_RepositoryServicesImp::StartTreeQuery(RWCString&, bool, const RWCString*, bool) {
  return -1;
}
Tree_NodeInfo* CFG_RepositoryServicesImp::GetNextFromQuery() { return nullptr; }
int CFG_RepositoryServicesImp::CloseTreeQuery() { return -1; }
const RWCString& CFG_RepositoryServicesImp::GetQueryRootPath() { return m_query_root_path; }

// --- transactions and updates --------------------------------------------------------------------

int CFG_RepositoryServicesImp::StartTransaction() { return TRUE; }
int CFG_RepositoryServicesImp::IsInTransaction() { return FALSE; }
int CFG_RepositoryServicesImp::EndTransaction() { return TRUE; }
int CFG_RepositoryServicesImp::StartWriteTransaction() { return StartTransaction(); }
int CFG_RepositoryServicesImp::EndWriteTransaction() { return EndTransaction(); }
int CFG_RepositoryServicesImp::Rollback() { return TRUE; }

int CFG_RepositoryServicesImp::StartTransactionUpdate() {
  Lock();
  return TRUE;
}

// An update that UnLock could not save has failed, whatever became of it before.
int CFG_RepositoryServicesImp::EndTransactionUpdate(bool rollback) {
  const int result = rollback ? Rollback() : TRUE;
  return UnLock() ? result : FALSE;
}

int CFG_RepositoryServicesImp::StartTransactionUpdateBaseRep() { return StartTransactionUpdate(); }
int CFG_RepositoryServicesImp::EndTransactionUpdateBaseRep(bool rollback) {
  return EndTransactionUpdate(rollback);
}
int CFG_RepositoryServicesImp::StartTransactionUpdateSecondaryRep() { return TRUE; }
int CFG_RepositoryServicesImp::EndTransactionUpdateSecondaryRep(bool) { return TRUE; }

// --- base and secondary store --------------------------------------------------------------------

CFG_RepositoryServices* CFG_RepositoryServicesImp::GetServerRepository() { return this; }

int CFG_RepositoryServicesImp::AddOrReplaceSubTreeOnlyBaseRep(CFG_SubTree* sub_tree,
                                                              const RWCString& path) {
  logger.info("AddOrReplaceSubTreeOnlyBaseRep path: %s\n", path);
  return AddOrReplaceSubTree(sub_tree, path);
}
int CFG_RepositoryServicesImp::DeleteSubTreeOnlyBaseRep(const RWCString& path) {
  logger.info("DeleteSubTreeOnlyBaseRep path: %s\n", path);
  return DeleteSubTree(path);
}
int CFG_RepositoryServicesImp::DeleteValueOnlyBaseRep(const RWCString& path) {
  logger.info("DeleteValueOnlyBaseRep path: %s\n", path);
  return DeleteValue(path);
}

int CFG_RepositoryServicesImp::AddOrReplaceSubTreeOnlySecondaryRep(CFG_SubTree*,
                                                                   const RWCString& path) {
  return logger.reject_at(LOG_LEVEL_INFORMATION, TRUE,
                          "AddOrReplaceSubTreeOnlySecondaryRep always TRUE path: %s \n", path);
}
int CFG_RepositoryServicesImp::DeleteSubTreeOnlySecondaryRep(const RWCString& path) {
  return logger.reject_at(LOG_LEVEL_INFORMATION, TRUE,
                          "DeleteSubTreeOnlySecondaryRep always TRUE path: %s \n", path);
}
int CFG_RepositoryServicesImp::DeleteValueOnlySecondaryRep(const RWCString& path) {
  return logger.reject_at(LOG_LEVEL_INFORMATION, TRUE,
                          "DeleteValueOnlySecondaryRep always TRUE path: %s \n", path);
}

// --- reads by search rule ------------------------------------------------------------------------

CFG_SubTree* CFG_RepositoryServicesImp::GetSubTreeWithPrecentAndWildcard(const RWCString& path,
                                                                         const char** search_rule,
                                                                         int search_num) {
  constexpr char op[] =
      "GetSubTreeWithPrecentAndWildcard(const RWCString & path,const char ** search_rule,int search_num)";
  return first_found(
      {logger, op, path, search_rule, search_num},
      [this](const RWCString& candidate) { return GetSubTreeWithPrecentAndWildcard(candidate); });
}

CFG_SubTree* CFG_RepositoryServicesImp::GetSubTreeWithPrecentAndWildcard(const RWCString& path,
                                                                         const char** search_rule,
                                                                         int merge,
                                                                         int search_num) {
  if (!merge) return GetSubTreeWithPrecentAndWildcard(path, search_rule, search_num);
  constexpr char op[] =
      "GetSubTreeWithPrecentAndWildcard(const RWCString & path,const char ** search_rule,T_Bool merge,int search_num)";
  return cfg::all_found(
      {logger, op, path, search_rule, search_num},
      [this](const RWCString& candidate) { return GetTreeNodeWithPrecentAndWildcard(candidate); },
      Tree_Node::Merge);
}

CFG_SubTree* CFG_RepositoryServicesImp::GetSubTreeOnlyWithValuesLong(const RWCString& path,
                                                                     const char** search_rule,
                                                                     int search_num) {
  constexpr char op[] =
      "GetSubTreeOnlyWithValuesLong(const RWCString & path,const char ** search_rule,int search_num)";
  return first_found(
      {logger, op, path, search_rule, search_num},
      [this](const RWCString& candidate) { return GetSubTreeOnlyWithValuesLong(candidate); });
}

CFG_SubTree* CFG_RepositoryServicesImp::GetSubTreeOnlyWithValuesLong(const RWCString& path,
                                                                     const char** search_rule,
                                                                     int merge, int search_num) {
  if (!merge) return GetSubTreeOnlyWithValuesLong(path, search_rule, search_num);
  constexpr char op[] =
      "GetSubTreeOnlyWithValuesLong(const RWCString & path,const char ** search_rule,T_Bool merge,int search_num)";
  return cfg::all_found(
      {logger, op, path, search_rule, search_num},
      [this](const RWCString& candidate) {
        return root_of(SubTreePtr(GetSubTreeOnlyWithValuesLong(candidate)));
      },
      Tree_Node::Merge);
}

CFG_SubTree* CFG_RepositoryServicesImp::GetSubTreeOnlyWithValues(const RWCString& path,
                                                                 const char** search_rule,
                                                                 int search_num) {
  constexpr char op[] =
      "GetSubTreeOnlyWithValues(const RWCString & path,const char ** search_rule,int search_num)";
  return first_found(
      {logger, op, path, search_rule, search_num},
      [this](const RWCString& candidate) { return GetSubTreeOnlyWithValues(candidate); });
}

CFG_SubTree* CFG_RepositoryServicesImp::GetSubTreeOnlyWithValues(const RWCString& path,
                                                                 const char** search_rule,
                                                                 int merge, int search_num) {
  if (!merge) return GetSubTreeOnlyWithValues(path, search_rule, search_num);
  constexpr char op[] =
      "GetSubTreeOnlyWithValues(const RWCString & path,const char ** search_rule,T_Bool merge,int search_num)";
  return cfg::all_found(
      {logger, op, path, search_rule, search_num},
      [this](const RWCString& candidate) { return GetTreeNodeOnlyWithValues(candidate); },
      Tree_Node::Merge);
}

CFG_SubTree* CFG_RepositoryServicesImp::GetSubTreeOnlyWithValuesMergeOneLevel(
    const RWCString& path, const char** search_rule, int search_num) {
  constexpr char op[] =
      "GetSubTreeOnlyWithValuesMergeOneLevel(const RWCString & path,const char ** search_rule,int search_num)";
  return cfg::all_found(
      {logger, op, path, search_rule, search_num},
      [this](const RWCString& candidate) {
        return root_of(SubTreePtr(GetSubTreeOnlyWithValues(candidate)));
      },
      Tree_Node::MergeOneLevel);
}

CFG_SubTree* CFG_RepositoryServicesImp::GetSubTreeOnlyWithValuesWithPrecentAndWildcard(
    const RWCString& path, const char** search_rule, int search_num) {
  constexpr char op[] =
      "GetSubTreeOnlyWithValuesWithPrecentAndWildcard(const RWCString & path,const char ** search_rule,int search_num)";
  return first_found({logger, op, path, search_rule, search_num},
                     [this](const RWCString& candidate) {
                       return GetSubTreeOnlyWithValuesWithPrecentAndWildcard(candidate);
                     });
}

// Each candidate is laid over those before it under a key without a name, so unlike in the other
// forms the later ones win; what the last one came to is the answer.
CFG_SubTree* CFG_RepositoryServicesImp::GetSubTreeOnlyWithValuesWithPrecentAndWildcard(
    const RWCString& path, const char** search_rule, int merge, int search_num) try {
  if (!merge) return GetSubTreeOnlyWithValuesWithPrecentAndWildcard(path, search_rule, search_num);
  const cfg::rule_read asked = {
      logger,
      "GetSubTreeOnlyWithValuesWithPrecentAndWildcard(const RWCString & path,const char ** search_rule,T_Bool merge,int search_num)",
      path, search_rule, search_num};
  const Tree_NodePtr holder = new Tree_Node(RWCString());
  Tree_NodePtr last;
  const bool is_valid = asked.each_candidate([&](const RWCString& candidate, const RWCString&) {
    const SubTreePtr found(GetSubTreeOnlyWithValuesWithPrecentAndWildcard(candidate));
    const Tree_NodePtr read = root_of(found);
    if (!read) return false;
    const Tree_NodePtr before = holder->Child(read->NameView());
    if (holder->Put("", Tree_Node::Merge(before, read))) last = read;
    return false;
  });
  if (!is_valid) return nullptr;
  if (!last) return new CFG_SubTree(holder);
  const Tree_NodePtr result = holder->Child(last->NameView());
  holder->Remove(result);
  result->StandWhere(*last);
  return new CFG_SubTree(result);
} catch (...) {
  return cfg::answered(logger, nullptr);
}

// --- writes with long values ---------------------------------------------------------------------

int CFG_RepositoryServicesImp::AddOrReplaceSubTreeWithLongValues(CFG_SubTree* sub_tree,
                                                                 const RWCString& path,
                                                                 int merge) try {
  constexpr char op[] = "AddOrReplaceSubTreeWithLongValues with merge";
  if (!IsValidPath(path, op)) return FALSE;
  if (!merge) return AddOrReplaceSubTree(sub_tree, path);
  logger.info("Start %s for path <%s> merge (%d)\n", op, path, merge);
  const RWCString actual = change_string_with_properties(path);
  if (!IsValidPath(actual, op)) return FALSE;
  return write_with_stored(op, sub_tree, actual, true);
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_RepositoryServicesImp::AddMoreInfoToSubTreeWithLongValues(CFG_SubTree* sub_tree,
                                                                  const RWCString& path) try {
  constexpr char op[] =
      "AddMoreInfoToSubTreeWithLongValues(CFG_SubTree* sub_tree,const RWCString & path)";
  logger.info("Start %s for path <%s>\n", op, path);
  return write_with_stored(op, sub_tree, change_string_with_properties(path), false);
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_RepositoryServicesImp::write_with_stored(const char* op, CFG_SubTree* sub_tree,
                                                 const RWCString& path, bool given_wins) {
  Tree_NodePtr data;
  RWCString key_name;
  if (!IsSubTreeValidWithLog(op, sub_tree, path, data, key_name)) return FALSE;
  const cfg::stored_paths as_stored;
  const auto read = [this](const RWCString& exact) { return GetSubTreeWithLongValues(exact); };
  const cfg::Winner winner = given_wins ? cfg::Winner::GIVEN : cfg::Winner::STORED;
  Tree_NodePtr written = cfg::merged_with_stored(logger, op, *this, data, path, winner, read);
  return written ? WriteSubTree(written, path) : FALSE;
}

// --- comparison -----------------------------------------------------------------------------

void CFG_RepositoryServicesImp::CompareSubsAndChangeRepository(CFG_SubTree* current,
                                                               CFG_SubTree* stored,
                                                               RWCString path) try {
  constexpr char op[] = "CFG_RepositoryServicesImp::CompareSubsAndChangeRepository";
  const Tree_NodePtr current_root = current ? current->GetData() : Tree_NodePtr();
  const Tree_NodePtr stored_root = stored ? stored->GetData() : Tree_NodePtr();
  if (!is_key(current_root.get()) || !is_key(stored_root.get())) {
    logger.error("%s : for path <%s> a sub tree to compare is NULL, nothing is written\n", op,
                 path);
    return;
  }

  if (!IsValidPath(path, op)) return;
  path = change_string_with_properties(path);
  const cfg::stored_paths as_stored;

  // `path` is that of the key on top of `open`.
  std::vector<ComparedKey> open;
  const auto compare_key = [&](const Tree_NodePtr& current_key, const Tree_NodePtr& stored_key) {
    if (!path.isNull()) path += '\\';
    path += current_key->NameView();
    open.emplace_back(current_key, stored_key, path.length());
    for (const Tree_NodePtr& child : open.back().children) {
      if (!child->IsLeaf()) continue;
      const Tree_Node* counterpart = stored_key->Child(child->NameView());
      const std::string_view text = child->GetText();
      if (!text.empty() && counterpart && counterpart->GetText() == text) continue;
      SetValue(cfg::join(path, child->NameView()), RWCString(text));
    }
  };

  compare_key(current_root, stored_root);
  while (!open.empty()) {
    ComparedKey& key = open.back();
    path.remove(key.path_length);
    if (key.next == key.children.size()) {
      open.pop_back();
      continue;
    }
    const Tree_NodePtr child = key.children[key.next++];
    if (child->IsLeaf()) continue;
    const Tree_NodePtr counterpart = key.stored->Child(child->NameView());
    if (is_key(counterpart.get())) {
      if (IsValidPath(path, op)) compare_key(child, counterpart);
    } else {
      CFG_SubTree added(child);
      AddOrReplaceSubTree(&added, path);
    }
  }
} catch (...) {
  cfg::log_exception(logger, __func__);
}

// --- subtrees from lists --------------------------------------------------------------------

CFG_SubTree* CFG_RepositoryServicesImp::CreateSubTree(
    const RWCString& path, const std::list<std::pair<RWCString, RWCString>>& values) try {
  RWCString root_path = path;
  tolower(root_path);
  cfg::tree_builder builder(root_path);
  const RWCString prefix = root_path + '\\';
  for (const auto& [value_path, text] : values) {
    RWCString full_path = value_path;
    tolower(full_path);
    if (full_path.index(prefix) != 0) {
      logger.warning("CreateSubTree : path <%s> is not below <%s>, it is left out\n", value_path,
                     path);
      continue;
    }
    builder.add(full_path.view().substr(prefix.length()), text);
  }
  return new CFG_SubTree(builder.tree());
} catch (...) {
  return cfg::answered(logger, nullptr);
}

bool CFG_RepositoryServicesImp::AddNodeToTree(Tree_NodePtr& root, Tree_NodeInfo* record,
                                              CFG_BuildTreeState& state) try {
  const std::string_view path = record->PathView();
  const std::string_view parent_path =
      path.substr(0, static_cast<size_t>(record->GetParentPathLength()));
  if (parent_path.empty()) {
    state.parent = root;
  } else if (parent_path != state.last_parent_path.view()) {
    const bool is_under_last = state.last_key && parent_path == state.last_path.view();
    state.parent = is_under_last ? state.last_key
                   : root ? root->GetOrCreateRelativeNode(Tree_Path(RWCString(parent_path)), root)
                          : Tree_NodePtr();
  }
  state.last_parent_path = RWCString(parent_path);
  state.last_path = RWCString(path);
  state.last_key = nullptr;
  if (!is_key(state.parent.get())) return cfg::is_placed(Tree_PathBuilder::BELOW_A_VALUE, path);

  // A parent path may have been set that is as long as the path: what is left is no name.
  const std::string_view name =
      parent_path.empty() ? path : path.substr(std::min(parent_path.size() + 1, path.size()));
  Tree_Node* node;
  const Tree_PathBuilder::Outcome outcome =
      Tree_PathBuilder::Put(*state.parent, name, record->ValueView(), record->IsChange(), node);
  if (!cfg::is_placed(outcome, path)) return false;
  if (!node->IsLeaf()) state.last_key = node;
  return true;
} catch (...) {
  return cfg::answered(logger, false);
}

// --- application information ----------------------------------------------------------------

int CFG_RepositoryServicesImp::InitAppInfoTable() try {
  {
    const MutexGuard guard(m_app_info_lock);
    if (m_app_info_ready) return TRUE;
  }
  std::unordered_map<RWCString, RWCString> table;
  const SubTreePtr info(GetSubTree(kInfoPath));
  if (!read_app_info(info.get(), table)) return FALSE;
  const MutexGuard guard(m_app_info_lock);
  m_app_info.swap(table);
  return m_app_info_ready = TRUE;
} catch (...) {
  return cfg::answered(logger, FALSE);
}

RWCString CFG_RepositoryServicesImp::app_info(const RWCString& entry) {
  if (!InitAppInfoTable()) return RWCString();
  const MutexGuard guard(m_app_info_lock);
  const auto found = m_app_info.find(entry);
  return found == m_app_info.end() ? RWCString() : found->second;
}

RWCString CFG_RepositoryServicesImp::GetApplicationDisplayName(RWCString application) try {
  return app_info(application + "_display_name");
} catch (...) {
  return cfg::answered(logger, RWCString());
}
RWCString CFG_RepositoryServicesImp::GetApplicationName(RWCString application) try {
  return app_info(application + "_name");
} catch (...) {
  return cfg::answered(logger, RWCString());
}
RWCString CFG_RepositoryServicesImp::GetVendorName() try {
  return app_info("vendor_name");
} catch (...) {
  return cfg::answered(logger, RWCString());
}

// --- the server and this process ------------------------------------------------------------

RWCString CFG_RepositoryServicesImp::server_property_path(const RWCString& name) {
  return "halvoria\\system\\nodes\\" + GetServerNodeName() + "\\properties\\" + name;
}

// Of the process. Never destroyed.
static auto& grid_name = *new cfg::once_value<RWCString>;
static auto& domain_name = *new cfg::once_value<RWCString>;
static auto& is_performance_enabled = *new cfg::once_value<bool>;

RWCString CFG_RepositoryServicesImp::GetCurrentGridName() try {
  return grid_name.get([this] {
    const RWCString name = GetValue(server_property_path("grid_name"), Tmr_TNLToken::dummy_name);
    logger.trace("GetCurrentGridName :  value is %s\n", name);
    return name;
  });
} catch (...) {
  return cfg::answered(logger, RWCString());
}

RWCString CFG_RepositoryServicesImp::GetCurrentDorranceDomainName() try {
  return domain_name.get([this] {
    RWCString name = GetValue(server_property_path("current_domain"), "null_domain");
    tolower(name);
    logger.trace("GetCurrentDorranceDomainName :  value is %s\n", name);
    return name;
  });
} catch (...) {
  return cfg::answered(logger, RWCString());
}

bool CFG_RepositoryServicesImp::CFGPerformanceEnabled() try {
  return is_performance_enabled.get([this] {
    return GetBooleanValueWrapper(
        "halvoria\\system\\applications\\events\\activation\\cfgperformance", false);
  });
} catch (...) {
  return cfg::answered(logger, false);
}

RWCString CFG_RepositoryServicesImp::GetServerProperty(RWCString name) try {
  if (name == "grid_name") return GetCurrentGridName();
  if (name == "current_domain") return GetCurrentDorranceDomainName();
  const RWCString text = GetValue(server_property_path(name));
  logger.trace("GetServerProperty : property %s value is %s\n", name, text);
  return text;
} catch (...) {
  return cfg::answered(logger, RWCString());
}

RWCString CFG_RepositoryServicesImp::GetServerGUID() try {
  const ACE_Guard<ACE_Recursive_Thread_Mutex> guard(cfg::once_lock());
  if (!std::exchange(m_is_guid_known, true)) {
    m_server_guid = GetValue("halvoria\\system\\applications\\plexaris\\sync\\server_guid");
  }
  return m_server_guid;
} catch (...) {
  return cfg::answered(logger, RWCString());
}

std::pair<RWCString, RWCString> CFG_RepositoryServicesImp::GetCoreProperties() try {
  std::pair<RWCString, RWCString> core(GetProperty("core_name"), RWCString());
  if (core.first.isNull()) {
    init_core_properties(core.first, core.second);
  } else {
    core.second = GetProperty("core_ip");
  }
  return core;
} catch (...) {
  return cfg::answered(logger, std::pair<RWCString, RWCString>());
}

void CFG_RepositoryServicesImp::init_core_properties(RWCString& name, RWCString& address) {
  const MutexGuard guard(m_core_properties_lock);
  logger.trace("Start init core properties from CFG");
  const cfg::stored_paths as_stored;  // a host has any name
  const RWCString path = FillPath("halvoria\\system\\hosts\\%", "properties\\core_enabled", "yes");
  name = cfg::component(path, 3);
  if (name.isNull()) {
    logger.error("Core Configuration is missing");
    return;
  }
  SetProperty("core_name", name);
  address = GetValue("halvoria\\system\\hosts\\" + name + "\\properties\\inet_address");
  if (address.isNull()) {
    logger.warning("core_ip can't be found in configuration");
  } else {
    SetProperty("core_ip", address);
  }
}

void CFG_RepositoryServicesImp::CollapseTreePools() { Tree_Node::CollapsePools(); }

RWCString CFG_RepositoryServicesImp::GetPathBeforeFirstPrecent(RWCString& path) try {
  return RWCString(cfg::before_wildcard(path));
} catch (...) {
  return cfg::answered(logger, RWCString());
}
