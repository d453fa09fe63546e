// Connection, transactions, and what the store says of itself.
#include <CFG/CFG_DBRepository.h>

#include <thread>

#include <CFG/detail/actual_path.h>
#include <CFG/detail/answered.h>
#include <CFG/detail/thread_end.h>
#include <database/CFGDB_Conn.h>
#include <logging/Logger.h>

using Step = std::lock_guard<std::recursive_mutex>;

namespace {
constexpr Log_Logger logger("src/CFG/CFG_DBRepository", 502);
}

// The update that a thread has open.
class CFG_DBRepository::Update : public cfg::thread_bound {
 public:
  explicit Update(CFG_DBRepository& repository) : m_repository(&repository) {}

  bool may_begin() { return watch_thread(); }
  void begin() { m_thread = std::this_thread::get_id(); }
  void end() { m_thread = std::thread::id(); }
  void leave_repository() {
    const MutexGuard guard(m_mutex);
    m_repository = nullptr;
  }

  bool end_with_thread() override {
    const MutexGuard guard(m_mutex);
    std::thread::id mine = std::this_thread::get_id();
    if (!m_repository || !m_thread.compare_exchange_strong(mine, std::thread::id())) return false;
    m_repository->CFG_DBRepository::Rollback();
    m_repository->CFG_DBRepository::UnLock();
    return true;
  }

 private:
  ForkReleasedMutex m_mutex;  // taken before the changes' own
  CFG_DBRepository* m_repository THREADAPI_GUARDED_BY(m_mutex);
  std::atomic<std::thread::id> m_thread{std::thread::id()};
};

CFG_DBRepository::CFG_DBRepository() : m_update(std::make_shared<Update>(*this)) {}
CFG_DBRepository::CFG_DBRepository(const RWCString& conn_string, const RWCString& user)
    : m_given(new Given{conn_string, user}), m_update(std::make_shared<Update>(*this)) {}
CFG_DBRepository::~CFG_DBRepository() {
  m_update->leave_repository();
  delete m_connection.load();
}

void CFG_DBRepository::say_failed(const char* op) noexcept { cfg::log_exception(logger, op); }

void CFG_DBRepository::say_not_connected(const char* op) {
  logger.error("%s : not connected to the database\n", op);
}

// A change may take long, so that a fork does not wait for it.
void CFG_DBRepository::told(void* repository, ForkHandler::Phase phase) {
  if (phase != ForkHandler::IN_CHILD) return;
  auto& self = *static_cast<CFG_DBRepository*>(repository);
  new (&self.m_changes) std::recursive_mutex;
  self.m_update->end();
}

// --- connection ----------------------------------------------------------------------------------

int CFG_DBRepository::Connect() try {
  const RecursiveThreadMutexWrapper::WriteGuard guard(m_connection_lock);
  if (m_is_connected) return m_is_connected;
  const RWCString user = m_given ? m_given->user : GetProperty("user");
  const RWCString conn_string = m_given ? m_given->conn_string : GetProperty("conn_string");
  const bool is_traced = !m_given && GetProperty("sql_trace") == "TRUE";
  const bool sets_nls_lang = m_given || GetProperty("set_nls_lang") != "FALSE";
  const Step one_step(m_changes);
  if (!m_connection) m_connection = new CFGDB_Conn(sets_nls_lang);
  m_is_connected = m_connection.load()->Init(conn_string, user, is_traced) != 0;
  return m_is_connected;
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_DBRepository::DisConnect() {
  const RecursiveThreadMutexWrapper::WriteGuard guard(m_connection_lock);
  if (!m_is_connected) return TRUE;
  m_update->end();
  const Step one_step(m_changes);
  m_connection.load()->disconnect();
  m_is_connected = false;
  return TRUE;
}

// --- transactions --------------------------------------------------------------------------------

int CFG_DBRepository::Lock() {
  const Step one_step(m_changes);
  return ask("Lock()", [](CFGDB_Conn& db) { return db.Lock() == CFGDB_Conn::OK; });
}

// Without the lock each change of the update would be stored by itself.
int CFG_DBRepository::StartTransactionUpdate() try {
  if (!m_update->may_begin() || !Lock()) return FALSE;
  m_update->begin();
  return TRUE;
} catch (...) {
  return cfg::answered(logger, FALSE);
}

// Auto-commit comes back also when nothing could be saved: changes that follow would be pending
// with nobody who ends them, and keep all other writers out.
int CFG_DBRepository::UnLock() {
  logger.trace("Start UnLock()\n");
  m_update->end();
  const Step one_step(m_changes);
  return ask("UnLock()", [](CFGDB_Conn& db) -> int {
    if (!db.uncommitted) {
      logger.trace(
          "UnLock() : Action does not done without commit, return TRUE and set auto commit to true\n");
      db.SetAutoCommit(TRUE);
      return TRUE;
    }
    logger.trace("UnLock() : Action done without commit, perform Commit()\n");
    const int result = db.Commit(0);
    db.SetAutoCommit(TRUE);
    if (result == 0) {
      return logger.reject_at(LOG_LEVEL_TRACE, FALSE, "UnLock() : Commit() Failed, return FALSE\n");
    }
    return logger.reject_at(LOG_LEVEL_TRACE, TRUE,
                            "UnLock() : Commit() OK, return TRUE and set auto commit to true\n");
  });
}

int CFG_DBRepository::Rollback() {
  const Step one_step(m_changes);
  return ask("Rollback()", [](CFGDB_Conn& db) { return db.RollBack(0); });
}
int CFG_DBRepository::Commit() {
  const Step one_step(m_changes);
  return ask("Commit()", [](CFGDB_Conn& db) { return db.Commit(0) == CFGDB_Conn::COMMIT_OK; });
}
int CFG_DBRepository::GetAutoCommit() {
  return ask("GetAutoCommit()", [](CFGDB_Conn& db) { return db.GetAutoCommit(); });
}
void CFG_DBRepository::SetAutoCommit(int on) {
  const Step one_step(m_changes);
  ask("SetAutoCommit(int)", [&](CFGDB_Conn& db) { db.SetAutoCommit(on); });
}
bool CFG_DBRepository::HasPendingChanges() {
  return ask("HasPendingChanges()", [](CFGDB_Conn& db) { return db.uncommitted != 0; });
}
int CFG_DBRepository::SetSessionInfo(const std::string& session, int info) {
  ask("SetSessionInfo(const std::string&, int)",
      [&](CFGDB_Conn& db) { return db.SetSessionInfo(session, info); });
  return TRUE;
}
Mutex* CFG_DBRepository::GetMutexForSVCFGStartQuery() {
  return ask("GetMutexForSVCFGStartQuery()", [](CFGDB_Conn& db) { return db.GetMutexPtr(); });
}

// --- the store -----------------------------------------------------------------------------------

RWCString CFG_DBRepository::GetCfgPass() {
  return ask("GetCfgPass()", [](CFGDB_Conn& db) { return db.GetCfgPass(); });
}
RWCString CFG_DBRepository::GetConnectionAlias() {
  return ask("GetConnectionAlias()", [](CFGDB_Conn& db) { return db.GetConnectionAlias(); });
}
RWCString CFG_DBRepository::GetDbServerDateTime() {
  return ask("GetDbServerDateTime()", [](CFGDB_Conn& db) { return db.GetDbServerDateTime(); });
}
RWCString CFG_DBRepository::GetServerNodeName() { return GetProperty("CurrMachine"); }
RWCString CFG_DBRepository::GetMinSeqNumberOfDeletedEntry() {
  return ask("GetMinSeqNumberOfDeletedEntry()",
             [](CFGDB_Conn& db) { return db.GetMinSeqNumberOfDeletedEntry(); });
}
RWCString CFG_DBRepository::GetMaxSeqNumber(const RWCString& path) try {
  const cfg::actual_string actual(path);
  return ask("GetMaxSeqNumber(const RWCString&)",
             [&](CFGDB_Conn& db) { return db.GetMaxSeqNumber(actual); });
} catch (...) {
  return cfg::answered(logger, RWCString());
}
RWCString CFG_DBRepository::GetMaxSeqNumber() {
  return ask("GetMaxSeqNumber()", [](CFGDB_Conn& db) { return db.GetMaxSeqNumber(); });
}
RWCString CFG_DBRepository::GetServerSyncID() {
  return ask("GetServerSyncID()", [](CFGDB_Conn& db) { return db.GetServerSyncID(); });
}

void CFG_DBRepository::SetWriteWait(int milliseconds) {
  ask("SetWriteWait(int)", [&](CFGDB_Conn& db) { db.SetWriteWait(milliseconds); });
}
void CFG_DBRepository::SetGiveUp(std::function<std::string()> why) {
  ask("SetGiveUp", [&](CFGDB_Conn& db) { db.SetGiveUp(std::move(why)); });
}
bool CFG_DBRepository::CheckIntegrity(std::string& reason) {
  reason = "not connected to the database";
  return ask("CheckIntegrity(std::string&)",
             [&](CFGDB_Conn& db) { return db.CheckIntegrity(reason); });
}
bool CFG_DBRepository::CheckSome(std::string& from, int entries) {
  return ask("CheckSome", [&](CFGDB_Conn& db) { return db.CheckSome(from, entries); });
}
std::string CFG_DBRepository::TakeFailure() {
  return ask("TakeFailure()", [](CFGDB_Conn& db) { return db.TakeFailure(); });
}
std::string CFG_DBRepository::TakeRefusal() {
  return ask("TakeRefusal()", [](CFGDB_Conn& db) { return db.TakeRefusal(); });
}
int CFG_DBRepository::PurgeDeletedEntries(int days) try {
  const Step one_step(m_changes);
  CFGDB_Conn* const db = m_connection;
  if (db) return db->PurgeDeletedEntries(days);
  say_not_connected("PurgeDeletedEntries(int)");
  return -1;
} catch (...) {
  return cfg::answered(logger, -1);
}
