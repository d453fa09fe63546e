#include <libpq-fe.h>

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
