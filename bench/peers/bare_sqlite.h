// SQLite through its own interface: paths and values in one table, and no more.
#pragma once

#include <sqlite3.h>

#include <string>
#include <string_view>
#include <vector>

#include <common/need.h>

namespace bench {

class bare_sqlite {
 public:
  static constexpr const char* name = "SQLite, prepared";

  explicit bare_sqlite(const std::string& file) {
    need(sqlite3_open(file.c_str(), &m_handle) == SQLITE_OK, "open " + file);
    run("PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL; PRAGMA cache_size=-262144");
  }
  ~bare_sqlite() {
    for (sqlite3_stmt* statement : {m_point, m_range, m_insert, m_update}) {
      sqlite3_finalize(statement);
    }
    sqlite3_close(m_handle);
  }
  void run(const char* sql) {
    need(sqlite3_exec(m_handle, sql, nullptr, nullptr, nullptr) == SQLITE_OK,
         sqlite3_errmsg(m_handle));
  }
  // Makes the table, with pairs of a path and a value in it, ready to be read.
  template <class Pairs>
  void fill(const Pairs& pairs) {
    run("CREATE TABLE cfg (path TEXT PRIMARY KEY, value TEXT) WITHOUT ROWID");
    std::vector<entry> rows;
    for (const auto& [path, value] : pairs) rows.push_back({path, value});
    insert("cfg", rows);
    prepare();
  }
  void prepare() {
    prepare("SELECT value FROM cfg WHERE path = ?", m_point);
    prepare("SELECT path, value FROM cfg WHERE path >= ? AND path < ? ORDER BY path", m_range);
    prepare("UPDATE cfg SET value = ? WHERE path = ?", m_update);
  }

  const std::string& read(std::string_view path) {
    bind(m_point, 1, path);
    need(sqlite3_step(m_point) == SQLITE_ROW, "read");
    text(m_point, 0, m_value);
    sqlite3_reset(m_point);
    return m_value;
  }
  size_t read_range(const std::string& from, const std::string& to) {
    size_t count = 0;
    bind(m_range, 1, from);
    bind(m_range, 2, to);
    for (; sqlite3_step(m_range) == SQLITE_ROW; ++count) {
      text(m_range, 0, m_path);
      text(m_range, 1, m_value);
    }
    sqlite3_reset(m_range);
    return count;
  }
  template <class Rows>
  void insert(const char* table, const Rows& rows) {
    run("BEGIN");
    const std::string sql = std::string("INSERT INTO ") + table + " VALUES (?, ?)";
    prepare(sql.c_str(), m_insert);
    for (const auto& row : rows) {
      bind(m_insert, 1, row.path);
      bind(m_insert, 2, row.value);
      need(sqlite3_step(m_insert) == SQLITE_DONE, "insert");
      sqlite3_reset(m_insert);
    }
    sqlite3_finalize(m_insert);
    m_insert = nullptr;
    run("COMMIT");
  }
  void update(std::string_view path, std::string_view value) {
    bind(m_update, 1, value);
    bind(m_update, 2, path);
    need(sqlite3_step(m_update) == SQLITE_DONE, "update");
    sqlite3_reset(m_update);
  }

 private:
  struct entry {
    std::string_view path, value;
  };

  void prepare(const char* sql, sqlite3_stmt*& statement) {
    need(sqlite3_prepare_v3(m_handle, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr) ==
             SQLITE_OK,
         sqlite3_errmsg(m_handle));
  }
  static void bind(sqlite3_stmt* statement, int at, std::string_view bytes) {
    sqlite3_bind_text(statement, at, bytes.data(), static_cast<int>(bytes.size()), SQLITE_STATIC);
  }
  static void text(sqlite3_stmt* statement, int column, std::string& out) {
    out.assign(reinterpret_cast<const char*>(sqlite3_column_text(statement, column)),
               static_cast<size_t>(sqlite3_column_bytes(statement, column)));
  }

  sqlite3* m_handle = nullptr;
  sqlite3_stmt *m_point = nullptr, *m_range = nullptr, *m_insert = nullptr, *m_update = nullptr;
  std::string m_path, m_value;
};

}  // namespace bench
