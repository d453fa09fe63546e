// Trees built from the records of a query, and the query itself for who streams them.
#include <CFG/CFG_DBRepository.h>

#include <utility>

#include <CFG/CFG_PerformanceEvent.h>
#include <CFG/CFG_SubTree.h>
#include <CFG/detail/actual_path.h>
#include <CFG/detail/answered.h>
#include <CFG/detail/paths.h>
#include <CFG/detail/tree_builder.h>
#include <database/CFGDB_Conn.h>
#include <logging/Logger.h>
#include <tree/Tree_Node.h>

using cfg::actual_string;

// What a tree is made of.
struct CFG_DBRepository::TreeQuery {
  const RWCString& path;
  bool wildcard = false;           // the path may hold `%` components
  const RWCString* seq = nullptr;  // only what changed after this number
  bool deleted = false;            // only the entries deleted after it
  bool all_deleted = false;
};

namespace {

constexpr Log_Logger logger("src/CFG/CFG_DBRepository", 502);

// What a node takes beside its text, with its place in the list of its parent.
constexpr size_t kNodeBytes = 80;
constexpr size_t kBuiltAtOnce = size_t{256} << 10;

Tree_NodePtr without_empty_branches(const Tree_NodePtr& tree) {
  if (tree) tree->RemoveEmptyBranches();
  return tree;
}

// A subtree for who asked `op`; `builder` had to make the tree.
CFG_SubTree* sub_tree_of(const Tree_NodePtr& tree, const char* op, const char* builder) {
  if (tree) return new CFG_SubTree(tree);
  return logger.reject_at(LOG_LEVEL_TRACE, nullptr, "%s %s return null, return NULL: \n", op,
                          builder);
}

bool is_path_given(const RWCString& path, const char* op) {
  if (!path.isNull()) return true;
  return logger.reject(false,
                       "%s : _path parameter is an empty string, return NULL_TREE_NODE_PTR\n", op);
}

}  // namespace

// The connection's query mutex, for a thread that may have it already.
class CFG_DBRepository::QueryTurn {
 public:
  explicit QueryTurn(CFG_DBRepository& repository)
      : m_owner(repository.m_query_turn),
        m_is_nested(m_owner == std::this_thread::get_id()),
        m_mutex(repository.GetMutexForSVCFGStartQuery()) {
    if (!m_mutex || m_is_nested) return;
    m_mutex->lock();
    m_owner = std::this_thread::get_id();
  }
  QueryTurn(const QueryTurn&) = delete;
  QueryTurn& operator=(const QueryTurn&) = delete;
  ~QueryTurn() {
    if (!m_mutex || m_is_nested) return;
    m_owner = std::thread::id();
    m_mutex->unlock();
  }
  explicit operator bool() const { return m_mutex != nullptr; }

 private:
  std::atomic<std::thread::id>& m_owner;
  const bool m_is_nested;
  Mutex* const m_mutex;
};

// --- one state -----------------------------------------------------------------------------------

class CFG_DBRepository::OneState::Reads {
 public:
  Reads(CFG_DBRepository& repository, CFGDB_Conn& connection)
      : m_unchanged(repository.m_changes), m_state(connection) {}
  explicit operator bool() const { return bool(m_state); }

 private:
  const std::lock_guard<std::recursive_mutex> m_unchanged;
  const CFGDB_Conn::OneState m_state;
};

CFG_DBRepository::OneState::OneState(CFG_DBRepository& repository) {
  CFGDB_Conn* const connection = repository.m_connection;
  if (!connection) return;
  m_reads = std::make_unique<Reads>(repository, *connection);
  if (!*m_reads) m_reads.reset();
}
CFG_DBRepository::OneState::~OneState() = default;

// Trees may be read, too.
template <class Read>
auto CFG_DBRepository::in_one_state(const Read& read) -> std::invoke_result_t<Read> try {
  const QueryTurn turn(*this);
  const OneState state(*this);
  if (!state) return {};
  const auto failures = [this] {
    return ask("in_one_state", [](CFGDB_Conn& db) { return db.failures(); });
  };
  const size_t before = failures();
  auto answer = read();
  if (failures() == before) return answer;
  if constexpr (std::is_pointer_v<decltype(answer)>) delete answer;
  return {};  // made from less than there is
} catch (...) {
  return cfg::answered(logger, std::invoke_result_t<Read>());
}

using Base = CFG_RepositoryServicesImp;
using Rule = const char**;

Tree_ValueAndPath* CFG_DBRepository::GetValue(RWCString name, Rule rule, int count) {
  return in_one_state([&] { return Base::GetValue(name, rule, count); });
}
CFG_SubTree* CFG_DBRepository::GetSubTree(RWCString name, Rule rule, int merge, int count) {
  return in_one_state([&] { return Base::GetSubTree(name, rule, merge, count); });
}
CFG_SubTree* CFG_DBRepository::GetSubTree(RWCString name, Rule rule, int count) {
  return in_one_state([&] { return Base::GetSubTree(name, rule, count); });
}
CFG_SubTree* CFG_DBRepository::GetSubTreeWithPrecentAndWildcard(const RWCString& path, Rule rule,
                                                                int merge, int count) {
  return in_one_state(
      [&] { return Base::GetSubTreeWithPrecentAndWildcard(path, rule, merge, count); });
}
CFG_SubTree* CFG_DBRepository::GetSubTreeWithPrecentAndWildcard(const RWCString& path, Rule rule,
                                                                int count) {
  return in_one_state([&] { return Base::GetSubTreeWithPrecentAndWildcard(path, rule, count); });
}
CFG_SubTree* CFG_DBRepository::GetSubTreeOnlyWithValuesLong(const RWCString& path, Rule rule,
                                                            int merge, int count) {
  return in_one_state([&] { return Base::GetSubTreeOnlyWithValuesLong(path, rule, merge, count); });
}
CFG_SubTree* CFG_DBRepository::GetSubTreeOnlyWithValuesLong(const RWCString& path, Rule rule,
                                                            int count) {
  return in_one_state([&] { return Base::GetSubTreeOnlyWithValuesLong(path, rule, count); });
}
CFG_SubTree* CFG_DBRepository::GetSubTreeOnlyWithValues(const RWCString& path, Rule rule, int merge,
                                                        int count) {
  return in_one_state([&] { return Base::GetSubTreeOnlyWithValues(path, rule, merge, count); });
}
CFG_SubTree* CFG_DBRepository::GetSubTreeOnlyWithValues(const RWCString& path, Rule rule,
                                                        int count) {
  return in_one_state([&] { return Base::GetSubTreeOnlyWithValues(path, rule, count); });
}
CFG_SubTree* CFG_DBRepository::GetSubTreeOnlyWithValuesMergeOneLevel(const RWCString& path,
                                                                     Rule rule, int count) {
  return in_one_state(
      [&] { return Base::GetSubTreeOnlyWithValuesMergeOneLevel(path, rule, count); });
}
CFG_SubTree* CFG_DBRepository::GetSubTreeOnlyWithValuesWithPrecentAndWildcard(const RWCString& path,
                                                                              Rule rule, int merge,
                                                                              int count) {
  return in_one_state([&] {
    return Base::GetSubTreeOnlyWithValuesWithPrecentAndWildcard(path, rule, merge, count);
  });
}
CFG_SubTree* CFG_DBRepository::GetSubTreeOnlyWithValuesWithPrecentAndWildcard(const RWCString& path,
                                                                              Rule rule,
                                                                              int count) {
  return in_one_state(
      [&] { return Base::GetSubTreeOnlyWithValuesWithPrecentAndWildcard(path, rule, count); });
}

CFG_SubTree* CFG_DBRepository::GetSubTree(RWCString& path, int index) {
  return in_one_state([&] { return child_at(path, index); });
}

CFG_SubTree* CFG_DBRepository::child_at(const RWCString& path, int index) {
  constexpr char op[] = "GetSubTree(RWCString & _path,int index)";
  const actual_string actual(path);
  logger.trace("Start %s\n", op);
  std::vector<RWCString> names;
  ask(op, [&](CFGDB_Conn& db) { return db.GetSubTreePathes(actual, names); });
  if (names.empty()) {
    return logger.reject_at(LOG_LEVEL_TRACE, nullptr,
                            "%s : no sub tree under _path <%s>, return NULL\n", op, actual.text());
  }
  if (index < 0 || static_cast<size_t>(index) >= names.size()) {
    return logger.reject(
        nullptr,
        "%s : index parameter is larger then the larger index of sub trees under _path, return NULL\b",
        op);
  }
  const cfg::stored_paths as_stored;
  RWCString child = cfg::join(actual.text(), names[static_cast<size_t>(index)]);
  return GetSubTree(child);
}

String_Arr* CFG_DBRepository::SearchKeyOrValueName(const RWCString& name, const RWCString& path) {
  return in_one_state([&] { return found_below(name, path); });
}

// --- building ------------------------------------------------------------------------------------

Tree_NodePtr CFG_DBRepository::GetTreeByParams(const TreeQuery& query) {
  CFG_PerformanceEvent event(CFGPerformanceEnabled(), "DB",
                             CFG_PerformanceEvent::PERFORMANCE_GET_SUB_TREE, query.path.view());
  const QueryTurn turn(*this);
  if (!turn) return nullptr;
  const std::lock_guard<std::recursive_mutex> unchanged(m_changes);
  const Tree_NodePtr tree =
      ask("GetTreeByParams", [&](CFGDB_Conn& db) { return tree_of(db, query); });
  if (tree && event.is_enabled()) event.set_count(tree->GetSubTreeEntriesCount("", tree));
  return tree;
}

Tree_NodePtr CFG_DBRepository::tree_of(CFGDB_Conn& db, const TreeQuery& query) {
  if (!HasRoomFor(0)) return nullptr;
  if (db.StartTreeQuery(query.path, query.wildcard, m_query_flag, query.seq, query.deleted,
                        query.all_deleted) == -1) {
    return logger.reject(Tree_NodePtr(), "open query failed \n");
  }
  logger.trace(
      "GetTreeByParams : paremeters path %s wildCard %d sequence %s deleted %d all deleted %d\n",
      query.path, query.wildcard, query.seq ? query.seq->view() : std::string_view(), query.deleted,
      query.all_deleted);
  struct Closing {
    ~Closing() { db.CloseTreeQuery(true); }
    CFGDB_Conn& db;
  } const closing{db};
  if (!db.has_tree()) return nullptr;
  cfg::tree_builder builder(db.GetQueryRootPath());
  size_t built = 0;  // since it was asked whether there is room
  db.each_record([&](std::string_view path, std::string_view value) {
    builder.add(path, value);
    built += kNodeBytes + value.size();
    return built < kBuiltAtOnce || HasRoomFor(std::exchange(built, 0));
  });
  return HasRoomFor(built) && !db.is_query_failed() ? builder.tree() : Tree_NodePtr();
}

Tree_NodePtr CFG_DBRepository::GetTreeNode(const RWCString& path) try {
  logger.trace("Start GetTreeNode(const RWCString & path)\n");
  Tree_NodePtr tree = GetTreeByParams({actual_string(path)});
  logger.trace("End GetTreeNode(const RWCString & path)\n");
  return tree;
} catch (...) {
  return cfg::answered(logger, Tree_NodePtr());
}

Tree_NodePtr CFG_DBRepository::GetTreeNodeBySeqNumber(const RWCString& path,
                                                      const RWCString& seq) try {
  logger.trace("Start GetTreeNodeBySeqNumber(const RWCString & path)\n");
  Tree_NodePtr tree = GetTreeByParams({actual_string(path), false, &seq});
  logger.trace("End GetTreeNodeBySeqNumber(const RWCString & path)\n");
  return tree;
} catch (...) {
  return cfg::answered(logger, Tree_NodePtr());
}

Tree_NodePtr CFG_DBRepository::GetTreeNodeWithLongValues(const RWCString& path) try {
  logger.trace("Start GetTreeNodeWithLongValues(const RWCString path)\n");
  return GetTreeByParams({actual_string(path)});
} catch (...) {
  return cfg::answered(logger, Tree_NodePtr());
}

Tree_NodePtr CFG_DBRepository::GetTreeNodeOnlyWithValues(const RWCString& path) try {
  return without_empty_branches(GetTreeByParams({actual_string(path)}));
} catch (...) {
  return cfg::answered(logger, Tree_NodePtr());
}

Tree_NodePtr CFG_DBRepository::GetTreeNodeOnlyWithValuesLong(const RWCString& path) try {
  logger.trace("Start GetTreeNodeOnlyWithValuesLong(const RWCString path)\n");
  return without_empty_branches(GetTreeByParams({actual_string(path)}));
} catch (...) {
  return cfg::answered(logger, Tree_NodePtr());
}

Tree_NodePtr CFG_DBRepository::GetTreeNodeWithPrecentAndWildcard(const RWCString& path) try {
  constexpr char op[] = "GetTreeNodeWithPrecentAndWildcard(const RWCString & _path)";
  logger.trace("Start %s\n", op);
  const actual_string actual(path);
  return is_path_given(actual, op) ? GetTreeByParams({actual, true}) : nullptr;
} catch (...) {
  return cfg::answered(logger, Tree_NodePtr());
}

Tree_NodePtr CFG_DBRepository::GetTreeNodeOnlyWithValuesWithPrecentAndWildcard(
    const RWCString& path) try {
  constexpr char op[] = "GetTreeNodeOnlyWithValuesWithPrecentAndWildcard(const RWCString & _path)";
  logger.trace("Start %s\n", op);
  const actual_string actual(path);
  if (!is_path_given(actual, op)) return nullptr;
  return without_empty_branches(GetTreeByParams({actual, true}));
} catch (...) {
  return cfg::answered(logger, Tree_NodePtr());
}

// --- subtrees ------------------------------------------------------------------------------------

CFG_SubTree* CFG_DBRepository::GetSubTree(RWCString& path) try {
  logger.trace("Start GetSubTree(RWCString & path) %s\n", path);
  return sub_tree_of(GetTreeNode(path), "GetSubTree(RWCString & path)", "GetTreeNode");
} catch (...) {
  return cfg::answered(logger, nullptr);
}

CFG_SubTree* CFG_DBRepository::GetSubTreeBySeqNumber(const RWCString& path, RWCString& seq) try {
  constexpr char op[] = "GetSubTreeBySeqNumber(RWCString & path)";
  logger.trace("Start GetSubTreeBySeqNumber(RWCString & path)\n");
  return sub_tree_of(GetTreeNodeBySeqNumber(path, seq), op, "GetTreeNodeBySeqNumber");
} catch (...) {
  return cfg::answered(logger, nullptr);
}

CFG_SubTree* CFG_DBRepository::GetSubTreeOnlyDeletedNodes(const RWCString& path, RWCString& seq,
                                                          bool all) try {
  logger.trace("Start GetSubTreeOnlyDeletedNodes\n");
  return sub_tree_of(GetTreeByParams({actual_string(path), false, &seq, true, all}),
                     "GetSubTreeOnlyDeletedNodes", "BuildSubTree");
} catch (...) {
  return cfg::answered(logger, nullptr);
}

CFG_SubTree* CFG_DBRepository::GetSubTreeOnlyWithValues(const RWCString& path) try {
  constexpr char op[] = "GetSubTreeOnlyWithValues(RWCString & path)";
  logger.trace("Start GetSubTreeOnlyWithValues(RWCString & path)\n");
  return sub_tree_of(GetTreeNodeOnlyWithValues(path), op, "GetTreeNodeOnlyWithValues");
} catch (...) {
  return cfg::answered(logger, nullptr);
}

CFG_SubTree* CFG_DBRepository::GetSubTreeOnlyWithValuesLong(const RWCString& path) try {
  constexpr char op[] = "GetSubTreeOnlyWithValuesLong(RWCString & path)";
  logger.trace("Start GetSubTreeOnlyWithValuesLong(RWCString & path)\n");
  return sub_tree_of(GetTreeNodeOnlyWithValuesLong(path), op, "GetTreeNodeOnlyWithValuesLong");
} catch (...) {
  return cfg::answered(logger, nullptr);
}

CFG_SubTree* CFG_DBRepository::GetSubTreeWithLongValues(const RWCString& path) try {
  constexpr char op[] = "GetSubTreeWithLongValues(RWCString & path)";
  logger.trace("Start GetSubTreeWithLongValues(RWCString & path)\n");
  return sub_tree_of(GetTreeNodeWithLongValues(path), op, "GetTreeNodeWithLongValues");
} catch (...) {
  return cfg::answered(logger, nullptr);
}

CFG_SubTree* CFG_DBRepository::GetSubTreeWithPrecentAndWildcard(const RWCString& path) try {
  constexpr char op[] = "GetSubTreeWithPrecentAndWildcard(const RWCString & path)";
  logger.trace("Start %s for path <%s>\n", op, path);
  return sub_tree_of(GetTreeNodeWithPrecentAndWildcard(path), op,
                     "GetTreeNodeWithPrecentAndWildcard");
} catch (...) {
  return cfg::answered(logger, nullptr);
}

CFG_SubTree* CFG_DBRepository::GetSubTreeOnlyWithValuesWithPrecentAndWildcard(
    const RWCString& path) try {
  constexpr char op[] = "GetSubTreeOnlyWithValuesWithPrecentAndWildcard(const RWCString & path)";
  logger.trace("Start %s\n", op);
  return sub_tree_of(GetTreeNodeOnlyWithValuesWithPrecentAndWildcard(path), op,
                     "GetTreeNodeOnlyWithValuesWithPrecentAndWildcard");
} catch (...) {
  return cfg::answered(logger, nullptr);
}

// --- what is sound -------------------------------------------------------------------------------

CFG_SubTree* CFG_DBRepository::Salvage(std::vector<std::string>& damage) try {
  constexpr std::string_view root = "halvoria";
  cfg::tree_builder builder(root);
  size_t rows = 0;
  const auto take = [&](std::string_view path, std::string_view value) {
    ++rows;
    if (path == root) return;
    const bool is_below = path.size() > root.size() && path[root.size()] == '\\' &&
                          path.substr(0, root.size()) == root;
    if (is_below && builder.add(path.substr(root.size() + 1), value)) return;
    damage.push_back("<" + std::string(path) + "> has no place in the tree");
  };
  const auto say = [&](const std::string& what) { damage.push_back(what); };
  ask("Salvage", [&](CFGDB_Conn& db) { return db.Inspect(take, say); });
  return rows ? new CFG_SubTree(builder.tree()) : nullptr;
} catch (...) {
  return cfg::answered(logger, nullptr);
}

// --- record by record ----------------------------------------------------------------------------

// What is asked for each record does not say that there is no connection: StartTreeQuery did.

int CFG_DBRepository::StartTreeQuery(RWCString& path, bool wildcard, const RWCString* seq,
                                     bool deleted) try {
  const actual_string actual(path);
  CFGDB_Conn* const db = m_connection;
  if (db) return db->StartTreeQuery(actual, wildcard, false, seq, deleted, false);
  say_not_connected("StartTreeQuery");
  return -1;
} catch (...) {
  return cfg::answered(logger, -1);
}
Tree_NodeInfo* CFG_DBRepository::GetNextFromQuery() try {
  CFGDB_Conn* const db = m_connection;
  return db ? db->GetNextFromQuery() : nullptr;
} catch (...) {
  return cfg::answered(logger, nullptr);
}
bool CFG_DBRepository::NextFromQuery(std::string_view& path, std::string_view& value) try {
  CFGDB_Conn* const db = m_connection;
  return db && db->next_record(path, value);
} catch (...) {
  return cfg::answered(logger, false);
}
bool CFG_DBRepository::EachFromQuery(
    const std::function<bool(std::string_view, std::string_view)>& take) try {
  CFGDB_Conn* const db = m_connection;
  return db && db->each_record(take);
} catch (...) {
  return cfg::answered(logger, false);
}
bool CFG_DBRepository::QueryHasTree() try {
  CFGDB_Conn* const db = m_connection;
  return db && db->has_tree();
} catch (...) {
  return cfg::answered(logger, false);
}
bool CFG_DBRepository::IsQueryFailed() {
  CFGDB_Conn* const db = m_connection;
  return !db || db->is_query_failed();
}
int CFG_DBRepository::CloseTreeQuery() {
  return ask("CloseTreeQuery()", [](CFGDB_Conn& db) { return db.CloseTreeQuery(true); });
}
const RWCString& CFG_DBRepository::GetQueryRootPath() {
  CFGDB_Conn* const db = m_connection;
  return db ? db->GetQueryRootPath() : m_query_root_path;
}
