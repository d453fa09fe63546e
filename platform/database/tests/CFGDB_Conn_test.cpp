#include <database/tests/Test_Database.h>

#include <thread>

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// --- writes and numbers -----------------------------------------------------------------------

TEST_P(Database, NumbersEveryChangeOnceAndNothingElse) {
  EXPECT_STREQ(m_conn->GetMaxSeqNumber().data(), "0");
  EXPECT_STREQ(m_conn->GetMinSeqNumberOfDeletedEntry().data(), "1");
  ASSERT_EQ(set("t\\a\\x", "1"), CFGDB_Conn::OK);
  EXPECT_EQ(number(), 3);  // two keys, one value
  ASSERT_EQ(set("t\\a\\x", "2"), CFGDB_Conn::OK);
  EXPECT_EQ(number(), 4);  // removed and inserted, but one change
  ASSERT_EQ(set("t\\a\\x", "2"), CFGDB_Conn::OK);
  EXPECT_EQ(number(), 4);  // the same text
  EXPECT_EQ(m_conn->RemoveLeafLine("t\\a\\none", 1), CFGDB_Conn::OK);
  EXPECT_EQ(m_conn->RemoveLeafLine("t\\a", 1), CFGDB_Conn::OK);  // a key, not a leaf
  EXPECT_EQ(number(), 4);
  EXPECT_THAT(query("t", false, "0", true), IsEmpty());
  EXPECT_EQ(m_conn->RemoveLeafLine("t\\a\\x", 1), CFGDB_Conn::OK);
  EXPECT_EQ(number(), 5);
  EXPECT_THAT(query("t", false, "4", true), ElementsAre("a\\x"));
  ASSERT_EQ(set("t\\a\\x", "3"), CFGDB_Conn::OK);  // back again: no longer deleted
  EXPECT_THAT(query("t", false, "0", true), IsEmpty());
  EXPECT_EQ(m_conn->RemoveSubTree("t\\a", 1, true), CFGDB_Conn::OK);
  EXPECT_EQ(number(), 8);
  EXPECT_THAT(query("t", false, "6", true), ElementsAre("a", "a\\x"));
  EXPECT_THAT(query("t", false, "7", true), ElementsAre("a\\x"));
  EXPECT_STREQ(m_conn->GetMaxSeqNumber("t\\a").data(), "8");
  EXPECT_STREQ(m_conn->GetMaxSeqNumber("t\\b").data(), "0");

  const RWCString id = m_conn->GetServerSyncID();
  EXPECT_EQ(id.length(), 36U);
  m_conn = connect();
  ASSERT_TRUE(m_conn);
  EXPECT_EQ(number(), 8);
  EXPECT_EQ(m_conn->GetServerSyncID(), id);
  EXPECT_EQ(m_conn->GetDbServerDateTime().length(), 19U);
}

// What is read behind a lock stays true until the lock goes.
TEST_P(Database, LocksOthersOutAtOnceAndUntilItIsGivenBack) {
  const auto other = connect();
  ASSERT_TRUE(other);
  other->SetWriteWait(20);
  const auto is_other_out = [&] {
    return set(*other, "t\\b", "2") == CFGDB_Conn::DB_ERROR &&
           other->Lock() == CFGDB_Conn::DB_ERROR && other->GetAutoCommit();
  };
  ASSERT_EQ(m_conn->Lock(), CFGDB_Conn::OK);
  EXPECT_TRUE(is_other_out());
  EXPECT_EQ(m_conn->Lock(), CFGDB_Conn::OK) << "held already";
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(set("t\\a", "1"), CFGDB_Conn::OK);
    ASSERT_EQ(write({{"t\\c", ""}, {"t\\c\\d", "1"}}), CFGDB_Conn::OK);
    EXPECT_EQ(m_conn->RollBack(0), 1);
    EXPECT_EQ(m_conn->uncommitted, 0);
    EXPECT_EQ(number(), 0);
    EXPECT_TRUE(is_other_out());
  }
  EXPECT_THAT(rows(), IsEmpty());
  ASSERT_EQ(set("t\\a", "1"), CFGDB_Conn::OK);
  EXPECT_EQ(m_conn->Commit(0), CFGDB_Conn::COMMIT_OK);
  m_conn->SetAutoCommit(1);
  EXPECT_EQ(set(*other, "t\\b", "2"), CFGDB_Conn::OK);
  ASSERT_EQ(m_conn->Lock(), CFGDB_Conn::OK);
  m_conn->SetAutoCommit(1);
  EXPECT_EQ(other->Lock(), CFGDB_Conn::OK) << "given back unused";
  EXPECT_THAT(rows(), ElementsAre("a=1", "b=2"));
}

TEST_P(Database, KeepsValuesAndKeysApart) {
  ASSERT_EQ(set("t\\v", "1"), CFGDB_Conn::OK);
  EXPECT_EQ(set("t\\v\\below", "1"), CFGDB_Conn::PARENT_IS_VALUE);
  EXPECT_EQ(m_conn->CreatePath("t\\v\\b\\c", 1, true), CFGDB_Conn::PARENT_IS_VALUE);
  EXPECT_EQ(m_conn->CreatePath("t\\v", 1, true), CFGDB_Conn::PARENT_IS_VALUE);
  EXPECT_THAT(m_log.last(), HasSubstr("CreatePath: path <t\\v>: it is a value"));
  EXPECT_EQ(write({{"t\\v\\w", ""}}), CFGDB_Conn::PARENT_IS_VALUE);
  EXPECT_EQ(set("t", "value"), CFGDB_Conn::IS_KEY);
  EXPECT_EQ(m_conn->CreatePath("", 1, true), CFGDB_Conn::DB_ERROR);
  EXPECT_EQ(m_conn->CreatePath(RWCString(std::string(2601, 'x')), 1, true), CFGDB_Conn::DB_ERROR);
  EXPECT_EQ(m_conn->uncommitted, 0);
  EXPECT_THAT(rows(), ElementsAre("v=1"));

  // A doubled backslash is one, as in a tree.
  ASSERT_EQ(set("t\\\\a\\\\b", "2"), CFGDB_Conn::OK);
  EXPECT_STREQ(m_conn->GetValue("\\t\\a\\b\\").data(), "2");
  EXPECT_EQ(number(), 4);
}

TEST_P(Database, KeepsAnyBytesButNulAndLongTexts) {
  const std::string odd("\x01\xff\x80' \"\\%_\n"), big(3 << 20, 'b');
  ASSERT_EQ(set("t\\odd", odd), CFGDB_Conn::OK);
  ASSERT_EQ(set("t\\big", big), CFGDB_Conn::OK);
  ASSERT_EQ(write({{"t\\k", ""}, {"t\\k\\\xc3\xa4 '\xff", odd}, {"t\\k\\z", big}}), CFGDB_Conn::OK);
  EXPECT_EQ(set("t\\nul", std::string("a\0b", 3)), CFGDB_Conn::DB_ERROR);
  EXPECT_EQ(write({{"t\\n", ""}, {"t\\n\\v", std::string("a\0b", 3)}}), CFGDB_Conn::DB_ERROR);
  EXPECT_EQ(m_conn->GetValue("t\\odd").str(), odd);
  EXPECT_EQ(m_conn->GetValue("t\\k\\z").str(), big);
  const bool is_same =
      rows("t\\k") == std::vector<std::string>{"z=" + big, "\xc3\xa4 '\xff=" + odd};
  EXPECT_TRUE(is_same);  // unsaid what differs, as that is long
}

// --- transactions -----------------------------------------------------------------------------

TEST_P(Database, HoldsATransactionUntilCommitOrRollBack) {
  ASSERT_EQ(set("t\\a", "1"), CFGDB_Conn::OK);
  EXPECT_EQ(m_conn->uncommitted, 0);
  const auto other = connect();
  m_conn->SetAutoCommit(0);
  EXPECT_EQ(m_conn->uncommitted, 0);
  ASSERT_EQ(set("t\\b", "2"), CFGDB_Conn::OK);
  EXPECT_EQ(m_conn->uncommitted, 1);
  EXPECT_STREQ(m_conn->GetValue("t\\b").data(), "2");
  EXPECT_STREQ(other->GetValue("t\\b").data(), "");
  EXPECT_EQ(m_conn->RollBack(0), 1);
  EXPECT_EQ(m_conn->uncommitted, 0);
  EXPECT_THAT(rows(), ElementsAre("a=1"));
  EXPECT_EQ(number(), 2);

  ASSERT_EQ(m_conn->RemoveLeafLine("t\\a", 0), CFGDB_Conn::OK);
  EXPECT_EQ(m_conn->uncommitted, 1);
  EXPECT_STREQ(m_conn->GetValue("t\\a").data(), "");  // gone for this connection
  EXPECT_STREQ(other->GetValue("t\\a").data(), "1");
  EXPECT_EQ(m_conn->CreatePath("t\\c\\d", 1, true), CFGDB_Conn::OK);
  EXPECT_EQ(set("t\\c", "2"), CFGDB_Conn::IS_KEY);  // refused: what was done stays pending
  EXPECT_EQ(m_conn->uncommitted, 1);
  EXPECT_EQ(m_conn->Commit(0), CFGDB_Conn::COMMIT_OK);
  EXPECT_EQ(m_conn->uncommitted, 0);
  EXPECT_STREQ(other->GetValue("t\\a").data(), "");
  EXPECT_EQ(other->IsSubTreeExist("t\\c\\d", 0), 1);
  EXPECT_EQ(m_conn->Commit(0), CFGDB_Conn::COMMIT_OK);  // of nothing
  m_conn->SetAutoCommit(1);

  // A step that fails takes back what it did before.
  ASSERT_EQ(m_conn->CreatePath("t\\e", 0, true), CFGDB_Conn::OK);
  EXPECT_EQ(m_conn->InsertLine(Tree_NodeInfo("t\\c", "value"), 1, true), CFGDB_Conn::IS_KEY);
  EXPECT_EQ(m_conn->IsSubTreeExist("t\\e", 0), 0);
  // A step left open ends with the next.
  ASSERT_EQ(m_conn->CreatePath("t\\e", 0, true), CFGDB_Conn::OK);
  EXPECT_EQ(m_conn->uncommitted, 1);
  ASSERT_EQ(m_conn->RemoveLeafLine("t\\none", 1), CFGDB_Conn::OK);
  EXPECT_EQ(other->IsSubTreeExist("t\\e", 0), 1);
}

// Each write is whole in a transaction, too; what was pending before stays.
TEST_P(Database, TakesBackWhatFailsHalfwayAlone) {
  ASSERT_EQ(write({{"t", ""}, {"t\\tree", ""}, {"t\\tree\\stop", "1"}}), CFGDB_Conn::OK);
  fail_at("stop");
  const auto fail_all = [this] {
    EXPECT_EQ(m_conn->Rename("t\\tree", "t\\named", 1), CFGDB_Conn::DB_ERROR);
    EXPECT_EQ(m_conn->RemoveSubTree("t\\tree", 1, true), CFGDB_Conn::DB_ERROR);
    EXPECT_EQ(write({{"t\\deep\\key", ""}, {"t\\deep\\key\\stop", "1"}}), CFGDB_Conn::DB_ERROR);
  };
  m_conn->SetAutoCommit(0);
  fail_all();  // the first in the transaction
  ASSERT_EQ(set("t\\new\\a", "1"), CFGDB_Conn::OK);
  fail_all();
  EXPECT_EQ(set("t\\fresh\\" + std::string(2600, 'x'), "1"), CFGDB_Conn::DB_ERROR);
  EXPECT_EQ(set("t\\fresh\\nul", std::string("a\0b", 3)), CFGDB_Conn::DB_ERROR);
  EXPECT_EQ(set("t\\new\\a\\fresh\\v", "1"), CFGDB_Conn::PARENT_IS_VALUE);
  ASSERT_EQ(write({{"t\\new\\k", ""}, {"t\\new\\k\\v", "1"}}), CFGDB_Conn::OK);
  ASSERT_EQ(m_conn->Rename("t\\new\\k", "t\\new\\l", 1), CFGDB_Conn::OK);
  fail_all();
  EXPECT_EQ(m_conn->uncommitted, 1);
  EXPECT_EQ(m_conn->Commit(0), CFGDB_Conn::COMMIT_OK);
  const auto is_kept =
      ElementsAre("new", "new\\a=1", "new\\l", "new\\l\\v=1", "tree", "tree\\stop=1");
  EXPECT_THAT(rows(), is_kept);
  EXPECT_EQ(number(), 11);  // none for what was taken back
  std::string reason;
  EXPECT_TRUE(m_conn->CheckIntegrity(reason)) << reason;

  // The keys above a value that fails go with all the rest, which whoever commits is told.
  ASSERT_EQ(set("t\\lost", "1"), CFGDB_Conn::OK);
  EXPECT_EQ(set("t\\fresh\\stop", "1"), CFGDB_Conn::DB_ERROR);
  EXPECT_EQ(set("t\\after", "1"), CFGDB_Conn::DB_ERROR);
  EXPECT_EQ(m_conn->Commit(0), 0);
  EXPECT_THAT(rows(), is_kept);
}

TEST_P(Database, LetsOneWriterInAtATime) {
  const auto other = connect();
  other->SetWriteWait(50);
  ASSERT_EQ(m_conn->CreatePath("t\\a", 0, true), CFGDB_Conn::OK);
  EXPECT_EQ(other->CreatePath("t\\b", 1, true), CFGDB_Conn::DB_ERROR);
  EXPECT_THAT(m_log.last(), HasSubstr("another writer holds the database for more than 50 ms"));
  EXPECT_EQ(other->IsSubTreeExist("t\\a", 0), 0);  // readers do not wait
  EXPECT_EQ(m_conn->Commit(0), CFGDB_Conn::COMMIT_OK);
  EXPECT_EQ(other->CreatePath("t\\b", 1, true), CFGDB_Conn::OK);

  // No change of two writers gets lost, and no number is given twice.
  const auto write_many = [](CFGDB_Conn& conn, const char* key) {
    for (int i = 0; i < 50; ++i) {
      const RWCString path = RWCString("t\\") + key + "\\" + std::to_string(i).c_str();
      if (conn.InsertLine(Tree_NodeInfo(path, "v"), 1, true) != CFGDB_Conn::OK) return;
    }
  };
  other->SetWriteWait(60000);
  m_conn->SetWriteWait(60000);
  std::thread writer([&] { write_many(*other, "b"); });
  write_many(*m_conn, "a");
  writer.join();
  EXPECT_EQ(m_conn->GetSubTreeEntriesCount("t"), 102);
  EXPECT_EQ(number(), 103);
  std::string reason;
  EXPECT_TRUE(m_conn->CheckIntegrity(reason)) << reason;
}

TEST_P(Database, ChangesWhileATreeIsRead) {
  std::vector<std::pair<std::string, std::string>> many = {{"t", ""}};
  for (int i = 1000; i < 3000; ++i) many.push_back({"t\\" + std::to_string(i), "v"});
  ASSERT_EQ(write(many), CFGDB_Conn::OK);
  ASSERT_NE(m_conn->StartTreeQuery("t", false, false, nullptr, false, false), -1);
  EXPECT_TRUE(m_conn->has_tree());
  const auto other = connect();
  ASSERT_EQ(set(*other, "t\\2999", "w"), CFGDB_Conn::OK);
  ASSERT_EQ(set("t\\2998", "w"), CFGDB_Conn::OK);
  EXPECT_STREQ(m_conn->GetValue("t\\2999").data(), "w");
  int count = 0;
  std::string_view path, value;
  while (m_conn->next_record(path, value)) count += value == "v";  // as when the query began
  EXPECT_EQ(count, 2000);
  EXPECT_FALSE(m_conn->is_query_failed());
}

// --- whole trees ------------------------------------------------------------------------------

TEST_P(Database, ReplacesATreeAndNumbersOnlyWhatDiffers) {
  ASSERT_EQ(write({{"t\\s", ""},
                   {"t\\s\\a", "1"},
                   {"t\\s\\b", ""},
                   {"t\\s\\b-c", "2"},
                   {"t\\s\\b\\x", "3"}}),
            CFGDB_Conn::OK);
  EXPECT_EQ(number(), 6);
  EXPECT_THAT(rows(), ElementsAre("s", "s\\a=1", "s\\b", "s\\b-c=2", "s\\b\\x=3"));
  ASSERT_EQ(write({{"t\\s", ""},
                   {"t\\s\\a", "1"},
                   {"t\\s\\b", ""},
                   {"t\\s\\b-c", "2"},
                   {"t\\s\\b\\x", "3"}}),
            CFGDB_Conn::OK);
  EXPECT_EQ(number(), 6);
  ASSERT_EQ(write({{"t\\s", ""}, {"t\\s\\a", ""}, {"t\\s\\a\\n", "1"}, {"t\\s\\b", "9"}}),
            CFGDB_Conn::OK);
  EXPECT_THAT(rows("t\\s"), ElementsAre("a", "a\\n=1", "b=9"));
  EXPECT_EQ(number(), 11);
  EXPECT_THAT(query("t", false, "6"), ElementsAre("s\\a", "s\\a\\n=1", "s\\b=9"));
  EXPECT_THAT(query("t", false, "6", true), ElementsAre("s\\b-c", "s\\b\\x"));

  ASSERT_EQ(write({{"t\\s", "now a value"}}), CFGDB_Conn::OK);
  EXPECT_THAT(rows(), ElementsAre("s=now a value"));
  ASSERT_EQ(write({{"t\\s", ""}, {"t\\s\\k", "1"}}), CFGDB_Conn::OK);
  EXPECT_THAT(rows(), ElementsAre("s", "s\\k=1"));

  const int before = number();
  EXPECT_EQ(write({}), CFGDB_Conn::DB_ERROR);
  EXPECT_EQ(write({{"t\\s", ""}, {"u\\x", "1"}}), CFGDB_Conn::DB_ERROR);
  EXPECT_EQ(write({{"t\\s", ""}, {"t\\s\\a\\x", "1"}}), CFGDB_Conn::DB_ERROR);
  EXPECT_EQ(write({{"t\\s", ""}, {"t\\s\\a", "1"}, {"t\\s\\a\\x", "1"}}),
            CFGDB_Conn::PARENT_IS_VALUE);
  EXPECT_EQ(write({{"t\\s", ""}, {"t\\s\\a", "1"}, {"t\\s\\a", "2"}}), CFGDB_Conn::DB_ERROR);
  EXPECT_EQ(number(), before);
  EXPECT_THAT(rows(), ElementsAre("s", "s\\k=1"));
}

TEST_P(Database, ForgetsOldDeletions) {
  ASSERT_EQ(write({{"t", ""}, {"t\\a", "1"}, {"t\\b", "1"}}), CFGDB_Conn::OK);
  ASSERT_EQ(m_conn->RemoveLeafLine("t\\a", 1), CFGDB_Conn::OK);
  EXPECT_EQ(m_conn->PurgeDeletedEntries(1), 0);
  EXPECT_STREQ(m_conn->GetMinSeqNumberOfDeletedEntry().data(), "1");
  EXPECT_EQ(m_conn->PurgeDeletedEntries(-1), 1);  // older than tomorrow
  EXPECT_STREQ(m_conn->GetMinSeqNumberOfDeletedEntry().data(), "5");
  EXPECT_THAT(query("t", false, "0", true, true), IsEmpty());
  EXPECT_EQ(number(), 4);
  ASSERT_EQ(m_conn->RemoveLeafLine("t\\b", 1), CFGDB_Conn::OK);
  EXPECT_THAT(query("t", false, "99", true, true), ElementsAre("b"));
  EXPECT_STREQ(m_conn->GetMinSeqNumberOfDeletedEntry().data(), "5");
}

TEST_P(Database, AnswersEmptyWithoutAConnection) {
  m_conn->disconnect();
  EXPECT_FALSE(m_conn->is_connected());
  EXPECT_EQ(set("t\\a", "1"), CFGDB_Conn::DB_ERROR);
  EXPECT_EQ(write({{"t", ""}}), CFGDB_Conn::DB_ERROR);
  EXPECT_EQ(m_conn->Commit(0), 0);
  EXPECT_THAT(query("t"), ElementsAre("failed"));
  EXPECT_EQ(m_conn->GetSubTreeValues("t"), nullptr);
  EXPECT_TRUE(m_conn->FillPath("t\\%").empty());
  EXPECT_THAT(m_log.last(), HasSubstr("not connected to a database"));
}
