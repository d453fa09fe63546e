// One connection to the configuration's database.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <strings/Export.h>
#include <strings/RWCString.h>
#include <thread/ForkHandler.h>
#include <tree/Tree_NodeInfo.h>
#include <tree/Tree_PathAndValueArray.h>
#include <utility/Tmr_PtrSortedVector.h>

enum class Db_Result;
class Db_Store;
struct Db_Entry;
class Db_TreeQuery;

// The rules of the stored tree over a Db_Store: keys and values by full path, parents made on
// demand, changes numbered, deletions kept. Paths are full, lower-cased and without
// placeholders; `%` as a component of a wildcard path stands for any key. Neither they nor values
// hold NUL bytes: such records are refused, since they could not be sent.
//
// A change begins a store transaction when none is open. With auto-commit on, an operation
// whose `commit` argument is not 0 ends it; one with 0 leaves it for the next operation of
// the same step. With auto-commit off, the transaction lasts until Commit or RollBack. A
// failed operation with auto-commit on rolls back what its step has done. With auto-commit off
// a refused operation leaves the transaction as it is, and so does one of several statements
// (Rename, RemoveSubTree, WriteSubTree) in which the store fails. When it fails otherwise, or
// cannot go back, the transaction is lost: changes answer DB_ERROR, and `uncommitted` stays, until
// Commit (which answers 0) or RollBack.
//
// Lock takes the store's write lock at once, so that what is read from then on stays true until it
// is given back, whoever else uses the store. RollBack keeps it. One that was lost in a failure is
// not taken again: changes answer DB_ERROR until Commit, which answers 0, or SetAutoCommit(1).
//
// A reader of the same connection sees its pending changes. Writing what is there already is no
// change and takes no number.
//
// Threads: any, one after the other; a transaction and a tree query belong to all of them, so
// GetMutexPtr serialises tree queries. Failures are the codes below, null, or empty answers; the
// reason is logged here.
//
// After a fork both processes go on, each with a connection of its own, which its next operation
// opens, provided that the file is still there. What was pending is the parent's; of a SQLite file
// in which something was pending, or a query open, the child can use nothing.
class HALVORIA_API CFGDB_Conn {
  // Of every operation: waits for those of other threads.
  class Use;
  class Reads;
  class Change;

 public:
  static constexpr int COMMIT_OK = 1004;  // what Commit answers; 0 when it failed
  static constexpr int OK = 1;            // of a write
  static constexpr int DB_ERROR = -1002;  // the store refused, or is gone, or is locked too long
  static constexpr int COMMIT_ERROR = -1005;
  static constexpr int PARENT_IS_VALUE = -1007;
  static constexpr int IS_KEY = -1008;  // no value can be there

  // The flag is that of the parameters file; the stores here are UTF-8 whatever it says.
  explicit CFGDB_Conn(bool set_nls_lang);
  CFGDB_Conn(const CFGDB_Conn&) = delete;
  CFGDB_Conn& operator=(const CFGDB_Conn&) = delete;
  ~CFGDB_Conn();

  // `sqlite:FILE`, which is made when it is missing, or a libpq connection string; a relative file
  // is taken from where the process runs now. Loads the module of the store, makes or migrates the
  // schema. `user` is the role of a PostgreSQL connection string that names none. With `sql_trace`
  // statements are logged (6). 1, or 0.
  int Init(const RWCString& conn_string, const RWCString& user, bool sql_trace);
  void disconnect();
  bool is_connected() const { return m_store || m_is_parked; }
  // What the store said when it failed for the first time since the last call of this; empty when
  // it did not. An empty answer alone does not tell what is not there from what cannot be read.
  std::string TakeFailure();
  size_t failures() const { return m_failures; }  // of the store, since the beginning
  // Why the last change was refused by the rules of the tree, with the place; empty when it was
  // not.
  std::string TakeRefusal();
  // Keeps why it is not even asked to change what is at a path.
  void NoteRefusal(std::string_view path, std::string_view why);

  // --- transactions ---------------------------------------------------------------------------

  // Turns auto-commit off and keeps all other writers out, until Commit or SetAutoCommit(1). OK,
  // or DB_ERROR when another one does not leave in time; auto-commit is then as it was.
  int Lock();
  void SetAutoCommit(int on);
  int GetAutoCommit() const { return m_auto_commit; }
  int Commit(int);    // COMMIT_OK, or 0 when what was pending is lost
  int RollBack(int);  // 1, or 0
  // How long a change waits for another writer of the store, in milliseconds (default 10000).
  void SetWriteWait(int milliseconds) { m_write_wait = milliseconds; }
  // Asked now and then by reads of many rows: once it tells why to give up, they fail with that.
  // Empty texts, and no function, are to go on.
  void SetGiveUp(std::function<std::string()> why) { m_why_give_up = std::move(why); }
  int SetSessionInfo(const std::string& session, int info);  // named in the traced statements
  Mutex* GetMutexPtr() { return &m_query_mutex; }

  // 1 while changes are made and not committed; read directly.
  int uncommitted = 0;

  // --- reads ----------------------------------------------------------------------------------

  RWCString GetValue(const RWCString& path);
  // At a 0-based position among the values directly under the key, in order of name.
  RWCString GetValue(const RWCString& path, int index);
  RWCString GetValueName(const RWCString& path, int index);
  int GetValueNum(const RWCString& path);
  int GetSubTreeNum(const RWCString& path);
  int GetSubTreeEntriesCount(const RWCString& path);  // all below the key, itself not counted
  int IsSubTreeExist(const RWCString& path, int);     // 1 when a key is there
  // Names of the keys directly under the key, in order; empty for an empty key. False when
  // there is no such key.
  bool GetSubTreePathes(const RWCString& path, std::vector<RWCString>& names);
  // Records (path: the name) of the values directly under the key; null when there is no such
  // key. The caller owns it.
  [[nodiscard]] Tmr_PtrSortedVector<Tree_NodeInfo>* GetSubTreeValues(const RWCString& path);
  // All paths of keys and values that match a wildcard path, in order.
  std::vector<RWCString> FillPath(const RWCString& path);
  // The first key that matches the wildcard path and whose value at `name` is `value`; `name`
  // may end with a `%` that stands for any end of the last component.
  RWCString FillPath(const RWCString& path, const RWCString& name, const RWCString& value);
  // The keys that match the wildcard path and all, or with `is_and` 0 any, of the rules: path
  // below the key and value.
  std::vector<RWCString> FillPathWithRuleList(const RWCString& path, Tree_PathAndValueArray* rules,
                                              int is_case_sensitive, int is_and);
  // Full paths below `path` of what holds the pattern in the name of a key, the name of a value,
  // or a text. The pattern is in lower case unless `is_case_sensitive`.
  std::vector<RWCString> SearchPatternExtended(const RWCString& pattern, const RWCString& path,
                                               bool find_key, bool find_value_name,
                                               bool find_value_data, bool is_case_sensitive,
                                               bool match_whole_word);
  RWCString GetNodeName(const RWCString& ae);
  RWCString GetNodeNameByIp(const RWCString& ip);

  // As long as it lives, what one thread reads is of one state of the store, if it changes nothing;
  // other threads wait. False when the store failed.
  class HALVORIA_API OneState {
   public:
    explicit OneState(CFGDB_Conn& conn);
    OneState(const OneState&) = delete;
    OneState& operator=(const OneState&) = delete;
    ~OneState();
    explicit operator bool() const { return m_reads != nullptr; }

   private:
    std::unique_ptr<Reads> m_reads;
  };

  // --- record by record -----------------------------------------------------------------------

  // Starts reading the tree at a path, what changed after a number, or the entries deleted
  // after one. With `wildcard` the path may hold `%` components, and the top of the tree is the
  // path before the first. -1 when the query cannot be opened. One query at a time.
  int StartTreeQuery(const RWCString& path, bool wildcard, bool query_flag,
                     const RWCString* sequence, bool deleted, bool all_deleted);
  // The next record; null at the end and on an error. The path is relative to the top of the
  // tree, a parent comes before its children, an empty value is a key. The caller owns it.
  [[nodiscard]] Tree_NodeInfo* GetNextFromQuery();
  // The same without a copy: views that hold until the next call.
  bool next_record(std::string_view& path, std::string_view& value);
  // Gives the records from the next one on to `take` until that answers false. False at the end.
  bool each_record(const std::function<bool(std::string_view, std::string_view)>& take);
  // Whether there is a tree at all: a key at the path, or a record.
  bool has_tree();
  bool is_query_failed() const;
  int CloseTreeQuery(bool);
  const RWCString& GetQueryRootPath() const { return m_query_root; }

  // --- changes --------------------------------------------------------------------------------

  // Makes the key and the keys above it. PARENT_IS_VALUE when one of them is a value.
  int CreatePath(const RWCString& path, int commit, bool);
  // Puts the record in the place of what is at its path, and makes the keys above it. A value that
  // is there already keeps its number.
  int InsertLine(const Tree_NodeInfo& record, int commit, bool);
  int RemoveLeafLine(const RWCString& path, int commit);  // a value; OK when there is none
  int RemoveSubTree(const RWCString& path, int commit, bool);
  // Gives the key, with all that is below it, or the value at `path` the name that `new_path` ends
  // with. Looks first whether the whole result can be stored and nothing has that name: what is
  // refused has changed nothing, inside a transaction neither.
  int Rename(const RWCString& path, const RWCString& new_path, int commit);
  // Puts the records, full paths in order with the top first, in the place of what is at the
  // top's path; entries that do not change keep their numbers. Makes the keys above the top.
  int WriteSubTree(const Tmr_PtrSortedVector<Tree_NodeInfo>& records, const RWCString& path);

  // --- the store ------------------------------------------------------------------------------

  RWCString GetDbServerDateTime();  // "2026-11-23 04:45:10", UTC
  // Decimal texts. Every changed or deleted entry takes the next number; "0" before the first.
  RWCString GetMaxSeqNumber(const RWCString& path);  // of what is at or below the path, or was
  RWCString GetMaxSeqNumber();
  // From this number on all deletions are kept.
  RWCString GetMinSeqNumberOfDeletedEntry();
  // Forgets deletions older than that many days. How many went, -1 on failure.
  int PurgeDeletedEntries(int days);
  RWCString GetServerSyncID();  // names the database for life
  RWCString GetCfgPass() { return RWCString(); }
  RWCString GetConnectionAlias() { return RWCString(); }
  // Runs the store's own check of what it holds, and sees whether it is a tree; false with the
  // reason.
  bool CheckIntegrity(std::string& reason);
  // Reads so many rows from a path on, for nothing but to see damage, which is logged. `from` is
  // then where to go on, empty at the end. False when there is damage.
  bool CheckSome(std::string& from, int rows);
  // Gives all rows that are as they were written to `row`, in order of path, and what is wrong to
  // `damage`, past which it goes on where that can be. False when not connected.
  bool Inspect(const std::function<void(std::string_view path, std::string_view value)>& row,
               const std::function<void(const std::string& what)>& damage);

 private:
  struct Savepoint {  // how it was there
    int64_t sequence;
    bool is_changed;
  };

  static void told(void* conn, ForkHandler::Phase phase);
  void before_fork();
  void in_child();
  void note_failure(const std::string& why);
  bool reject(const char* op, std::string_view path, const std::string& why);
  bool is_usable(const char* op, std::string_view path);
  bool gives_up(const Use& use);
  bool reconnect();
  bool is_file_allowed();

  // Reads.
  bool is_tree(std::string& reason);
  int children(const char* op, const RWCString& path, bool keys, int at, RWCString* name,
               RWCString* value);

  // Changes.
  int begin(const char* op, std::string_view path);
  int reject_begin(const char* op, std::string_view path, Db_Result why);
  std::optional<int> replace_alone(const char* op, std::string_view path, std::string_view value);
  void let_fork_pass();
  int end(const char* op, std::string_view path, int commit);
  int refuse(const char* op, std::string_view path, int code, const char* why);
  int lose(const char* op, std::string_view path);
  void undo() noexcept;
  bool go_back();
  int roll_back_to_lock();
  int missing_keys(const char* op, std::string_view path, std::vector<Db_Entry>& keys);
  int put(const char* op, std::vector<Db_Entry>& rows);
  bool erase_tree(std::string_view top);
  Db_Result read_renamed(std::string_view top, std::string_view new_top,
                         Tmr_PtrSortedVector<Tree_NodeInfo>& records);
  bool commit_pending(const char* op);
  void forget_transaction();
  void note_change() { m_is_changed = true, uncommitted = 1; }

  std::unique_ptr<Db_Store> m_store;
  std::string m_conn_string, m_user, m_session;
  std::string m_file;  // which one is open, or was when the process forked; empty: none
  std::string m_failure;
  std::string m_refusal;
  std::atomic<size_t> m_failures{0};
  std::function<std::string()> m_why_give_up;
  std::optional<Savepoint> m_savepoint;  // of an operation of several statements
  int64_t m_sequence = 0;                // the last number given, while changing
  int64_t m_sequence_at_lock = 0;
  std::string m_known_key;  // a key that is there, while changing

  std::unique_ptr<Db_TreeQuery> m_query;
  RWCString m_query_root;
  Mutex m_query_mutex;
  std::recursive_mutex m_use_mutex;

  int m_auto_commit = 1;
  int m_write_wait = 10000;
  std::atomic<bool> m_has_failed{false};  // there is one, to be looked at without waiting
  bool m_sql_trace = false;
  bool m_is_query_failed = false;

  bool m_is_changing = false;  // a transaction of the store is open
  bool m_is_changed = false;   // and has changed something
  bool m_is_lost = false;      // the transaction went in a failure, and nobody was told yet
  bool m_is_locked = false;    // by Lock, also when that was lost

  std::atomic<bool> m_is_file{false};  // SQLite, which must not be open in both after a fork
  bool m_is_parked = false;            // closed for a fork, and opened again by the next use
  bool m_is_use_held = false;          // by the thread that forks
  std::atomic<bool> m_is_fork_near{false};
  ForkHandler m_fork_handler{ForkHandler::DATABASES, told, this};
};
