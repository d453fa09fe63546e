#include <database/tests/Test_Database.h>

#include <libpq-fe.h>
#include <sqlite3.h>

void Database::SetUp() {
  m_connection = "sqlite:" + (m_folder / "cfg.db").string();
  if (GetParam() == std::string("postgresql")) {
    if (!Test_Postgres::IsInstalled()) GTEST_SKIP() << "no PostgreSQL server is installed";
    m_server = std::make_unique<Test_Postgres>();
    ASSERT_TRUE(m_server->is_running()) << m_server->problem();
    m_connection = m_server->connection();
  }
  m_conn = connect();
  ASSERT_TRUE(m_conn) << m_log.text();
}

std::unique_ptr<CFGDB_Conn> Database::connect() {
  auto conn = std::make_unique<CFGDB_Conn>(true);
  return conn->Init(m_connection.c_str(), "", false) ? std::move(conn) : nullptr;
}

int Database::set(CFGDB_Conn& conn, const std::string& path, const std::string& value) {
  return conn.InsertLine(Tree_NodeInfo(path, value), 1, true);
}

int Database::write(const std::vector<std::pair<std::string, std::string>>& rows) {
  Tmr_PtrSortedVector<Tree_NodeInfo> records;
  for (const auto& [path, value] : rows) {
    records.append(new Tree_NodeInfo(path, value));
  }
  return m_conn->WriteSubTree(records, rows.empty() ? "" : rows[0].first.c_str());
}

std::vector<std::string> Database::query(const std::string& path, bool wildcard,
                                         const char* sequence, bool deleted, bool all_deleted) {
  const RWCString number(sequence ? sequence : "");
  std::vector<std::string> found;
  if (m_conn->StartTreeQuery(path, wildcard, false, sequence ? &number : nullptr, deleted,
                             all_deleted) == -1) {
    return {"failed"};
  }
  const bool has_tree = m_conn->has_tree();
  std::string_view name, value;
  while (m_conn->next_record(name, value)) {
    found.push_back(std::string(name) + (value.empty() ? "" : "=" + std::string(value)));
  }
  if (!found.empty() && !has_tree) found.push_back("no tree");
  if (m_conn->is_query_failed()) found.push_back("failed");
  m_conn->CloseTreeQuery(true);
  return found;
}

void Database::fail_at(const std::string& name) {
  if (!m_server) {
    sqlite3* handle = nullptr;
    ASSERT_EQ(sqlite3_open((m_folder / "cfg.db").c_str(), &handle), SQLITE_OK);
    for (const char* table : {"entry", "deleted"}) {
      const std::string sql = std::string("CREATE TRIGGER fail_") + table + " BEFORE INSERT ON " +
                              table + " WHEN NEW.path LIKE '%" + name +
                              "' BEGIN SELECT RAISE(ABORT, 'as told'); END";
      EXPECT_EQ(sqlite3_exec(handle, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
    }
    sqlite3_close(handle);
    return;
  }
  PGconn* handle = PQconnectdb(m_connection.c_str());
  std::string sql =
      "SET search_path = halvoria_cfg; CREATE FUNCTION fail() RETURNS trigger LANGUAGE plpgsql"
      " AS 'BEGIN RAISE ''as told''; END'";
  for (const char* table : {"entry", "deleted"}) {
    sql += std::string("; CREATE TRIGGER fail BEFORE INSERT ON ") + table +
           " FOR EACH ROW WHEN (NEW.path LIKE '%" + name + "'::bytea) EXECUTE FUNCTION fail()";
  }
  PGresult* result = PQexec(handle, sql.c_str());
  EXPECT_EQ(PQresultStatus(result), PGRES_COMMAND_OK) << PQerrorMessage(handle);
  PQclear(result);
  PQfinish(handle);
}

std::vector<std::string> Database::rows(const std::string& path) { return query(path); }

std::vector<std::string> FillStore(const std::string& connection) {
  CFGDB_Conn conn(true);
  EXPECT_TRUE(conn.Init(connection, "", false));
  std::vector<std::string> paths;
  Tmr_PtrSortedVector<Tree_NodeInfo> records;
  records.append(new Tree_NodeInfo("t", ""));
  for (int i = 0; i < 20; ++i) {
    const std::string key = "t\\k" + std::to_string(i);
    records.append(new Tree_NodeInfo(key, ""));
    for (int v = 0; v < 100; ++v) {
      paths.push_back(key + "\\a value with number " + std::to_string(v));
      records.append(new Tree_NodeInfo(paths.back(), "text " + std::to_string(v)));
    }
  }
  records.sort();
  EXPECT_EQ(conn.WriteSubTree(records, "t"), CFGDB_Conn::OK);
  for (int i = 0; i < 40; ++i) conn.RemoveLeafLine(paths[static_cast<size_t>(i) * 7], 1);
  return paths;
}

std::vector<std::string> AnswersOf(const std::string& connection,
                                   const std::vector<std::string>& paths) {
  const Log_Capture log;
  CFGDB_Conn conn(true);
  if (!conn.Init(connection, "", false)) return std::vector<std::string>(26);
  std::vector<std::string> found;
  const auto add = [&](const std::string& answer) {
    found.push_back(conn.TakeFailure().empty() ? "=" + answer : "");
  };
  const auto query = [&](const char* path, const RWCString* sequence, bool deleted) {
    std::string rows;
    conn.StartTreeQuery(path, false, false, sequence, deleted, false);
    conn.each_record([&](std::string_view name, std::string_view value) {
      rows.append(name).append("=").append(value).append("\n");
      return true;
    });
    conn.CloseTreeQuery(true);
    add(rows);
  };
  const RWCString none("0");
  query("t", nullptr, false);
  query("t", &none, true);
  for (int i = 0; i < 20; ++i) query(("t\\k" + std::to_string(i)).c_str(), nullptr, false);
  add(std::to_string(conn.GetSubTreeEntriesCount("t\\k5")));
  add(std::to_string(conn.GetSubTreeNum("t")));
  std::string values;
  for (size_t i = 0; i < paths.size(); i += 19) values += conn.GetValue(paths[i]).str() + ",";
  add(values);
  add(conn.GetMaxSeqNumber().str());
  return found;
}

OVER_EVERY_STORE(Database);
