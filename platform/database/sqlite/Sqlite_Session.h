// An open database file and the statements prepared on it.
#pragma once

#include <sqlite3.h>

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include <database/Db_Store.h>

enum class Sqlite_Sql {
  GET,
  RANGE,
  RANGE_NUMBERS,
  ROWS_FROM,
  CHANGED_ABOVE,
  IS_BY_INDEX,
  DELETED,
  DELETED_ABOVE,
  LAST_SEQUENCE,
  OLDEST_DELETION,
  SYNC_ID,
  DATE_TIME,
  PUT,
  REPLACE,
  PUT_NEW,
  ROW_BEFORE,
  ROW_FROM,
  LINK,
  FORGET_DELETION,
  FORGET_DELETIONS,
  ERASE,
  KEEP_DELETION,
  ERASE_RANGE,
  KEEP_DELETIONS,
  SET_LAST,
  SET_LAST_BULK,
  NEWEST_BEFORE,
  PURGE,
  SET_OLDEST,
  BEGIN_READ,
  BEGIN_CHANGE,
  COMMIT,
  SAVEPOINT,
  RELEASE,
  END
};

// Owns the connection. Failures leave the reason in `error`: what was tried, on which file, and
// why, with the system's reason where there is one. One thread at a time.
class Sqlite_Session {
 public:
  Sqlite_Session() = default;
  Sqlite_Session(const Sqlite_Session&) = delete;
  Sqlite_Session& operator=(const Sqlite_Session&) = delete;
  ~Sqlite_Session();

  bool open(const std::string& file);
  bool run(const char* sql, const char* what);
  // The first column of the first row; `number` stays when there is no row.
  bool ask(const char* sql, int64_t& number, const char* what);
  bool fail(const char* what);
  bool fail(const char* what, const std::string& why);

  void set_wait(int milliseconds) { sqlite3_busy_timeout(m_handle, milliseconds); }
  bool was_busy() const { return (sqlite3_errcode(m_handle) & 0xff) == SQLITE_BUSY; }
  sqlite3* handle() const { return m_handle; }
  const std::string& error() const { return m_error; }
  const std::string& file() const { return m_file; }

  // A read transaction, as long as somebody holds it and no other one begins.
  Db_Result hold_state();
  void leave_state();
  void end_state();

  // Prepared once for each use at the same time. Null on failure.
  sqlite3_stmt* take(Sqlite_Sql sql);
  void give_back(Sqlite_Sql sql, sqlite3_stmt* statement);

 private:
  sqlite3* m_handle = nullptr;
  std::string m_file;
  std::string m_error;
  int m_state_holders = 0;
  bool m_is_state_held = false;
  std::array<std::vector<sqlite3_stmt*>, static_cast<size_t>(Sqlite_Sql::END)> m_free;
};

// A statement for one use. Bound texts must outlive it.
class Sqlite_Statement {
 public:
  Sqlite_Statement(Sqlite_Session& session, Sqlite_Sql sql)
      : m_session(session), m_sql(sql), m_statement(session.take(sql)) {}
  Sqlite_Statement(const Sqlite_Statement&) = delete;
  Sqlite_Statement& operator=(const Sqlite_Statement&) = delete;
  ~Sqlite_Statement() {
    if (m_statement) m_session.give_back(m_sql, m_statement);
  }

  bool is_ready() const { return m_statement != nullptr; }
  void bind(int at, std::string_view text) {
    sqlite3_bind_text64(m_statement, at, text.data() ? text.data() : "", text.size(), SQLITE_STATIC,
                        SQLITE_UTF8);
  }
  void bind_bytes(int at, std::string_view bytes) {
    sqlite3_bind_blob64(m_statement, at, bytes.data(), bytes.size(), SQLITE_STATIC);
  }
  void bind(int at, int64_t number) { sqlite3_bind_int64(m_statement, at, number); }
  void rewind() { sqlite3_reset(m_statement); }

  // OK with a row, NOT_FOUND when it is through, FAILED.
  Db_Result step(const char* what);
  // For a change: OK when it is done. Ready for the next values.
  Db_Result execute(const char* what);

  std::string_view text(int column) const {
    const void* bytes = sqlite3_column_blob(m_statement, column);
    if (!bytes) return "";
    return {static_cast<const char*>(bytes),
            static_cast<size_t>(sqlite3_column_bytes(m_statement, column))};
  }
  int64_t number(int column) const { return sqlite3_column_int64(m_statement, column); }

 private:
  Sqlite_Session& m_session;
  const Sqlite_Sql m_sql;
  sqlite3_stmt* m_statement;
};
