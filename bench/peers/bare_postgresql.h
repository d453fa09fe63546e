// PostgreSQL through its own client: paths and values in one table, and no more.
#pragma once

#include <libpq-fe.h>
#include <sched.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include <common/need.h>

namespace bench {

class bare_postgresql {
 public:
  static constexpr const char* name = "PostgreSQL, prepared";

  explicit bare_postgresql(const std::string& connection)
      : m_handle(PQconnectdb(connection.c_str())) {
    need(PQstatus(m_handle) == CONNECTION_OK, PQerrorMessage(m_handle));
    PQsetNoticeProcessor(
        m_handle, [](void*, const char*) {}, nullptr);
  }
  ~bare_postgresql() { PQfinish(m_handle); }
  void run(const char* sql) { check(PQexec(m_handle, sql)); }
  // Makes the table, with pairs of a path and a value in it.
  template <class Pairs>
  void fill(const Pairs& pairs) {
    run("CREATE TABLE cfg (path bytea PRIMARY KEY, value bytea)");
    std::vector<entry> rows;
    for (const auto& [path, value] : pairs) rows.push_back({path, value});
    insert("cfg", rows);
    run("VACUUM ANALYZE cfg");
  }
  void prepare() {
    const auto add = [this](const char* statement, const char* sql) {
      check(PQprepare(m_handle, statement, sql, 0, nullptr));
    };
    add("point", "SELECT value FROM cfg WHERE path = $1::bytea");
    add("range",
        "SELECT path, value FROM cfg WHERE path >= $1::bytea AND path < $2::bytea ORDER BY path");
    add("update", "UPDATE cfg SET value = $2::bytea WHERE path = $1::bytea");
  }

  const std::string& read(std::string_view path) {
    PGresult* result = execute("point", {path, {}}, 1);
    need(PQntuples(result) == 1, "read");
    m_value.assign(PQgetvalue(result, 0, 0), static_cast<size_t>(PQgetlength(result, 0, 0)));
    PQclear(result);
    return m_value;
  }
  size_t read_range(const std::string& from, const std::string& to) {
    const char* const values[] = {from.data(), to.data()};
    const int lengths[] = {static_cast<int>(from.size()), static_cast<int>(to.size())};
    const int formats[] = {1, 1};
    need(PQsendQueryPrepared(m_handle, "range", 2, values, lengths, formats, 1) == 1, "range");
    PQsetSingleRowMode(m_handle);
    size_t count = 0;
    while (PGresult* result = PQgetResult(m_handle)) {
      count += static_cast<size_t>(PQntuples(result));
      PQclear(result);
    }
    return count;
  }
  // The whole table in one result.
  size_t read_all() {
    PGresult* result = PQexecParams(m_handle, "SELECT path, value FROM cfg", 0, nullptr, nullptr,
                                    nullptr, nullptr, 1);
    need(PQresultStatus(result) == PGRES_TUPLES_OK, PQerrorMessage(m_handle));
    const auto count = static_cast<size_t>(PQntuples(result));
    PQclear(result);
    return count;
  }
  template <class Rows>
  void insert(const char* table, const Rows& rows) {
    run((std::string("COPY ") + table + " FROM STDIN (FORMAT binary)").c_str());
    std::string bytes("PGCOPY\n\377\r\n\0\0\0\0\0\0\0\0\0", 19);
    const auto add = [&bytes](size_t number, int count) {
      while (count-- > 0) bytes += static_cast<char>(number >> (8 * count));
    };
    const auto send = [&] {
      need(PQputCopyData(m_handle, bytes.data(), static_cast<int>(bytes.size())) == 1, "copy");
      bytes.clear();
    };
    for (const auto& row : rows) {
      add(2, 2);
      add(row.path.size(), 4);
      bytes += row.path;
      add(row.value.size(), 4);
      bytes += row.value;
      if (bytes.size() > 60000) send();
    }
    add(0xffff, 2);
    send();
    PQputCopyEnd(m_handle, nullptr);
    while (PGresult* result = PQgetResult(m_handle)) check(result);
  }
  void update(std::string_view path, std::string_view value) {
    PQclear(execute("update", {path, value}, 2));
  }

  // This process and the server's sessions on one processor, or on all: between two idle ones a
  // request measures how long they take to wake up.
  void place(bool on_one) {
    cpu_set_t set;
    CPU_ZERO(&set);
    for (size_t i = 0; i < (on_one ? 1 : CPU_SETSIZE); ++i) CPU_SET(i, &set);
    sched_setaffinity(0, sizeof set, &set);
    PGresult* result = PQexec(m_handle, "SELECT pid FROM pg_stat_activity");
    for (int i = 0; i < PQntuples(result); ++i) {
      sched_setaffinity(std::atoi(PQgetvalue(result, i, 0)), sizeof set, &set);
    }
    PQclear(result);
  }

 private:
  struct entry {
    std::string_view path, value;
  };
  struct texts {
    std::string_view first, second;
  };

  PGresult* execute(const char* statement, const texts& given, int count) {
    const char* const values[] = {given.first.data(), given.second.data()};
    const int lengths[] = {static_cast<int>(given.first.size()),
                           static_cast<int>(given.second.size())};
    const int formats[] = {1, 1};
    PGresult* result = PQexecPrepared(m_handle, statement, count, values, lengths, formats, 1);
    const ExecStatusType status = PQresultStatus(result);
    need(status == PGRES_TUPLES_OK || status == PGRES_COMMAND_OK, PQerrorMessage(m_handle));
    return result;
  }
  void check(PGresult* result) {
    const ExecStatusType status = PQresultStatus(result);
    PQclear(result);
    need(status == PGRES_TUPLES_OK || status == PGRES_COMMAND_OK || status == PGRES_COPY_IN,
         PQerrorMessage(m_handle));
  }

  PGconn* m_handle;
  std::string m_value;
};

}  // namespace bench
