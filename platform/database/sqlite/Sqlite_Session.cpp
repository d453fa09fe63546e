#include <database/sqlite/Sqlite_Session.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <utility>

#include <database/Db_InOrder.h>
#include <database/sqlite/Sqlite_Row.h>

namespace {

// Over the numbers of the store and its name.
#define STORE_SUM(last, bulk, oldest) \
  "sealed('', " last " || ' ' || " bulk " || ' ' || " oldest " || ' ' || sync_id, '', 0)"
#define FROM_STORE \
  " FROM store WHERE sum = " STORE_SUM("last_sequence", "last_bulk", "oldest_deletion")
#define OF_ROW_BEFORE \
  "coalesce((SELECT path FROM entry WHERE path < ?1 ORDER BY path DESC LIMIT 1), '')"

constexpr struct {
  Sqlite_Sql name;
  const char* text;
} kSql[] = {
    {Sqlite_Sql::GET, "SELECT value FROM entry WHERE path = ?"},
    // From the row before the range on.
    {Sqlite_Sql::RANGE,
     "SELECT path, value FROM entry WHERE path >= " OF_ROW_BEFORE " ORDER BY path"},
    {Sqlite_Sql::RANGE_NUMBERS,
     "SELECT path, value, sequence FROM entry WHERE path >= " OF_ROW_BEFORE " ORDER BY path"},
    {Sqlite_Sql::ROWS_FROM,
     "SELECT path, value, sequence FROM entry WHERE path >= ? ORDER BY path"},
    {Sqlite_Sql::CHANGED_ABOVE,
     "SELECT path, value, sequence FROM entry INDEXED BY entry_changed"
     "  WHERE single = 1 AND sequence > ?3 AND path >= ?1 AND path < ?2 ORDER BY path"},
    // What changed after a number is found through the index of single changes, unless so much
    // changed, or a bulk write did, that going through the range is quicker.
    {Sqlite_Sql::IS_BY_INDEX, "SELECT ? >= max(last_bulk, last_sequence - 50000)" FROM_STORE},
    {Sqlite_Sql::DELETED,
     "SELECT path, sum, sequence FROM deleted WHERE path >= ?1 AND path < ?2 ORDER BY path"},
    {Sqlite_Sql::DELETED_ABOVE,
     "SELECT path, sum, sequence FROM deleted INDEXED BY deleted_sequence"
     "  WHERE sequence > ?3 AND path >= ?1 AND path < ?2 ORDER BY path"},
    {Sqlite_Sql::LAST_SEQUENCE, "SELECT last_sequence" FROM_STORE},
    {Sqlite_Sql::OLDEST_DELETION, "SELECT oldest_deletion" FROM_STORE},
    {Sqlite_Sql::SYNC_ID, "SELECT sync_id" FROM_STORE},
    {Sqlite_Sql::DATE_TIME, "SELECT datetime('now')"},
    {Sqlite_Sql::PUT,
     "INSERT INTO entry (path, value, sequence, single) VALUES (?1, ?2, ?3, 1)"
     "  ON CONFLICT (path) DO UPDATE SET value = ?2, sequence = ?3, single = 1"},
    {Sqlite_Sql::REPLACE, "UPDATE entry SET value = ?2, sequence = ?3, single = 1 WHERE path = ?1"},
    {Sqlite_Sql::PUT_NEW,
     "INSERT INTO entry (path, value, sequence, single) VALUES (?1, ?2, ?3, 0)"},
    {Sqlite_Sql::ROW_BEFORE, "SELECT path FROM entry WHERE path < ? ORDER BY path DESC LIMIT 1"},
    {Sqlite_Sql::ROW_FROM, "SELECT path, value FROM entry WHERE path >= ? ORDER BY path LIMIT 1"},
    {Sqlite_Sql::LINK, "UPDATE entry SET value = ?2 WHERE path = ?1"},
    {Sqlite_Sql::FORGET_DELETION, "DELETE FROM deleted WHERE path = ?"},
    {Sqlite_Sql::FORGET_DELETIONS,
     "DELETE FROM deleted WHERE path >= ?1 AND path <= ?2"
     "  AND EXISTS (SELECT 1 FROM entry WHERE entry.path = deleted.path)"},
    {Sqlite_Sql::ERASE, "DELETE FROM entry WHERE path = ?"},
    {Sqlite_Sql::KEEP_DELETION,
     "INSERT OR REPLACE INTO deleted (path, sequence, at, sum)"
     "  VALUES (?1, ?2, CAST(strftime('%s', 'now') AS INTEGER), sealed('', ?1, '', ?2))"},
    {Sqlite_Sql::ERASE_RANGE, "DELETE FROM entry WHERE path >= ?1 AND path < ?2"},
    {Sqlite_Sql::KEEP_DELETIONS,
     "INSERT OR REPLACE INTO deleted (path, sequence, at, sum)"
     "  SELECT path, number, CAST(strftime('%s', 'now') AS INTEGER), sealed('', path, '', number)"
     "    FROM (SELECT path, ?3 - 1 + row_number() OVER (ORDER BY path) AS number"
     "            FROM entry WHERE path >= ?1 AND path < ?2) ORDER BY path"},
    {Sqlite_Sql::SET_LAST,
     "UPDATE store SET last_sequence = ?1, sum = " STORE_SUM("?1", "last_bulk", "oldest_deletion")},
    {Sqlite_Sql::SET_LAST_BULK,
     "UPDATE store SET last_sequence = ?1, last_bulk = ?1, sum = " STORE_SUM("?1", "?1",
                                                                             "oldest_deletion")},
    {Sqlite_Sql::NEWEST_BEFORE,
     "SELECT coalesce(max(sequence), 0) FROM deleted"
     "  WHERE at < CAST(strftime('%s', 'now') AS INTEGER) - ?1 * 86400"},
    {Sqlite_Sql::PURGE, "DELETE FROM deleted WHERE sequence <= ?"},
    {Sqlite_Sql::SET_OLDEST,
     "UPDATE store SET oldest_deletion = max(oldest_deletion, ?1 + 1), sum = " STORE_SUM(
         "last_sequence", "last_bulk", "max(oldest_deletion, ?1 + 1)")},
    {Sqlite_Sql::BEGIN_READ, "BEGIN"},
    {Sqlite_Sql::BEGIN_CHANGE, "BEGIN IMMEDIATE"},
    {Sqlite_Sql::COMMIT, "COMMIT"},
    {Sqlite_Sql::SAVEPOINT, "SAVEPOINT part"},
    {Sqlite_Sql::RELEASE, "RELEASE part"},
};
static_assert(Db_IsInOrder(kSql));

#undef STORE_SUM
#undef FROM_STORE
#undef OF_ROW_BEFORE

// Once the log is this long, a commit waits a moment for readers, so that it starts anew: readers
// that come one upon the other would let it grow for ever otherwise. In pages of 4 KB.
constexpr int kLogPages = 16384;
constexpr int kLogWait = 250;  // milliseconds

int after_commit(void*, sqlite3* handle, const char* name, int pages) {
  if (pages >= kLogPages) {
    sqlite3_busy_timeout(handle, kLogWait);
    sqlite3_wal_checkpoint_v2(handle, name, SQLITE_CHECKPOINT_RESTART, nullptr, nullptr);
  } else if (pages >= 1000) {
    sqlite3_wal_checkpoint_v2(handle, name, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
  }
  return SQLITE_OK;  // the commit is safe whatever became of this
}

// sealed(path of the row before, path, value, sequence)
void sealed(sqlite3_context* context, int, sqlite3_value** values) {
  const auto text = [&](int i) -> std::string_view {
    const void* bytes = sqlite3_value_blob(values[i]);
    return {static_cast<const char*>(bytes),
            bytes ? static_cast<size_t>(sqlite3_value_bytes(values[i])) : 0};
  };
  try {
    const std::string row = Sqlite_Row::Sealed(Sqlite_PathSum(text(0)).link(), text(1), text(2),
                                               sqlite3_value_int64(values[3]));
    sqlite3_result_blob64(context, row.data(), row.size(), SQLITE_TRANSIENT);
  } catch (...) {
    sqlite3_result_error_nomem(context);
  }
}

}  // namespace

Sqlite_Session::~Sqlite_Session() {
  for (auto& statements : m_free) {
    for (sqlite3_stmt* statement : statements) sqlite3_finalize(statement);
  }
  sqlite3_close(m_handle);
}

namespace {

// A file that is missing is made here, since the library would let others read it; its companions
// take its mode. What is not a file's name is the library's matter.
void make_private(const std::string& file) {
  if (file.front() == ':' || file.rfind("file:", 0) == 0) return;
  const int made = ::open(file.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0600);
  if (made >= 0) ::close(made);
}

}  // namespace

bool Sqlite_Session::open(const std::string& file) {
  m_file = file;
  if (file.empty()) return fail("open", "no file is named");
  make_private(file);
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
  if (sqlite3_open_v2(file.c_str(), &m_handle, flags, nullptr) != SQLITE_OK) return fail("open");
  sqlite3_extended_result_codes(m_handle, 1);
  if (sqlite3_db_readonly(m_handle, "main") == 1) {
    return fail("open", "the file may not be written");
  }
  set_wait(10000);
  const bool is_set = run("PRAGMA journal_mode = WAL", "read") &&
                      run("PRAGMA synchronous = FULL", "set up") &&
                      run("PRAGMA cache_size = -16384", "set up") &&
                      run("PRAGMA mmap_size = 1073741824", "set up") &&
                      run("PRAGMA journal_size_limit = 67108864", "set up");
  sqlite3_wal_hook(m_handle, after_commit, nullptr);
  constexpr int flags_of_sealed = SQLITE_UTF8 | SQLITE_DETERMINISTIC;
  const bool has_sealed =
      sqlite3_create_function_v2(m_handle, "sealed", 4, flags_of_sealed, nullptr, sealed, nullptr,
                                 nullptr, nullptr) == SQLITE_OK;
  return is_set && (has_sealed || fail("set up"));
}

bool Sqlite_Session::fail(const char* what, const std::string& why) {
  m_error = std::string("cannot ") + what + " database <" + m_file + ">: " + why;
  return false;
}

bool Sqlite_Session::fail(const char* what) {
  if (!m_handle) return fail(what, "no memory");
  std::string why = sqlite3_errmsg(m_handle);
  const int code = sqlite3_errcode(m_handle) & 0xff;
  const bool is_of_system = code == SQLITE_CANTOPEN || code == SQLITE_IOERR || code == SQLITE_FULL;
  const int reason = is_of_system ? sqlite3_system_errno(m_handle) : 0;
  if (reason) why += std::string(" (") + std::strerror(reason) + ")";
  return fail(what, why);
}

bool Sqlite_Session::run(const char* sql, const char* what) {
  return sqlite3_exec(m_handle, sql, nullptr, nullptr, nullptr) == SQLITE_OK || fail(what);
}

bool Sqlite_Session::ask(const char* sql, int64_t& number, const char* what) {
  const auto keep = [](void* to, int, char** texts, char**) {
    if (texts[0]) *static_cast<int64_t*>(to) = std::strtoll(texts[0], nullptr, 10);
    return 0;
  };
  return sqlite3_exec(m_handle, sql, keep, &number, nullptr) == SQLITE_OK || fail(what);
}

Db_Result Sqlite_Session::hold_state() {
  if (!m_state_holders && sqlite3_get_autocommit(m_handle)) {
    // Made first, so that the end needs no memory.
    if (!Sqlite_Statement(*this, Sqlite_Sql::COMMIT).is_ready()) return Db_Result::FAILED;
    if (Sqlite_Statement(*this, Sqlite_Sql::BEGIN_READ).execute("read") != Db_Result::OK) {
      return Db_Result::FAILED;
    }
    m_is_state_held = true;
  }
  ++m_state_holders;
  return Db_Result::OK;
}

void Sqlite_Session::leave_state() {
  if (--m_state_holders == 0) end_state();
}

void Sqlite_Session::end_state() {
  if (std::exchange(m_is_state_held, false)) {
    Sqlite_Statement(*this, Sqlite_Sql::COMMIT).execute("read");
  }
}

sqlite3_stmt* Sqlite_Session::take(Sqlite_Sql sql) {
  auto& statements = m_free[static_cast<size_t>(sql)];
  if (!statements.empty()) {
    sqlite3_stmt* statement = statements.back();
    statements.pop_back();
    return statement;
  }
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v3(m_handle, kSql[static_cast<size_t>(sql)].text, -1,
                         SQLITE_PREPARE_PERSISTENT, &statement, nullptr) != SQLITE_OK) {
    fail("use");
  }
  return statement;
}

void Sqlite_Session::give_back(Sqlite_Sql sql, sqlite3_stmt* statement) {
  sqlite3_reset(statement);
  m_free[static_cast<size_t>(sql)].push_back(statement);
}

Db_Result Sqlite_Statement::step(const char* what) {
  if (!m_statement) return Db_Result::FAILED;
  const int code = sqlite3_step(m_statement);
  if (code == SQLITE_ROW) return Db_Result::OK;
  if (code == SQLITE_DONE) return Db_Result::NOT_FOUND;
  m_session.fail(what);
  return Db_Result::FAILED;
}

Db_Result Sqlite_Statement::execute(const char* what) {
  const Db_Result result = step(what);
  rewind();
  return result == Db_Result::FAILED ? result : Db_Result::OK;
}
