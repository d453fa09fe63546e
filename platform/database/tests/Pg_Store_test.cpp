#include <libpq-fe.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <sstream>
#include <thread>

#include <database/tests/Test_Database.h>

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class PostgresServer : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!Test_Postgres::IsInstalled()) GTEST_SKIP() << "no PostgreSQL server is installed";
    m_server = std::make_unique<Test_Postgres>();
    ASSERT_TRUE(m_server->is_running()) << m_server->problem();
    m_conn = std::make_unique<CFGDB_Conn>(true);
    ASSERT_EQ(m_conn->Init(m_server->connection(), "", false), 1) << m_log.text();
  }
  int set(const char* path, const char* value) {
    return m_conn->InsertLine(Tree_NodeInfo(path, value), 1, true);
  }
  std::string refusal(const std::string& connection, const char* user = "") {
    const Log_Capture log;
    CFGDB_Conn conn(true);
    return conn.Init(connection, user, false) ? "" : log.last();
  }
  void run(const char* sql) {
    PGconn* handle = PQconnectdb(m_server->connection().c_str());
    PQsetNoticeProcessor(
        handle, [](void*, const char*) {}, nullptr);
    PQclear(PQexec(handle, sql));
    PQfinish(handle);
  }

  Log_Capture m_log;
  std::unique_ptr<Test_Postgres> m_server;
  std::unique_ptr<CFGDB_Conn> m_conn;
};

TEST_F(PostgresServer, IsReachedAgainAfterTheConnectionWasLost) {
  ASSERT_EQ(set("t\\a", "1"), CFGDB_Conn::OK);
  m_server->disconnect_clients();
  EXPECT_STREQ(m_conn->GetValue("t\\a").data(), "1");
  m_server->disconnect_clients();
  EXPECT_EQ(set("t\\b", "2"), CFGDB_Conn::OK);
  m_server->disconnect_clients();
  ASSERT_NE(m_conn->StartTreeQuery("t", false, false, nullptr, false, false), -1);
  EXPECT_TRUE(m_conn->has_tree());
  m_conn->CloseTreeQuery(true);

  // What was pending is lost as a whole, and whoever commits it is told.
  m_conn->SetAutoCommit(0);
  ASSERT_EQ(set("t\\c", "3"), CFGDB_Conn::OK);
  m_server->disconnect_clients();
  EXPECT_EQ(set("t\\d", "4"), CFGDB_Conn::DB_ERROR);
  EXPECT_EQ(set("t\\e", "5"), CFGDB_Conn::DB_ERROR);
  EXPECT_EQ(m_conn->uncommitted, 1);
  EXPECT_EQ(m_conn->Commit(0), 0);
  EXPECT_EQ(m_conn->uncommitted, 0);
  m_conn->SetAutoCommit(1);
  EXPECT_EQ(set("t\\f", "6"), CFGDB_Conn::OK);
  EXPECT_EQ(m_conn->GetSubTreeEntriesCount("t"), 3);

  // By an operation that would be taken back alone, too.
  m_conn->SetAutoCommit(0);
  ASSERT_EQ(set("t\\c", "3"), CFGDB_Conn::OK);
  m_server->disconnect_clients();
  EXPECT_EQ(m_conn->RemoveSubTree("t", 1, true), CFGDB_Conn::DB_ERROR);
  EXPECT_EQ(set("t\\d", "4"), CFGDB_Conn::DB_ERROR);
  EXPECT_EQ(m_conn->Commit(0), 0);
  EXPECT_EQ(m_conn->GetSubTreeEntriesCount("t"), 3);

  // Lost by the commit itself: what is asked next is asked anew.
  m_conn->SetAutoCommit(0);
  ASSERT_EQ(set("t\\g", "7"), CFGDB_Conn::OK);
  m_server->disconnect_clients();
  EXPECT_EQ(m_conn->Commit(0), 0);
  EXPECT_NE(m_conn->TakeFailure(), "");
  EXPECT_STREQ(m_conn->GetValue("t\\a").data(), "1");
  EXPECT_STREQ(m_conn->GetValue("t\\g").data(), "");
  EXPECT_EQ(m_conn->TakeFailure(), "");
}

// Nobody takes a lock that went with the connection for one that is held.
TEST_F(PostgresServer, DoesNotTakeALockAgainThatWasLost) {
  ASSERT_EQ(set("t\\n", "1"), CFGDB_Conn::OK);
  for (const bool is_rolled_back : {false, true}) {
    ASSERT_EQ(m_conn->Lock(), CFGDB_Conn::OK);
    EXPECT_STREQ(m_conn->GetValue("t\\n").data(), "1");
    m_server->disconnect_clients();
    EXPECT_EQ(set("t\\n", "2"), CFGDB_Conn::DB_ERROR);
    if (is_rolled_back) {
      EXPECT_EQ(m_conn->RollBack(0), 1);
    }
    EXPECT_EQ(set("t\\n", "2"), CFGDB_Conn::DB_ERROR);
    EXPECT_EQ(m_conn->Lock(), CFGDB_Conn::DB_ERROR);
    EXPECT_EQ(m_conn->Commit(0), 0);
    m_conn->SetAutoCommit(1);
    EXPECT_STREQ(m_conn->GetValue("t\\n").data(), "1");
    EXPECT_EQ(set("t\\n", "1"), CFGDB_Conn::OK);
  }
}

TEST_F(PostgresServer, IsRefusedWithTheReason) {
  EXPECT_THAT(refusal("host=127.0.0.1 port=1 dbname=none"),
              HasSubstr("cannot open database <none> at <127.0.0.1:1>: connection to server"));
  EXPECT_THAT(refusal(m_server->connection() + " dbname=none"),
              HasSubstr("database \"none\" does not exist"));
  const std::string nobody =
      "host=127.0.0.1 dbname=postgres port=" + std::string(m_server->connection().substr(20, 5));
  EXPECT_THAT(refusal(nobody, "somebody"), HasSubstr("role \"somebody\" does not exist"));
  EXPECT_EQ(refusal(m_server->connection(), "somebody"), "");  // the string names one
  run("UPDATE halvoria_cfg.store SET schema_version = 99");
  EXPECT_THAT(refusal(m_server->connection()), HasSubstr("its schema has version 99"));
}

TEST_F(PostgresServer, LetsTwoMakeTheTablesAtOnce) {
  m_conn->disconnect();
  run("DROP SCHEMA halvoria_cfg CASCADE");
  int results[4] = {};
  std::vector<std::thread> threads;
  for (int& result : results) {
    threads.emplace_back([this, &result] {
      CFGDB_Conn conn(true);
      result = conn.Init(m_server->connection(), "", false);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(results, ElementsAre(1, 1, 1, 1)) << m_log.text();
}

// The tables as a version left them that knew no functions, with what they hold.
TEST_F(PostgresServer, OfAnOlderVersionIsTakenOver) {
  ASSERT_EQ(set("t\\a", "1"), CFGDB_Conn::OK);
  ASSERT_EQ(set("t\\b", "2"), CFGDB_Conn::OK);
  ASSERT_EQ(m_conn->RemoveLeafLine("t\\b", 1), CFGDB_Conn::OK);
  m_conn->disconnect();
  run("DROP FUNCTION halvoria_cfg.replace_value");
  run("UPDATE halvoria_cfg.store SET schema_version = 1");
  ASSERT_EQ(m_conn->Init(m_server->connection(), "", false), 1) << m_log.text();
  std::string reason;
  EXPECT_TRUE(m_conn->CheckIntegrity(reason)) << reason;
  EXPECT_STREQ(m_conn->GetMaxSeqNumber().data(), "4");
  EXPECT_EQ(set("t\\a", "3"), CFGDB_Conn::OK);
  EXPECT_STREQ(m_conn->GetValue("t\\a").data(), "3");
  EXPECT_STREQ(m_conn->GetMaxSeqNumber("t\\a").data(), "5");
  EXPECT_STREQ(m_conn->GetMaxSeqNumber().data(), "5");
}

// Neither the quick way of a single value nor the long one passes by who has the lock.
TEST_F(PostgresServer, ReplacesNoValueBesideALock) {
  ASSERT_EQ(set("t\\n", "1"), CFGDB_Conn::OK);
  CFGDB_Conn other(true);
  ASSERT_EQ(other.Init(m_server->connection(), "", false), 1);
  const auto set_other = [&other](const char* value) {
    return other.InsertLine(Tree_NodeInfo("t\\n", value), 1, true);
  };
  ASSERT_EQ(m_conn->Lock(), CFGDB_Conn::OK);
  other.SetWriteWait(1);
  EXPECT_EQ(set_other("2"), CFGDB_Conn::DB_ERROR);
  EXPECT_THAT(m_log.last(), HasSubstr("another writer holds the database"));
  other.SetWriteWait(10000);
  std::thread waiting([&] { EXPECT_EQ(set_other("3"), CFGDB_Conn::OK); });
  EXPECT_EQ(set("t\\n", "2"), CFGDB_Conn::OK);
  EXPECT_EQ(m_conn->Commit(0), CFGDB_Conn::COMMIT_OK);
  waiting.join();
  EXPECT_STREQ(m_conn->GetValue("t\\n").data(), "3");
  EXPECT_STREQ(m_conn->GetMaxSeqNumber().data(), "4");
}

// --- damage -----------------------------------------------------------------------------------

constexpr size_t kPage = 8192;

class DamagedServer : public PostgresServer {
 protected:
  void SetUp() override {
    PostgresServer::SetUp();
    if (!m_conn) return;
    m_conn->disconnect();
    m_paths = FillStore(m_server->connection());
    run("ALTER SYSTEM SET autovacuum = off");
    run("VACUUM halvoria_cfg.entry");
  }
  std::string text(const std::string& sql) {
    PGconn* handle = PQconnectdb(m_server->connection().c_str());
    PGresult* result = PQexec(handle, sql.c_str());
    std::string found = PQntuples(result) ? PQgetvalue(result, 0, 0) : "";
    PQclear(result);
    PQfinish(handle);
    return found;
  }
  // The file of a table or an index, whole at first, with what `change` makes of it.
  void damage(const std::string& of, const std::function<void(std::string& bytes)>& change) {
    const std::string name = text("SELECT pg_relation_filepath('halvoria_cfg." + of + "')");
    EXPECT_TRUE(m_server->restart([&](const std::string& data) {
      for (const auto& [file, bytes] : m_whole) std::ofstream(file, std::ios::binary) << bytes;
      const std::string file = data + "/" + name;
      std::stringstream all;
      all << std::ifstream(file, std::ios::binary).rdbuf();
      std::string bytes = m_whole.emplace(file, all.str()).first->second;
      ASSERT_GT(bytes.size(), 4 * kPage);
      change(bytes);
      std::ofstream(file, std::ios::binary) << bytes;
    }));
  }
  std::vector<std::string> answers() { return AnswersOf(m_server->connection(), m_paths); }
  // What a look at everything finds.
  void inspect(std::vector<std::string>& rows, std::vector<std::string>& places) {
    const Log_Capture log;
    CFGDB_Conn conn(true);
    ASSERT_EQ(conn.Init(m_server->connection(), "", false), 1) << log.text();
    conn.Inspect(
        [&](std::string_view path, std::string_view value) {
          rows.push_back(std::string(path).append("=").append(value));
        },
        [&](const std::string& place) { places.push_back(place); });
    std::sort(rows.begin(), rows.end());
  }
  std::string check() {
    const Log_Capture log;
    CFGDB_Conn conn(true);
    std::string reason;
    EXPECT_EQ(conn.Init(m_server->connection(), "", false), 1) << log.text();
    const bool is_sound = conn.CheckIntegrity(reason);
    EXPECT_EQ(is_sound, reason.empty());
    return reason;
  }

  std::vector<std::string> m_paths;
  std::map<std::string, std::string> m_whole;
};

// A bit of every fifth page is another one, pages are in the place of others, the end is gone, a
// page of the index is gone: whatever is answered is what was written. One look saves what is left.
TEST_F(DamagedServer, IsNotReadShort) {
  const std::vector<std::string> right = answers();
  std::vector<std::string> all, none;
  inspect(all, none);
  EXPECT_EQ(all.size(), 1981U);
  EXPECT_THAT(none, ElementsAre());
  EXPECT_EQ(check(), "");
  constexpr unsigned kSeed = 4711;
  std::mt19937 random(kSeed);
  const auto flip = [&](std::string& bytes) {  // but not where an index begins: all ends there
    for (size_t page = 1 + random() % 4; page < bytes.size() / kPage; page += 5) {
      bytes[page * kPage + random() % kPage] ^= static_cast<char>(1U << random() % 8);
    }
  };
  const auto mix = [](std::string& bytes) {
    bytes.replace(kPage, kPage, bytes, 2 * kPage, kPage);
    bytes.resize(bytes.size() - kPage);
  };
  const auto empty = [](std::string& bytes) { bytes.replace(kPage, kPage, kPage, '\0'); };
  const struct {
    const char* of;
    std::function<void(std::string& bytes)> change;
  } cases[] = {{"entry", flip},      {"entry", flip},     {"entry", mix},
               {"entry_pkey", flip}, {"entry_pkey", mix}, {"entry_pkey", empty}};
  for (const auto& one : cases) {
    const auto nth = &one - cases;
    damage(one.of, one.change);
    const std::vector<std::string> found = answers();
    ASSERT_EQ(found.size(), right.size());
    size_t refused = 0;
    for (size_t i = 0; i < found.size(); ++i) {
      EXPECT_TRUE(found[i].empty() || found[i] == right[i])
          << "seed " << kSeed << ", case " << nth << ", answer " << i << ": " << found[i];
      refused += found[i].empty();
    }
    EXPECT_GT(refused, 0U) << nth;
    EXPECT_LT(refused, found.size()) << nth;
    EXPECT_NE(check(), "") << nth;
    std::vector<std::string> saved, places;
    inspect(saved, places);
    EXPECT_FALSE(places.empty()) << nth;
    EXPECT_GT(saved.size(), all.size() / 2) << nth;
    EXPECT_TRUE(std::includes(all.begin(), all.end(), saved.begin(), saved.end())) << nth;
    EXPECT_TRUE(one.of == std::string("entry") || saved == all) << nth;
  }
}

// To the server an empty page is one without rows.
TEST_F(DamagedServer, IsFoundShortByItsCheck) {
  damage("entry", [](std::string& bytes) { bytes.replace(kPage, kPage, kPage, '\0'); });
  EXPECT_NE(check(), "");
}

TEST(Postgres, WithoutSumsOfPagesIsNamedOnce) {
  if (!Test_Postgres::IsInstalled()) GTEST_SKIP() << "no PostgreSQL server is installed";
  const Test_Postgres server("", false, false);
  ASSERT_TRUE(server.is_running()) << server.problem();
  const Log_Capture log;
  for (const size_t lines : {1, 1}) {
    CFGDB_Conn conn(true);
    ASSERT_EQ(conn.Init(server.connection(), "", false), 1) << log.text();
    const std::string said = log.text();
    EXPECT_THAT(said, HasSubstr("database <postgres> at <127.0.0.1:"));
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), lines) << said;
  }
}
