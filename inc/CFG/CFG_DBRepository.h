// A repository over a table of a relational database.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include <CFG/CFG_RepositoryServicesImp.h>
#include <thread/ForkHandler.h>

class CFGDB_Conn;

// What the configuration server works on: keeps no tree, but reads and writes the rows of the
// database and builds the trees that it is asked for. Names and paths come in order of their
// bytes. Subtrees are detached copies. Values are stored below `halvoria` only, not where a key
// is, and not below a value; the keys above a value are made.
//
// Each change is durable when its operation returns. Between Lock and UnLock changes are
// pending: seen by this object only, and gone after Rollback or DisConnect. Another repository
// on the same database, of any process, that locks or changes something meanwhile waits, and fails
// after a while: Lock answers FALSE then.
//
// Ownership: the connection is this object's. Threads: any; they take turns, and a Lock is that
// of all threads, but an update ends with the thread that started it: one that is left open then is
// undone, whoever wrote in it. Who reads a query record by record holds the mutex that
// GetMutexForSVCFGStartQuery gives from StartTreeQuery to CloseTreeQuery, as every read of a tree
// does, so it must not ask for a tree meanwhile; and nobody else changes anything. Failure: as
// CFG_RepositoryServices; before Connect nothing is answered.
class HALVORIA_API CFG_DBRepository : public CFG_RepositoryServicesImp {
 public:
  using CFG_RepositoryServicesImp::AddOrReplaceSubTree;
  using CFG_RepositoryServicesImp::GetMaxSeqNumber;
  using CFG_RepositoryServicesImp::GetSubTree;
  using CFG_RepositoryServicesImp::GetSubTreeNum;
  using CFG_RepositoryServicesImp::GetSubTreeOnlyWithValues;
  using CFG_RepositoryServicesImp::GetSubTreeOnlyWithValuesLong;
  using CFG_RepositoryServicesImp::GetSubTreeOnlyWithValuesWithPrecentAndWildcard;
  using CFG_RepositoryServicesImp::GetSubTreeWithPrecentAndWildcard;
  using CFG_RepositoryServicesImp::GetValue;
  using CFG_RepositoryServicesImp::GetValueName;
  using CFG_RepositoryServicesImp::GetValueNum;

  // Connect reads the properties `user`, `conn_string`, `sql_trace` and `set_nls_lang`.
  CFG_DBRepository();
  // Connect takes these and no property: `sqlite:FILE` or a libpq connection string, and the
  // role for a connection string that names none.
  CFG_DBRepository(const RWCString& conn_string, const RWCString& user);
  ~CFG_DBRepository() override;

  // --- CFG_Services ------------------------------------------------------------------------

  [[nodiscard]] CFG_SubTree* GetSubTree(RWCString& path, int index) override;
  [[nodiscard]] CFG_SubTree* GetSubTree(RWCString& path) override;
  RWCString GetValue(RWCString& path, int index) override;
  RWCString GetValue(const RWCString& path) override;
  RWCString GetValueName(RWCString& path, int index) override;
  int GetValueNum(RWCString& path) override;
  int GetSubTreeNum(RWCString& path) override;
  int GetSubTreeEntriesCount(const RWCString& path) override;
  [[nodiscard]] Tree_PathAndValueArray* GetSubTreeValues(const RWCString& path) override;
  // Null also for a key without keys below it.
  [[nodiscard]] String_Arr* GetSubTreePaths(const RWCString& path) override;
  int SetValue(const RWCString& value_path, const RWCString& value_data) override;
  int AddOrReplaceSubTree(CFG_SubTree* sub_tree, const RWCString& path) override;
  int DeleteSubTree(const RWCString& path) override;  // TRUE also when nothing is there
  int DeleteValue(const RWCString& path) override;
  int IsSubTreeExist(const RWCString& path) override;

  // By search rules, each of which is one read of one state.
  [[nodiscard]] Tree_ValueAndPath* GetValue(RWCString name, const char** search_rule,
                                            int search_num) override;
  [[nodiscard]] CFG_SubTree* GetSubTree(RWCString name, const char** search_rule, int merge,
                                        int search_num) override;
  [[nodiscard]] CFG_SubTree* GetSubTree(RWCString name, const char** search_rule,
                                        int search_num) override;

  // --- CFG_RepositoryServices --------------------------------------------------------------

  [[nodiscard]] CFG_SubTree* GetSubTreeWithPrecentAndWildcard(const RWCString& path,
                                                              const char** search_rule, int merge,
                                                              int search_num) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeWithPrecentAndWildcard(const RWCString& path,
                                                              const char** search_rule,
                                                              int search_num) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyWithValuesLong(const RWCString& path,
                                                          const char** search_rule, int merge,
                                                          int search_num) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyWithValuesLong(const RWCString& path,
                                                          const char** search_rule,
                                                          int search_num) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyWithValues(const RWCString& path,
                                                      const char** search_rule, int merge,
                                                      int search_num) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyWithValues(const RWCString& path,
                                                      const char** search_rule,
                                                      int search_num) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyWithValuesMergeOneLevel(const RWCString& path,
                                                                   const char** search_rule,
                                                                   int search_num) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyWithValuesWithPrecentAndWildcard(
      const RWCString& path, const char** search_rule, int merge, int search_num) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyWithValuesWithPrecentAndWildcard(
      const RWCString& path, const char** search_rule, int search_num) override;
  RWCString GetNodeName(RWCString ae) override;
  RWCString GetNodeNameByIp(RWCString ip) override;
  [[nodiscard]] String_Arr* FillPath(RWCString path) override;
  // A name with "inet_address" is that of an address: with or without brackets, IPv4 also as
  // mapped to IPv6, under any name with that beginning or as an additional address.
  RWCString FillPath(RWCString path, RWCString value_name, RWCString value_data) override;
  // The keys that match the path and all, or any, of 1 to 10 rules: values at paths below them.
  [[nodiscard]] String_Arr* FillPathWithRuleList(RWCString path, Tree_PathAndValueArray* rules,
                                                 int is_case_sensitive, int is_and_rule) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeWithPrecentAndWildcard(const RWCString& path) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyWithValuesLong(const RWCString& path) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyWithValues(const RWCString& path) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyWithValuesWithPrecentAndWildcard(
      const RWCString& path) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeWithLongValues(const RWCString& path) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeBySeqNumber(const RWCString& path, RWCString& seq) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyDeletedNodes(const RWCString& path, RWCString& seq,
                                                        bool all) override;

  int Connect() override;
  int DisConnect() override;
  int Lock() override;
  int UnLock() override;
  int Rollback() override;
  int StartTransactionUpdate() override;  // FALSE when Lock is refused
  int SetSessionInfo(const std::string& session, int info) override;

  RWCString GetCfgPass() override;
  RWCString GetConnectionAlias() override;
  RWCString GetDbServerDateTime() override;
  RWCString GetServerNodeName() override;
  RWCString GetMinSeqNumberOfDeletedEntry() override;
  RWCString GetMaxSeqNumber(const RWCString& path) override;
  RWCString GetMaxSeqNumber() override;
  RWCString GetServerSyncID() override;

  int StartTreeQuery(RWCString& path, bool wildcard, const RWCString* seq, bool deleted) override;
  [[nodiscard]] Tree_NodeInfo* GetNextFromQuery() override;
  int CloseTreeQuery() override;
  const RWCString& GetQueryRootPath() override;

  // --- added here ------------------------------------------------------------------------------

  int Commit();  // TRUE when what was pending is stored
  int GetAutoCommit();
  void SetAutoCommit(int on);
  Mutex* GetMutexForSVCFGStartQuery();  // null before Connect
  bool HasPendingChanges();

  // Makes the key and those above it.
  int CreatePath(const RWCString& path);
  // Renames a value below the key at `path`.
  int SetValueName(const RWCString& path, const RWCString& old_name, const RWCString& new_name);
  // Full paths of the keys, of the values by name, and of the values by text, that hold the
  // pattern, or are it. Names are compared without case. Null when there are none.
  [[nodiscard]] String_Arr* SearchPatternExtended(const RWCString& pattern, const RWCString path,
                                                  bool find_key, bool find_value_name,
                                                  bool find_value_data, bool value_case_sensitive,
                                                  bool match_whole_word);

  // GetNextFromQuery without a copy: false at the end and on an error, views until the next call.
  bool NextFromQuery(std::string_view& path, std::string_view& value);
  // The same for the records from the next one on, until `take` answers false. False at the end.
  bool EachFromQuery(const std::function<bool(std::string_view, std::string_view)>& take);
  bool QueryHasTree();   // false where nothing is at the path, and nothing was asked for besides
  bool IsQueryFailed();  // the records so far are not all

  // What its thread reads while this lives is of one state of the database. Changes nothing
  // meanwhile, and other threads of the repository wait. False when the database failed.
  class OneState {
   public:
    explicit OneState(CFG_DBRepository& repository);
    OneState(const OneState&) = delete;
    OneState& operator=(const OneState&) = delete;
    ~OneState();
    explicit operator bool() const { return m_reads != nullptr; }

   private:
    class Reads;
    std::unique_ptr<Reads> m_reads;
  };

  // How long a change waits for another one's end.
  void SetWriteWait(int milliseconds);
  // Asked now and then by reads of trees and searches, on their thread: once it tells why to give
  // up, they fail with that. Empty texts, and no function, are to go on. Not to be set while other
  // threads read; nor is the next.
  void SetGiveUp(std::function<std::string()> why);
  // Asked now and then whether a tree that is being built may take so many bytes more, about. One
  // that may not is read no further: the read answers that there is nothing. No function: it may.
  void SetRoom(std::function<bool(size_t bytes)> has_room) { m_has_room = std::move(has_room); }
  bool HasRoomFor(size_t bytes) const { return !m_has_room || m_has_room(bytes); }
  // The database's own check of what it holds; false with the reason.
  bool CheckIntegrity(std::string& reason);
  // Looks for damage in so many entries from a path on, which is moved on, and empty at the end.
  bool CheckSome(std::string& from, int entries);
  // What the database holds that is as it was written, and a line for each place where something is
  // not. Null when nothing is. The caller owns it.
  [[nodiscard]] CFG_SubTree* Salvage(std::vector<std::string>& damage);
  // Why the database failed since the last call; empty when it did not.
  std::string TakeFailure();
  // Why the last value or subtree was not written or deleted by the rules of the tree, with the
  // place; empty when it was.
  std::string TakeRefusal();
  // Forgets deletions of more than so many days ago. How many went, -1 on failure.
  int PurgeDeletedEntries(int days);

 protected:
  int WriteSubTree(Tree_NodePtr& sub_tree, const RWCString& path) override;
  [[nodiscard]] String_Arr* SearchKeyOrValueName(const RWCString& name,
                                                 const RWCString& path) override;
  int SetOrRanameKeyName(const RWCString& path, const RWCString& key_name) override;
  Tree_NodePtr GetTreeNode(const RWCString& path) override;
  Tree_NodePtr GetTreeNodeOnlyWithValuesLong(const RWCString& path) override;
  Tree_NodePtr GetTreeNodeOnlyWithValues(const RWCString& path) override;
  Tree_NodePtr GetTreeNodeWithPrecentAndWildcard(const RWCString& path) override;
  Tree_NodePtr GetTreeNodeOnlyWithValuesWithPrecentAndWildcard(const RWCString& path) override;
  Tree_NodePtr GetTreeNodeWithLongValues(const RWCString& path);
  Tree_NodePtr GetTreeNodeBySeqNumber(const RWCString& path, const RWCString& seq);

 private:
  struct Given {  // what the second constructor was given
    RWCString conn_string, user;
  };
  struct TreeQuery;
  class Update;

  // What `asked` makes of the connection; before Connect, and when something is thrown, nothing,
  // with a line in the log.
  template <class Asked>
  auto ask(const char* op, const Asked& asked) -> std::invoke_result_t<Asked, CFGDB_Conn&> try {
    CFGDB_Conn* const connection = m_connection.load(std::memory_order_acquire);
    if (connection) return asked(*connection);
    say_not_connected(op);
    return std::invoke_result_t<Asked, CFGDB_Conn&>();
  } catch (...) {
    say_failed(op);
    return std::invoke_result_t<Asked, CFGDB_Conn&>();
  }
  static void say_failed(const char* op) noexcept;
  static void say_not_connected(const char* op);
  static void told(void* repository, ForkHandler::Phase phase);

  class QueryTurn;
  template <class Read>
  auto in_one_state(const Read& read) -> std::invoke_result_t<Read>;

  Tree_NodePtr GetTreeByParams(const TreeQuery& query);
  Tree_NodePtr tree_of(CFGDB_Conn& connection, const TreeQuery& query);
  bool is_below_root(const RWCString& path);  // or the root; else the refusal is noted
  CFG_SubTree* child_at(const RWCString& path, int index);
  String_Arr* found_below(const RWCString& name, const RWCString& path);
  bool is_taken(const RWCString& path);  // by a key or a value
  // Keeps for TakeRefusal why the connection was not asked. Gives `answer` back.
  int refused(const RWCString& path, const char* why, int answer);
  bool may_write(const RWCString& path, const char* op);

  const std::unique_ptr<const Given> m_given;      // null: the properties hold
  std::atomic<CFGDB_Conn*> m_connection{nullptr};  // owned; made by Connect, once
  // Held by every change, so that the steps of several are not mixed, and while a tree is read,
  // since a change moves the records away. Taken after the connection's query mutex.
  std::recursive_mutex m_changes;
  std::atomic<std::thread::id> m_query_turn{};  // whose thread has the query mutex, if by QueryTurn
  bool m_query_flag = false;                    // of the connection's tree queries
  std::function<bool(size_t bytes)> m_has_room;
  const std::shared_ptr<Update> m_update;
  ForkHandler m_fork_handler{ForkHandler::REPOSITORIES, told, this};
};
