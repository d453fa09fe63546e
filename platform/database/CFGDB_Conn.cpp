#include <database/CFGDB_Conn.h>

#include <algorithm>
#include <chrono>
#include <new>
#include <set>
#include <thread>
#include <utility>

#include <database/CFGDB_Conn_Use.h>
#include <database/Db_Module.h>
#include <database/Db_Path.h>
#include <database/Db_TreeQuery.h>
#include <logging/Logger.h>
#include <system/Sys_FileName.h>

// Connection and transactions. What is read is in CFGDB_Conn_Reads.cpp and _Query.cpp, what is
// changed in CFGDB_Conn_Changes.cpp.

namespace {
constexpr Log_Logger logger("platform/database/CFGDB_Conn", 502);

using std::chrono::milliseconds;
constexpr milliseconds kWaitAtOnce(100);  // for another writer of a file

constexpr std::string_view kFile = "sqlite:";

// Files that the process this one was forked from had something pending in, whatever their names.
// Written while there is one thread.
std::set<std::string>& barred_files() {
  static auto& files = *new std::set<std::string>;
  return files;
}
[[maybe_unused]] const auto& made_early = barred_files();  // before any fork

// Made when the library is loaded, since a fork knows of them and nobody holds a lock by then.
ForkReleasedMutex& concerns_mutex = *new ForkReleasedMutex;
std::set<std::string>& said = *new std::set<std::string>;

// Once in a process, which may have many connections.
void say_concern(const std::string& concern) {
  const MutexGuard guard(concerns_mutex);
  if (!concern.empty() && said.insert(concern).second) logger.warning("Init: %s\n", concern);
}

std::string file_of(std::string_view conn_string) {
  return Sys_FileIdentity(RWCString(conn_string.substr(kFile.size()))).str();
}
}  // namespace

CFGDB_Conn::CFGDB_Conn(bool) {}
CFGDB_Conn::~CFGDB_Conn() { disconnect(); }

int CFGDB_Conn::Init(const RWCString& conn_string, const RWCString& user, bool sql_trace) {
  disconnect();
  const std::lock_guard<std::recursive_mutex> guard(m_use_mutex);
  m_conn_string = conn_string.str();
  m_is_file = m_conn_string.starts_with(kFile) && m_conn_string.size() > kFile.size();
  if (m_is_file && m_conn_string[kFile.size()] != ':') {  // ":memory:" is none
    const RWCString file(std::string_view(m_conn_string).substr(kFile.size()));
    m_conn_string.replace(kFile.size(), std::string::npos, Sys_AbsoluteFileName(file).str());
  }
  m_user = user.str();
  m_sql_trace = sql_trace;
  return reconnect();
}

bool CFGDB_Conn::reconnect() {
  if (m_is_file && !is_file_allowed()) return false;
  std::string reason;
  m_store = Db_Open(m_conn_string, m_user, reason);
  if (!m_store) return logger.reject(false, "Init: %s\n", reason);
  say_concern(m_store->concern());
  m_is_parked = false;
  m_file = m_is_file ? file_of(m_conn_string) : "";
  if (!m_sql_trace) return true;
  const auto tell = [](void* self, const char* statement) {
    logger.detail("SQL of session <%s>: %s\n", static_cast<CFGDB_Conn*>(self)->m_session,
                  statement);
  };
  m_store->set_trace(tell, this);
  return true;
}

// Opening makes a file where there is none: after a fork that would be another tree.
bool CFGDB_Conn::is_file_allowed() {
  const std::string file = file_of(m_conn_string);
  if (m_is_parked && file != m_file) {
    return logger.reject(
        false, "Init: <%s> is not the file any more that was open when the process forked\n",
        m_conn_string);
  }
  if (!barred_files().count(file)) return true;
  return logger.reject(
      false, "Init: <%s> was in use when the process forked, which its child cannot share\n",
      m_conn_string);
}

// What was not committed is lost, as it is when the process ends.
void CFGDB_Conn::disconnect() {
  const std::lock_guard<std::recursive_mutex> guard(m_use_mutex);
  m_query.reset();
  if (m_store && uncommitted) {
    logger.warning("disconnect: what was not committed is undone in <%s>\n", m_conn_string);
  }
  if (m_store && m_is_changing) m_store->rollback();
  forget_transaction();
  m_is_lost = m_is_locked = m_is_parked = false;
  m_store.reset();
}

// --- forks ------------------------------------------------------------------------------------

// SQLite's locks are the process's, but what it knows of them is copied to the child, which would
// believe that it holds them. So the file is open in neither process when they part.
void CFGDB_Conn::told(void* conn, ForkHandler::Phase phase) {
  auto& self = *static_cast<CFGDB_Conn*>(conn);
  if (phase == ForkHandler::BEFORE) return self.before_fork();
  if (phase == ForkHandler::IN_CHILD) return self.in_child();
  if (std::exchange(self.m_is_use_held, false)) self.m_use_mutex.unlock();
}

// Operations on a file end soon, or let it pass. A server may keep one for ever.
void CFGDB_Conn::before_fork() {
  if (!m_is_file) return;
  m_is_fork_near = true;
  m_use_mutex.lock();
  m_is_fork_near = false;
  m_is_use_held = true;
  if (!m_store || m_is_changing || m_query) return;
  m_store.reset();
  m_is_parked = true;
}

// A fork waits for operations on a file, but not for another writer of it.
void CFGDB_Conn::let_fork_pass() {
  if (!m_is_fork_near) return;
  m_use_mutex.unlock();
  std::this_thread::sleep_for(milliseconds(1));
  m_use_mutex.lock();
}

void CFGDB_Conn::in_child() {
  new (&m_use_mutex) std::recursive_mutex;  // it knows its holder by a number that is another now
  m_is_use_held = false;
  if (!m_store) return;
  if (!m_file.empty()) barred_files().insert(m_file);
  m_store.release()->abandon();
  static_cast<void>(m_query.release());
  forget_transaction();
  m_is_lost = m_is_locked = false;
  m_auto_commit = 1;
  m_is_parked = true;
}

void CFGDB_Conn::note_failure(const std::string& why) {
  ++m_failures;
  if (!m_has_failed.exchange(true)) m_failure = why;
}

std::string CFGDB_Conn::TakeFailure() {
  if (!m_has_failed) return {};
  const std::lock_guard<std::recursive_mutex> guard(m_use_mutex);
  m_has_failed = false;
  return std::exchange(m_failure, {});
}

std::string CFGDB_Conn::TakeRefusal() {
  const std::lock_guard<std::recursive_mutex> guard(m_use_mutex);
  return std::exchange(m_refusal, {});
}

void CFGDB_Conn::NoteRefusal(std::string_view path, std::string_view why) {
  const std::lock_guard<std::recursive_mutex> guard(m_use_mutex);
  m_refusal.assign("path <").append(path).append(">: ").append(why);
}

bool CFGDB_Conn::reject(const char* op, std::string_view path, const std::string& why) {
  note_failure(why);
  return logger.reject(false, "%s: path <%s>: %s\n", op, path, why);
}

bool CFGDB_Conn::is_usable(const char* op, std::string_view path) {
  if (m_store || (m_is_parked && reconnect())) return true;
  return reject(op, path, "not connected to a database");
}

bool CFGDB_Conn::gives_up(const Use& use) {
  const std::string why = m_why_give_up ? m_why_give_up() : "";
  return !why.empty() && !reject(use.op(), use.path(), why);
}

int CFGDB_Conn::SetSessionInfo(const std::string& session, int) {
  const std::lock_guard<std::recursive_mutex> guard(m_use_mutex);
  m_session = session;
  return 1;
}

// --- transactions -----------------------------------------------------------------------------

int CFGDB_Conn::Lock() {
  const Use use(*this, "Lock");
  if (!use) return DB_ERROR;
  const bool is_begun = m_is_changing;  // what is pending then goes with a RollBack, and the lock
  const int result = begin(use.op(), "");
  if (result != OK) return result;
  if (!is_begun) {
    if (m_store->hold() != Db_Result::OK) return lose(use.op(), "");
    m_is_locked = true;
    m_sequence_at_lock = m_sequence;
  }
  m_auto_commit = 0;
  return OK;
}

// What is pending when auto-commit is turned on is committed.
void CFGDB_Conn::SetAutoCommit(int on) {
  const std::lock_guard<std::recursive_mutex> guard(m_use_mutex);
  m_auto_commit = on ? 1 : 0;
  if (on && (m_is_changing || m_is_lost)) commit_pending("SetAutoCommit");
  if (on) m_is_locked = false;
}

int CFGDB_Conn::Commit(int) {
  const std::lock_guard<std::recursive_mutex> guard(m_use_mutex);
  return commit_pending("Commit") ? COMMIT_OK : 0;
}

int CFGDB_Conn::RollBack(int) {
  const std::lock_guard<std::recursive_mutex> guard(m_use_mutex);
  if (!is_usable("RollBack", "")) return 0;
  if (m_is_locked) return roll_back_to_lock();
  if (m_is_changing) m_store->rollback();
  forget_transaction();
  m_is_lost = false;
  return 1;
}

// Everything is undone in any case; what was lost is the lock.
int CFGDB_Conn::roll_back_to_lock() {
  if (!m_is_changing) return 1;
  if (m_store->undo_held() != Db_Result::OK) return lose("RollBack", ""), 1;
  m_savepoint.reset();
  m_known_key.clear();
  m_sequence = m_sequence_at_lock;
  m_is_changed = false;
  uncommitted = 0;
  return 1;
}

bool CFGDB_Conn::commit_pending(const char* op) {
  if (!is_usable(op, "")) return false;
  m_is_locked = false;
  if (m_is_lost) {
    m_is_lost = false;
    uncommitted = 0;
    note_failure("the changes were lost in a failure before");
    return logger.reject(false, "%s: the changes were lost in a failure before\n", op);
  }
  if (!m_is_changing) return true;
  const bool is_done = !m_is_changed || m_store->commit(m_sequence) == Db_Result::OK;
  if (!m_is_changed) m_store->rollback();
  forget_transaction();
  if (is_done) return true;
  note_failure(m_store->error());
  return logger.reject(false, "%s: the changes are lost: %s\n", op, m_store->error());
}

void CFGDB_Conn::forget_transaction() {
  m_savepoint.reset();
  m_is_changing = m_is_changed = false;
  m_known_key.clear();
  uncommitted = 0;
}

int CFGDB_Conn::begin(const char* op, std::string_view path) {
  const auto until = std::chrono::steady_clock::now() + milliseconds(m_write_wait);
  for (;; let_fork_pass()) {  // which closes the file
    if (!is_usable(op, path)) return DB_ERROR;
    if (m_is_lost) {
      reject(op, path,
             "the transaction was lost in a failure, it must be committed or rolled back");
      return DB_ERROR;
    }
    if (m_is_changing) return OK;
    const auto rest = std::chrono::ceil<milliseconds>(until - std::chrono::steady_clock::now());
    const auto wait = std::max(milliseconds(0), m_is_file ? std::min(kWaitAtOnce, rest) : rest);
    m_store->expect_get(path);
    const Db_Result result = m_store->begin(static_cast<int>(wait.count()), m_sequence);
    m_is_changing = result == Db_Result::OK;
    if (m_is_changing) return OK;
    if (result == Db_Result::BUSY && wait < rest) continue;
    return reject_begin(op, path, result);
  }
}

int CFGDB_Conn::reject_begin(const char* op, std::string_view path, Db_Result why) {
  reject(op, path,
         why == Db_Result::BUSY ? "another writer holds the database for more than " +
                                      std::to_string(m_write_wait) + " ms"
                                : m_store->error());
  return DB_ERROR;
}

int CFGDB_Conn::end(const char* op, std::string_view path, int commit) {
  if (std::exchange(m_savepoint, std::nullopt) && m_store->release() != Db_Result::OK) {
    return lose(op, path);
  }
  if (!m_auto_commit || !commit) return OK;
  if (commit_pending(op)) return OK;
  reject(op, path, "not committed");
  return COMMIT_ERROR;
}

// By the rules of the tree: the store has not failed.
int CFGDB_Conn::refuse(const char* op, std::string_view path, int code, const char* why) {
  logger.error("%s: path <%s>: %s\n", op, path, why);
  NoteRefusal(path, why);
  if (m_auto_commit && m_is_changing) {
    m_store->rollback();
    forget_transaction();
  }
  return code;
}

int CFGDB_Conn::lose(const char* op, std::string_view path) {
  reject(op, path, m_store->error());
  undo();
  return DB_ERROR;
}

// What was done since the savepoint goes, or else the transaction; who commits that is told.
void CFGDB_Conn::undo() noexcept {
  if (!m_is_changing || go_back()) return;
  const bool is_told_later = !m_auto_commit && (uncommitted || m_is_locked);
  forget_transaction();
  m_is_lost = is_told_later;
  uncommitted = is_told_later ? 1 : 0;
  try {
    m_store->rollback();
  } catch (...) {  // no memory to keep the rest of a query in
    m_is_query_failed = true;
    m_query.reset();
    m_store->rollback();
  }
}

bool CFGDB_Conn::go_back() try {
  const auto before = std::exchange(m_savepoint, std::nullopt);
  if (!before || m_store->rollback_to() != Db_Result::OK) return false;
  m_sequence = before->sequence;
  m_is_changed = before->is_changed;
  uncommitted = m_is_changed ? 1 : 0;
  m_known_key.clear();
  return true;
} catch (...) {  // no memory to keep the rest of a query in
  return false;
}

// --- the store --------------------------------------------------------------------------------

RWCString CFGDB_Conn::GetDbServerDateTime() {
  const Use use(*this, "GetDbServerDateTime");
  std::string text;
  if (!use || use.failed(m_store->date_time(text))) return RWCString();
  return text;
}

RWCString CFGDB_Conn::GetMaxSeqNumber() {
  const Use use(*this, "GetMaxSeqNumber");
  int64_t number = m_sequence;
  if (!use || (!m_is_changing && use.failed(m_store->last_sequence(number)))) return RWCString();
  return std::to_string(number);
}

RWCString CFGDB_Conn::GetMaxSeqNumber(const RWCString& path) {
  const Db_Path at(path);
  const Reads use(*this, "GetMaxSeqNumber", at);
  const Db_Range range(at);
  int64_t own = 0, below = 0;
  if (!use || use.failed(m_store->max_sequence(at, std::string(at) + '\0', own)) ||
      use.failed(m_store->max_sequence(range.from, range.to, below))) {
    return RWCString();
  }
  return std::to_string(std::max(own, below));
}

RWCString CFGDB_Conn::GetMinSeqNumberOfDeletedEntry() {
  const Use use(*this, "GetMinSeqNumberOfDeletedEntry");
  int64_t number = 0;
  if (!use || use.failed(m_store->oldest_deletion(number))) return RWCString();
  return std::to_string(number);
}

RWCString CFGDB_Conn::GetServerSyncID() {
  const Use use(*this, "GetServerSyncID");
  std::string id;
  if (!use || use.failed(m_store->sync_id(id))) return RWCString();
  return id;
}

int CFGDB_Conn::PurgeDeletedEntries(int days) {
  constexpr char op[] = "PurgeDeletedEntries";
  const Change use(*this, op);
  if (!use || begin(op, "") != OK) return -1;
  int64_t rows = 0;
  if (m_store->purge_deletions(days, rows) != Db_Result::OK) {
    lose(op, "");
    return -1;
  }
  if (rows) note_change();
  return end(op, "", 1) == OK ? static_cast<int>(rows) : -1;
}
