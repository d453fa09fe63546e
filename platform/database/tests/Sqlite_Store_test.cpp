#include <sqlite3.h>
#include <sys/resource.h>
#include <csignal>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <thread>

#include <database/tests/Test_Database.h>
#include <support/forked.h>

using ::testing::HasSubstr;

class SqliteFile : public ::testing::Test {
 protected:
  // The message with which a file is refused; empty when it is not.
  std::string refusal(const std::string& file) {
    const Log_Capture log;
    CFGDB_Conn conn(true);
    return conn.Init(("sqlite:" + file).c_str(), "", false) ? "" : log.last();
  }
  void run(const std::string& file, const char* sql) {
    sqlite3* handle = nullptr;
    ASSERT_EQ(sqlite3_open(file.c_str(), &handle), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(handle, sql, nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(handle);
  }

  TemporaryFolder m_folder;
};

TEST_F(SqliteFile, IsRefusedWithTheReason) {
  const std::string text = m_folder / "text", newer = m_folder / "newer",
                    foreign = m_folder / "foreign", missing = m_folder / "none/cfg.db";
  std::ofstream(text) << std::string(5000, 'x');
  EXPECT_THAT(refusal(text), HasSubstr("database <" + text + ">: file is not a database"));
  EXPECT_THAT(refusal(missing), HasSubstr("<" + missing +
                                          ">: unable to open database file "
                                          "(No such file or directory)"));
  EXPECT_EQ(refusal(newer), "");
  run(newer, "PRAGMA user_version = 99");
  EXPECT_THAT(refusal(newer), HasSubstr("its schema has version 99, this program knows versions "
                                        "up to 2"));
  run(foreign, "CREATE TABLE t (x)");
  EXPECT_THAT(refusal(foreign), HasSubstr("it is the file of another program"));
  EXPECT_THAT(refusal(""), HasSubstr("no file is named"));
}

TEST_F(SqliteFile, ModuleIsLookedForWhereTheVariableSays) {
  setenv("HALVORIA_MODULES", "/nowhere", 1);
  EXPECT_THAT(refusal(m_folder / "cfg.db"),
              HasSubstr("module libhalvoria_sqlite.so is not in /nowhere"));
  setenv("HALVORIA_MODULES", (m_folder / "").c_str(), 1);
  std::ofstream(m_folder / "libhalvoria_sqlite.so") << "no library";
  EXPECT_THAT(refusal(m_folder / "cfg.db"), HasSubstr("libhalvoria_sqlite.so cannot be used: "));
  unsetenv("HALVORIA_MODULES");
  EXPECT_EQ(refusal(m_folder / "cfg.db"), "");
}

// A fork closes the file in both processes: what is opened again is that file, and not one made
// where it would be looked for now.
TEST_F(SqliteFile, IsTheSameAfterAForkOrNone) {
  constexpr char path[] = "halvoria\\a";
  CFGDB_Conn conn(true);
  const auto folder = std::filesystem::current_path();
  std::filesystem::current_path(m_folder / "");
  ASSERT_TRUE(conn.Init("sqlite:tree.db", "", false));
  std::filesystem::current_path(folder);
  ASSERT_EQ(conn.InsertLine(Tree_NodeInfo(path, "kept"), 1, true), CFGDB_Conn::OK);
  const auto is_kept = [&] { return conn.GetValue(path) == "kept"; };
  EXPECT_TRUE(holds_in_child(is_kept));
  EXPECT_TRUE(is_kept());

  EXPECT_TRUE(holds_in_child([] { return true; }));
  std::filesystem::rename(m_folder / "tree.db", m_folder / "moved.db");
  for (const bool is_another : {false, true}) {
    EXPECT_TRUE(!is_another || refusal(m_folder / "tree.db").empty());
    const Log_Capture log;
    EXPECT_FALSE(is_kept());
    EXPECT_TRUE(log.has("is not the file any more that was open")) << log.text();
    EXPECT_EQ(std::filesystem::exists(m_folder / "tree.db"), is_another);
  }
  std::filesystem::rename(m_folder / "moved.db", m_folder / "tree.db");
  EXPECT_TRUE(is_kept());

  // One that is in use is kept from a child under every name.
  conn.SetAutoCommit(0);
  ASSERT_EQ(conn.InsertLine(Tree_NodeInfo(path, "pending"), 1, true), CFGDB_Conn::OK);
  CFGDB_Conn other(true);
  EXPECT_TRUE(holds_in_child([&] {
    const Log_Capture log;
    return !other.Init("sqlite:" + std::string(m_folder / "./tree.db"), "", false) &&
           log.has("was in use when the process forked");
  }));
}

// The wait is long enough that the writer still waits when a fork that waited for it is done.
TEST_F(SqliteFile, AForkDoesNotWaitForAnotherWriter) {
  const std::string file = "sqlite:" + std::string(m_folder / "tree.db");
  CFGDB_Conn holds(true), waits(true);
  ASSERT_TRUE(holds.Init(file, "", false) && waits.Init(file, "", true));
  ASSERT_EQ(holds.Lock(), CFGDB_Conn::OK);
  waits.SetWriteWait(3000);
  Log_Capture log;
  std::thread waiting([&] {
    EXPECT_EQ(waits.InsertLine(Tree_NodeInfo("halvoria\\a", "1"), 1, true), CFGDB_Conn::OK);
  });
  while (!log.has("BEGIN IMMEDIATE")) std::this_thread::yield();
  EXPECT_TRUE(holds_in_child([] { return true; }));
  EXPECT_EQ(holds.Commit(0), CFGDB_Conn::COMMIT_OK);
  waiting.join();
  EXPECT_EQ(holds.GetValue("halvoria\\a"), "1");
}

// What was changed behind our back is found, whether it would make a tree or not.
TEST_F(SqliteFile, IsCheckedForWhatItWrote) {
  const struct {
    const char* damage;
    const char* reason;
  } cases[] = {
      {"INSERT INTO entry VALUES ('t\\none\\x', 'v', 1, 1)", "there is damage at <t\\none\\x>"},
      {"INSERT INTO entry SELECT 't\\v2', value, 7, 1 FROM entry WHERE path = 't\\v'",
       "there is damage at <t\\v2>"},
      {"DELETE FROM entry WHERE path = 't'", "rows are missing before <t\\v>"},
      {"DELETE FROM entry WHERE path > 't'", "rows are missing behind <>"},
      {"UPDATE entry SET value = '2' WHERE path = 't\\v'", "there is damage at <t\\v>"},
      {"UPDATE entry SET sequence = 1", "out of range or given twice"},
      {"UPDATE store SET last_sequence = 1", "there is damage in <store>"}};
  for (const auto& one : cases) {
    const std::string file = m_folder / std::to_string(&one - cases);
    CFGDB_Conn conn(true);
    std::string reason;
    ASSERT_TRUE(conn.Init(("sqlite:" + file).c_str(), "", false));
    ASSERT_EQ(conn.InsertLine(Tree_NodeInfo("t\\v", "1"), 1, true), CFGDB_Conn::OK);
    EXPECT_TRUE(conn.CheckIntegrity(reason)) << reason;
    run(file, one.damage);
    EXPECT_FALSE(conn.CheckIntegrity(reason)) << one.damage;
    EXPECT_THAT(reason, HasSubstr(one.reason));
  }
}

// A file as an older version left it is sealed when it is opened.
TEST_F(SqliteFile, OfAnOlderVersionIsTakenOver) {
  const std::string file = m_folder / "cfg.db";
  run(file,
      "CREATE TABLE entry (path TEXT NOT NULL PRIMARY KEY, value TEXT NOT NULL,"
      "  sequence INTEGER NOT NULL, single INTEGER NOT NULL) WITHOUT ROWID;"
      "CREATE INDEX entry_changed ON entry (sequence) WHERE single = 1;"
      "CREATE TABLE deleted (path TEXT NOT NULL PRIMARY KEY, sequence INTEGER NOT NULL,"
      "  at INTEGER NOT NULL) WITHOUT ROWID;"
      "CREATE INDEX deleted_sequence ON deleted (sequence);"
      "CREATE TABLE store (id INTEGER PRIMARY KEY CHECK (id = 1), last_sequence INTEGER NOT NULL,"
      "  last_bulk INTEGER NOT NULL, oldest_deletion INTEGER NOT NULL, sync_id TEXT NOT NULL,"
      "  created TEXT NOT NULL);"
      "INSERT INTO store VALUES (1, 5, 2, 1, 'id', '2026');"
      "INSERT INTO entry VALUES ('t', '', 1, 0), ('t\\v', 'one', 2, 0), ('t\\w', 'two', 4, 1);"
      "INSERT INTO deleted VALUES ('t\\x', 5, 0);"
      "PRAGMA user_version = 1; PRAGMA application_id = 0x68636667");
  CFGDB_Conn conn(true);
  std::string reason;
  ASSERT_TRUE(conn.Init(("sqlite:" + file).c_str(), "", false));
  EXPECT_TRUE(conn.CheckIntegrity(reason)) << reason;
  EXPECT_STREQ(conn.GetValue("t\\v").data(), "one");
  EXPECT_STREQ(conn.GetServerSyncID().data(), "id");
  EXPECT_STREQ(conn.GetMaxSeqNumber("t").data(), "5");
  ASSERT_EQ(conn.InsertLine(Tree_NodeInfo("t\\x", "3"), 1, true), CFGDB_Conn::OK);
  EXPECT_STREQ(conn.GetMaxSeqNumber().data(), "6");
  EXPECT_EQ(conn.GetSubTreeEntriesCount("t"), 3);
  EXPECT_TRUE(conn.CheckIntegrity(reason)) << reason;
}

// --- damage -----------------------------------------------------------------------------------

// One bit is another one, or a page is gone, is another one, or is as it was before: whatever is
// answered is what was written.
TEST_F(SqliteFile, IsNotReadShortWhereItIsDamaged) {
  const std::string file = m_folder / "cfg.db", damaged = m_folder / "damaged.db";
  const std::vector<std::string> paths = FillStore("sqlite:" + file);
  const std::vector<std::string> right = AnswersOf("sqlite:" + file, paths);
  std::stringstream all;
  all << std::ifstream(file, std::ios::binary).rdbuf();
  const std::string whole = all.str();
  constexpr size_t kPage = 4096;
  constexpr unsigned kSeed = 4711;
  constexpr int kRounds = 500;
  std::mt19937 random(kSeed);
  int refused = 0;
  for (int round = 0; round < kRounds; ++round) {
    std::string bytes = whole;
    const size_t page = random() % (bytes.size() / kPage) * kPage;
    const size_t other = random() % (bytes.size() / kPage) * kPage;
    switch (round % 5) {
      case 0:
        bytes.replace(page, kPage, kPage, '\0');
        break;
      case 1:
        bytes.replace(page, kPage, whole, other, kPage);
        break;
      case 2:  // where a page says what it holds
        bytes[page + random() % 16] ^= static_cast<char>(1U << random() % 8);
        break;
      default:
        bytes[page + random() % kPage] ^= static_cast<char>(1U << random() % 8);
    }
    std::filesystem::remove(damaged + "-wal");
    std::filesystem::remove(damaged + "-shm");
    std::ofstream(damaged, std::ios::binary) << bytes;
    const std::vector<std::string> found = AnswersOf("sqlite:" + damaged, paths);
    for (size_t i = 0; i < found.size(); ++i) {
      EXPECT_TRUE(found[i].empty() || found[i] == right[i])
          << "seed " << kSeed << ", round " << round << ", page " << page / kPage << ", answer "
          << i;
      refused += found[i].empty();
    }
  }
  EXPECT_GT(refused, kRounds);
}

// What one connection read again and again is never older than what others have committed, nor
// newer: by another connection, by another program, or by a thread at the same time.
TEST_F(SqliteFile, ReadsAgainWhatOthersChanged) {
  const std::string file = m_folder / "cfg.db";
  CFGDB_Conn reader(true), writer(true);
  ASSERT_TRUE(reader.Init(("sqlite:" + file).c_str(), "", false));
  ASSERT_TRUE(writer.Init(("sqlite:" + file).c_str(), "", false));
  const auto expect = [&](const char* value) {
    for (int i = 0; i < 4; ++i) ASSERT_STREQ(reader.GetValue("t\\a").data(), value);
  };
  const auto set = [](CFGDB_Conn& conn, const char* value) {
    ASSERT_EQ(conn.InsertLine(Tree_NodeInfo("t\\a", value), 1, true), CFGDB_Conn::OK);
  };
  expect("");
  set(writer, "1");
  expect("1");
  writer.SetAutoCommit(0);
  set(writer, "2");
  expect("1");
  EXPECT_EQ(writer.Commit(0), CFGDB_Conn::COMMIT_OK);
  expect("2");
  set(writer, "3");
  expect("2");
  writer.RollBack(0);
  writer.SetAutoCommit(1);
  expect("2");
  set(writer, "4");
  run(file, "PRAGMA wal_checkpoint(TRUNCATE)");
  expect("4");
  reader.SetAutoCommit(0);
  set(reader, "5");
  expect("5");
  reader.RollBack(0);
  reader.SetAutoCommit(1);
  expect("4");
  EXPECT_EQ(writer.RemoveLeafLine("t\\a", 1), CFGDB_Conn::OK);
  expect("");
}

TEST_F(SqliteFile, ReadsNothingOlderThanWhatWasAcknowledged) {
  const std::string file = m_folder / "cfg.db";
  CFGDB_Conn reader(true), writer(true);
  ASSERT_TRUE(reader.Init(("sqlite:" + file).c_str(), "", false));
  ASSERT_TRUE(writer.Init(("sqlite:" + file).c_str(), "", false));
  std::atomic<int> begun{0}, acknowledged{0};
  std::thread writing([&] {
    for (int i = 1; i <= 300; ++i) {
      begun = i;
      writer.InsertLine(Tree_NodeInfo("t\\n", std::to_string(i).c_str()), 1, true);
      acknowledged = i;
    }
  });
  for (bool is_over = false; !is_over;) {
    is_over = acknowledged == 300;
    const int least = acknowledged;
    const int found = std::atoi(reader.GetValue("t\\n").data());
    ASSERT_GE(found, least);
    ASSERT_LE(found, begun);
  }
  writing.join();
}

// A read without memory ends the transaction: what comes after it is not for good at once.
TEST_F(SqliteFile, LosesATransactionInWhichAReadFailed) {
  const std::string file = m_folder / "cfg.db";
  CFGDB_Conn conn(true), other(true);
  ASSERT_TRUE(conn.Init(("sqlite:" + file).c_str(), "", false));
  ASSERT_TRUE(other.Init(("sqlite:" + file).c_str(), "", false));
  const std::string big(1 << 20, 'b');
  ASSERT_EQ(conn.InsertLine(Tree_NodeInfo("t\\big", big), 1, true), CFGDB_Conn::OK);
  conn.SetAutoCommit(0);
  ASSERT_EQ(conn.InsertLine(Tree_NodeInfo("t\\a", "1"), 1, true), CFGDB_Conn::OK);
  sqlite3_hard_heap_limit64(sqlite3_memory_used() + (100 << 10));
  EXPECT_STREQ(conn.GetValue("t\\big").data(), "");
  sqlite3_hard_heap_limit64(0);
  EXPECT_EQ(conn.InsertLine(Tree_NodeInfo("t\\b", "2"), 1, true), CFGDB_Conn::DB_ERROR);
  EXPECT_STREQ(other.GetValue("t\\b").data(), "");
  EXPECT_EQ(conn.Commit(0), 0);
  EXPECT_EQ(other.GetSubTreeEntriesCount("t"), 1);
  EXPECT_STREQ(other.GetMaxSeqNumber().data(), "2");
}

// The disk is full in the middle of a transaction: it is lost as a whole, and told so.
TEST_F(SqliteFile, LosesAllOfATransactionWhenTheDiskIsFull) {
  const std::string file = m_folder / "cfg.db";
  CFGDB_Conn conn(true);
  ASSERT_TRUE(conn.Init(("sqlite:" + file).c_str(), "", false));
  ASSERT_EQ(conn.InsertLine(Tree_NodeInfo("t\\a", "1"), 1, true), CFGDB_Conn::OK);
  const rlim_t room = 600 << 10;
  const rlimit limit = {room, room};
  signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  const Log_Capture log;
  const RWCString big(std::string(400 << 10, 'b'));
  conn.SetAutoCommit(0);
  ASSERT_EQ(conn.InsertLine(Tree_NodeInfo("t\\b", "2"), 1, true), CFGDB_Conn::OK);
  for (int i = 0; i < 3; ++i) {
    conn.InsertLine(Tree_NodeInfo(RWCString("t\\") + std::to_string(i).c_str(), big), 1, true);
  }
  EXPECT_EQ(conn.uncommitted, 1);
  EXPECT_EQ(conn.Commit(0), 0);
  EXPECT_EQ(conn.uncommitted, 0);
  conn.SetAutoCommit(1);
  EXPECT_STREQ(conn.GetValue("t\\a").data(), "1");
  EXPECT_STREQ(conn.GetValue("t\\b").data(), "");
  EXPECT_THAT(log.text(), HasSubstr("database <" + file + ">"));
}
