#include <CFG/CFG_Repository.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <cstdlib>
#include <thread>

#include <CFG/CFG_Connector.h>
#include <CFG/CFG_RepositoryTransaction.h>
#include <CFG/detail/path_validation.h>
#include <logging/Log_Capture.h>
#include <support/forked.h>
#include <support/temporary_folder.h>
#include "../scripted_service.h"
#include "../test_trees.h"

namespace {

using namespace std::string_literals;

constexpr char activation[] = "halvoria\\system\\applications\\events\\activation\\cfgperformance";

class Remote : public testing::Test {
 protected:
  Remote() {
    m_repository.SetProperty("HALVORIA_REMOTE_SERVER_NAME", "127.0.0.1");
    m_repository.SetProperty("HALVORIA_REMOTE_SERVER_PORT",
                             RWCString(std::to_string(m_service.port())));
    m_repository.Connect();
    m_repository.CFGPerformanceEnabled();
    m_service.take_requests();
  }

  // The commands sent by this thread, behind each other, since requests were last taken.
  std::string commands() {
    m_repository.GetMaxSeqNumber();  // by then the service has what needs no answer
    std::string names = m_service.take_commands();
    names.resize(names.size() - std::size("CFG_GET_MAX_SEQ;") + 1);
    return names;
  }

  ScriptedService m_service;
  CFG_Repository m_repository;
};

// What a call sends, behind the header.
struct Forwarded {
  std::function<void(CFG_Repository&)> call;
  const char* request;
  const char* entry;  // line of the log
};

TEST_F(Remote, ForwardsEachOperationWithItsPropertiesInPlace) {
  const char* rules[] = {"<n>\\R1", "r2"};
  RWCString seq = "7";
  const auto get = [](auto* result) { delete result; };
  const Forwarded cases[] = {
      {[](auto& r) { r.GetValue("A\\<n>"); }, "CFG_GET_VAL 4=a\\node",
       "GetValue(): _path = a\\node\n"},
      {[](auto& r) { r.GetValue("A\\<n>", 2); }, "CFG_GET_VAL_INX 4=a\\node 15=2",
       "GetValue(): _path = a\\node , index = 2\n"},
      {[](auto& r) { r.GetValueName("A\\<n>", 2); }, "CFG_GET_VAL_NAME 4=a\\node 15=2",
       "GetValueName(): _path = a\\node , index = 2\n"},
      {[](auto& r) { r.GetValueNum("A\\<n>"); }, "CFG_GET_VAL_NUM 4=a\\node",
       "GetValueNum(): _path = a\\node\n"},
      {[](auto& r) { r.GetSubTreeNum("A\\<n>"); }, "CFG_GET_SUB_NUM 4=a\\node",
       "GetSubTreeNum(): _path = a\\node\n"},
      {[](auto& r) { r.GetSubTreeEntriesCount("A\\<n>"); }, "CFG_GET_SUB_ENTRIES_COUNT 4=a\\node",
       "GetSubTreeEntriesCount(): _path = a\\node\n"},
      {[](auto& r) { r.IsSubTreeExist("A\\<n>"); }, "CFG_GET_SUB_EXISTS 4=a\\node",
       "IsSubTreeExist(): _path = a\\node\n"},
      {[](auto& r) { r.GetSubTreePaths("A\\<n>"); }, "CFG_GET_SUB_PATHS 4=a\\node",
       "GetSubTreePaths(): _path = a\\node\n"},
      {[](auto& r) { r.GetSubTreeValues("A\\<n>"); }, "CFG_GET_SUB_TREE_VALUES 4=a\\node",
       "_path = <a\\node>\n"},
      {[](auto& r) { r.FillPath("A\\<n>\\%"); }, "CFG_FILL_PATH 4=a\\node\\%",
       "FillPath(): _path = a\\node\\%\n"},
      {[](auto& r) { r.FillPath("A\\<n>", "N\\<n>", "V"); },
       "CFG_FILL_PATH_NAME_VALUE 4=a\\node 13=N\\<n> 11=V",
       "FillPath(): _path = a\\node , value_name = N\\<n> , value_data = V\n"},
      {[&](auto& r) { get(r.GetSubTree("A\\<n>")); }, "CFG_GET_SUB_SEQ 4=a\\node 5= 6=0",
       "GetSubTree(): _path = a\\node\n"},
      {[&](auto& r) { get(r.GetSubTreeOnlyWithValuesLong("A\\<n>")); },
       "CFG_GET_SUB_SEQ 4=a\\node 5= 6=0", "GetSubTree(): _path = a\\node\n"},
      {[&](auto& r) { get(r.GetSubTreeOnlyWithValues("A\\<n>")); },
       "CFG_GET_SUB_SEQ 4=a\\node 5= 6=0", "GetSubTree(): _path = a\\node\n"},
      {[&](auto& r) { get(r.GetSubTree("A\\<n>", 3)); }, "CFG_GET_SUB_INX 4=a\\node 15=3",
       "Start GetSubTree(): _path = a\\node , index = 3 \n"},
      {[&](auto& r) { get(r.GetSubTree("N\\<n>", rules, 0, 2)); },
       "CFG_GET_SUB_MERGE 4=n\\node 12=2 4=node\\r1 4=r2 14=0",
       "GetSubTreeOnlyWithValuesLong(): search_rule = node\\r1\n"},
      {[&](auto& r) { get(r.GetSubTree("N", rules, 1, 2)); },
       "CFG_GET_SUB_MERGE 4=n 12=2 4=node\\r1 4=r2 14=1",
       "GetSubTreeOnlyWithValuesLong(): name = n\n"},
      {[&](auto& r) { get(r.GetSubTree("N", rules, 1)); },
       "CFG_GET_SUB_MERGE 4=n 12=1 4=node\\r1 14=0", "GetSubTreeOnlyWithValuesLong(): name = n\n"},
      {[&](auto& r) { get(r.GetSubTreeOnlyWithValues("N", rules, 0, 2)); },
       "CFG_GET_SUB_TREE_ONLY_WITH_VALUES 4=n 12=2 4=node\\r1 4=r2 14=0",
       "GetSubTreeOnlyWithValuesLong(): _path = n\n"},
      {[&](auto& r) { get(r.GetSubTreeWithLongValues("A\\<n>")); },
       "CFG_GET_SUB_LONG_VALUE 4=a\\node", "GetSubTreeWithLongValues(): _path = a\\node\n"},
      {[&](auto& r) { get(r.GetSubTreeWithPrecentAndWildcard("A\\%")); },
       "CFG_GET_SUB_LONG_VALUE_WILDCARD 4=a\\%",
       "GetSubTreeWithPrecentAndWildcard(): _path = a\\%\n"},
      {[&](auto& r) { get(r.GetSubTreeOnlyWithValuesWithPrecentAndWildcard("A\\%")); },
       "CFG_GET_SUB_WITH_VALUE_PRECENT_WILDCARD 4=a\\%",
       "GetSubTreeOnlyWithValuesWithPrecentAndWildcard(): _path = a\\%\n"},
      {[&](auto& r) { get(r.GetSubTreeBySeqNumber("A\\<n>", seq)); },
       "CFG_GET_SUB_SEQ 4=a\\node 5=7 6=0",
       "GetSubTreeBySeqNumber(): _path = a\\node seq_number = 7\n"},
      {[&](auto& r) { get(r.GetSubTreeOnlyDeletedNodes("A\\<n>", seq, true)); },
       "CFG_GET_SUB_DEL_SEQ 4=a\\node 5=7 6=0",
       "GetSubTreeOnlyDeletedNodes(): _path = a\\node seq_number = 7\n"},
      {[&](auto& r) { get(r.GetValue("Name", rules, 2)); },
       "CFG_GET_VALUE_BY_SEARCH_RULE 13=Name 12=2 4=node\\r1 4=r2",
       "GetValue(): search_rule = node\\r1\n"},
      {[](auto& r) { r.SetValue("A\\<n>", "V"); }, "CFG_SET_VALUE 4=a\\node 11=V",
       "CFG_Repository::SetValue: _value_path = a\\node , _value_data = V\n"},
      {[](auto& r) { r.DeleteValue("A\\<n>"); }, "CFG_DEL_VAL 4=a\\node",
       "DeleteValue(): _path = a\\node\n"},
      {[](auto& r) { r.DeleteSubTree("A\\<n>"); }, "CFG_DEL_SUB 4=a\\node",
       "DeleteSubTree(): _path = a\\node\n"},
      {[](auto& r) {
         CFG_SubTree tree("k");
         r.AddOrReplaceSubTree(&tree, "A\\<n>");
       },
       "CFG_WRITE_SUB 7=(17 bytes) 4=a\\node", "WriteSubTree(): sub_tree , path = a\\node\n"},
      {[](auto& r) { r.GetNodeName("AE"); }, "CFG_GET_NODE_NAME 4=AE", "GetNodeName(): ae = AE\n"},
      {[](auto& r) { r.GetNodeNameByIp("IP"); }, "CFG_GET_NODE_NAME_BY_IP 4=IP",
       "GetNodeNameByIp(): ip = IP\n"},
      {[](auto& r) { r.GetDbServerDateTime(); }, "CFG_GET_DB_DATETIME",
       "Start GetDbServerDateTime()\n"},
      {[](auto& r) { r.GetMaxSeqNumber("A"); }, "CFG_GET_MAX_SEQ_PATH 4=A",
       "Start GetMaxSeqNumber\n"},
      {[](auto& r) { r.GetMaxSeqNumber(); }, "CFG_GET_MAX_SEQ", "Start GetMaxSeqNumber\n"},
      {[](auto& r) { r.GetMinSeqNumberOfDeletedEntry(); }, "CFG_GET_DEL_MIN_SEQ",
       "Start GetMinSeqNumberOfDeletedEntry\n"},
      {[](auto& r) { r.GetServerSyncID(); }, "GET_SERVER_SYNC_ID", "Start GetServerSyncID\n"},
      {[](auto& r) { r.Rollback(); }, "CFG_ROLLBACK", "Rollback() = undo changes\n"},
  };
  m_repository.SetProperty("n", "Node");
  m_repository.SetProperty("CurrUser", "u");
  for (const Forwarded& c : cases) {
    Log_Capture capture;
    c.call(m_repository);
    const auto requests = m_service.take_requests();
    ASSERT_EQ(requests.size(), 1u) << c.request;
    std::string expected = c.request;
    expected.insert(std::min(expected.find(' '), expected.size()), " 2=u 3=CFG");
    EXPECT_EQ(requests[0], expected);
    EXPECT_TRUE(capture.has(c.entry)) << c.entry << capture.text();
  }
}

TEST_F(Remote, ReadsSubtreesOfEitherForm) {
  CFG_SubTree tree = tree_of("k", {{"v", "1"}, {"s\\w", "2"}, {"empty", ""}});
  int length = 0;
  const std::unique_ptr<char[]> array(CFG_SubTree::SerializeSubTree(&tree, length));
  m_service.on("CFG_GET_SUB_LONG_VALUE",
               answer_of({{7, std::string(array.get(), static_cast<size_t>(length))}}));
  m_service.on("CFG_GET_SUB_SEQ",
               answer_of({{4, "a\\k"s}, {8, "v\0001\0s\\w\0002\0empty\0\0"s}, {8, ""s}}));
  const SubTreePtr from_bytes(m_repository.GetSubTreeWithLongValues("a\\k"));
  EXPECT_EQ(shown(from_bytes), "k{v=1 s{w=2} empty{}}");
  const SubTreePtr streamed(m_repository.GetSubTree("a\\k"));
  EXPECT_EQ(shown(streamed), "k{v=1 s{w=2} empty{}}");
  EXPECT_EQ(streamed->GetPath(), "a\\k");
  EXPECT_EQ(from_bytes->GetPath(), "a\\k");
  m_service.on("CFG_GET_SUB_INX",
               answer_of({{7, std::string(array.get(), static_cast<size_t>(length))}}));
  const SubTreePtr by_position(m_repository.GetSubTree("a\\b", 0));
  EXPECT_EQ(by_position->GetPath(), "a\\b\\k");
  EXPECT_EQ(SubTreePtr(by_position->GetSubTree("s"))->GetPath(), "a\\b\\k\\s");
  EXPECT_EQ(shown(SubTreePtr(m_repository.GetSubTreeOnlyWithValuesLong("a\\k"))), "k{v=1 s{w=2}}");
  const std::unique_ptr<String_Arr> found(m_repository.Search("w", "a\\k"));
  ASSERT_TRUE(found);
  ASSERT_EQ(found->GetArrLen(), 1);
  EXPECT_STREQ(found->GetStr(0), "a\\k\\s\\w");
}

// The old tree goes when the new one is there, and both go or come together.
TEST_F(Remote, RenamesInOneUpdate) {
  m_service.on("CFG_GET_SUB_SEQ", answer_of({{4, "a\\k"s}, {8, "v\0001\0"s}, {8, ""s}}));
  m_service.on("CFG_GET_SUB_EXISTS", answer_of({{10, 0L}}));
  m_service.on("CFG_GET_VAL", answer_of({{11, ""s}}));
  const std::string looks = "CFG_GET_SUB_SEQ;CFG_GET_SUB_EXISTS;CFG_GET_VAL;";
  const std::string begin = "CFG_ENABLE_EXTENDED_TIMEOUT;CFG_LOCK;";
  const std::string end = "CFG_UNLOCK;CFG_DISABLE_EXTENDED_TIMEOUT;";
  EXPECT_TRUE(m_repository.SetKeyName("A\\K\\", "Other"));
  EXPECT_EQ(commands(), begin + looks + "CFG_WRITE_SUB;CFG_DEL_SUB;" + end);

  EXPECT_TRUE(m_repository.Lock());
  EXPECT_TRUE(m_repository.SetKeyName("a\\k", "other"));
  EXPECT_EQ(commands(), "CFG_LOCK;" + looks + "CFG_WRITE_SUB;CFG_DEL_SUB;");
  EXPECT_TRUE(m_repository.UnLock());
  EXPECT_EQ(commands(), "CFG_UNLOCK;");

  m_service.on("CFG_DEL_SUB", answer_of({{10, 0L}}));
  EXPECT_FALSE(m_repository.SetKeyName("a\\k", "other"));
  EXPECT_EQ(commands(),
            begin + looks + "CFG_WRITE_SUB;CFG_DEL_SUB;CFG_DEL_SUB;CFG_ROLLBACK;" + end);
  m_service.on("CFG_GET_SUB_EXISTS", answer_of({{10, 1L}}));
  EXPECT_FALSE(m_repository.SetKeyName("a\\k", "other")) << "a sibling's name";
  EXPECT_EQ(commands(), begin + "CFG_GET_SUB_SEQ;CFG_GET_SUB_EXISTS;CFG_ROLLBACK;" + end);

  m_service.on("CFG_GET_SUB_EXISTS", answer_of({{10, 0L}}));
  Answer gone;
  gone.how = Answer::CLOSE;
  m_service.on("CFG_WRITE_SUB", gone);
  EXPECT_TRUE(m_repository.Lock());
  EXPECT_FALSE(m_repository.SetKeyName("a\\k", "other"));
  EXPECT_FALSE(m_repository.UnLock()) << "it went with the connection";
  EXPECT_EQ(commands(), "CFG_LOCK;" + looks + "CFG_WRITE_SUB;") << "nothing on another connection";
}

TEST_F(Remote, RefusesWithoutARequest) {
  cfg::set_path_validation(true);
  CFG_SubTree tree("k");
  const char* rules[] = {"r"};
  const struct {
    std::function<bool(CFG_Repository&)> call;
    const char* message;
  } cases[] = {
      {[](auto& r) { return r.SetValue("a \\b", "v") != 0; }, "CFG_Repository::SetValue"},
      {[](auto& r) { return r.DeleteValue("a \\b") != 0; }, "CFG_SubTree::DeleteValue"},
      {[](auto& r) { return r.DeleteSubTree("a \\b") != 0; }, "CFG_SubTree::DeleteSubTree"},
      {[&](auto& r) { return r.AddOrReplaceSubTree(&tree, "a \\b") != 0; },
       "CFG_SubTree::AddOrReplaceSubTree"},
      {[](auto& r) { return r.AddOrReplaceSubTree(nullptr, "a") != 0; },
       "AddOrReplaceSubTree(CFG_SubTree* sub_tree,const RWCString & path), sub_tree is NULL, return FALSE\n"},
      {[&](auto& r) { return r.GetValue("", rules, 1) != nullptr; },
       "value_name is an empty string , return NULL\n"},
      {[](auto& r) { return r.GetValue("n", nullptr, 1) != nullptr; }, "search_rule is NULL"},
      {[&](auto& r) { return r.GetSubTree("n", rules, 1, 0) != nullptr; },
       "search_num must be more then 0"},
      {[](auto& r) { return r.Search("n", "") != nullptr; },
       "path parameter is an empty string, return NULL\n"},
      {[](auto& r) { return r.SetKeyName("", "n") != 0; }, "path is empty string, return FALSE\n"},
      {[](auto& r) { return r.SetKeyName("a", "n") != 0; },
       "the root keeps its name, return FALSE\n"},
      {[](auto& r) { return r.SetKeyName("a\\b", "n\\") != 0; },
       " path <a\\b> can not be renamed to <n\\>: a name holds no backslash, return FALSE\n"},
  };
  for (const auto& c : cases) {
    Log_Capture capture;
    EXPECT_FALSE(c.call(m_repository)) << c.message;
    EXPECT_TRUE(capture.has(c.message)) << capture.text();
  }
  EXPECT_EQ(m_service.take_commands(), "");
}

// --- connections -----------------------------------------------------------------------------

TEST_F(Remote, ThreadsThatAskAtOnceGetAConnectionEachAndLeaveBothInThePool) {
  std::barrier both_have_one(2);
  const auto ask = [&] {
    CFG_Connector* const connector = m_repository.GetConnector();
    both_have_one.arrive_and_wait();
    connector->GetMaxSeqNumber();
    m_repository.FreeConnector(connector);
  };
  std::thread other(ask);
  ask();
  other.join();
  EXPECT_EQ(m_service.sessions(), 2);
  for (int i = 0; i < 4; ++i) m_repository.GetMaxSeqNumber();
  auto sessions = m_service.sessions_asked();
  std::sort(sessions.begin(), sessions.end());
  EXPECT_EQ(std::unique(sessions.begin(), sessions.end()) - sessions.begin(), 2)
      << "both are used again";
  EXPECT_TRUE(m_repository.DisConnect());
  m_repository.GetMaxSeqNumber();
  EXPECT_GT(m_service.sessions_asked().back(), 2u);
}

TEST_F(Remote, KeepsSomeConnectionsThatNobodyUsesAndGivesOutTheFreshest) {
  constexpr size_t most = 64;
  std::vector<CFG_Connector*> connectors;
  for (size_t i = 0; i < most + 10; ++i) {
    connectors.push_back(m_repository.GetConnector());
    connectors.back()->GetMaxSeqNumber();
  }
  for (CFG_Connector* connector : connectors) m_repository.FreeConnector(connector);
  CFG_Connector* const again = m_repository.GetConnector();
  EXPECT_EQ(again, connectors.back());
  m_repository.FreeConnector(again);
  while (m_service.sessions() > static_cast<int>(most)) std::this_thread::yield();
  EXPECT_EQ(m_service.sessions(), static_cast<int>(most));
}

TEST_F(Remote, AThreadThatEndsInATransactionLeavesItToNobody) {
  Log_Capture log;
  std::thread([this] {
    EXPECT_TRUE(m_repository.StartTransactionUpdate());
    m_repository.SetValue("p", "v");
  }).join();
  EXPECT_TRUE(log.has("a thread ended within a transaction"));
  // The next thread mostly gets the number of the one before.
  std::thread([this] {
    EXPECT_FALSE(m_repository.IsInTransaction());
    EXPECT_TRUE(m_repository.StartTransactionUpdate());
    EXPECT_TRUE(m_repository.EndTransactionUpdate(false));
  }).join();
  EXPECT_EQ(commands(),
            "CFG_ENABLE_EXTENDED_TIMEOUT;CFG_LOCK;CFG_SET_VALUE;"
            "CFG_ENABLE_EXTENDED_TIMEOUT;CFG_LOCK;CFG_UNLOCK;CFG_DISABLE_EXTENDED_TIMEOUT;");
  // A thread may outlive the repository that it has a transaction in.
  std::thread late;
  std::barrier steps(2);
  {
    CFG_Repository short_lived;
    late = std::thread([&] {
      EXPECT_TRUE(short_lived.StartTransaction());
      steps.arrive_and_wait();
      steps.arrive_and_wait();
    });
    steps.arrive_and_wait();
  }
  steps.arrive_and_wait();
  late.join();
}

TEST_F(Remote, ATransactionKeepsItsConnectionAndNestsByCount) {
  EXPECT_EQ(m_repository.StartTransaction(), 1);
  EXPECT_EQ(m_repository.StartTransaction(), 0);
  m_repository.GetMaxSeqNumber();
  std::thread([this] {
    EXPECT_FALSE(m_repository.IsInTransaction());
    m_repository.GetMaxSeqNumber();
  }).join();
  EXPECT_EQ(m_repository.EndTransaction(), 0) << "an inner end";
  EXPECT_TRUE(m_repository.IsInTransaction());
  m_repository.GetMaxSeqNumber();
  const auto sessions = m_service.sessions_asked();
  EXPECT_EQ(sessions[0], sessions[2]);
  EXPECT_NE(sessions[0], sessions[1]);
  EXPECT_EQ(m_repository.EndTransaction(), 1);
  EXPECT_FALSE(m_repository.IsInTransaction());
  EXPECT_EQ(m_repository.EndTransaction(), 0) << "none was started";
}

TEST_F(Remote, AnUpdateIsATransactionWithTheStoreLocked) {
  for (const bool failed : {false, true}) {
    EXPECT_EQ(m_repository.StartTransactionUpdateBaseRep(), 1);
    EXPECT_EQ(m_repository.StartTransactionUpdate(), 0) << "this thread is in one";
    m_repository.SetValue("p", "v");
    EXPECT_EQ(m_repository.EndTransactionUpdateBaseRep(failed), 1);
    EXPECT_FALSE(m_repository.IsInTransaction());
    EXPECT_EQ(m_service.sessions(), 1);
    EXPECT_EQ(commands(), "CFG_ENABLE_EXTENDED_TIMEOUT;CFG_LOCK;CFG_SET_VALUE;"s +
                              (failed ? "CFG_ROLLBACK;" : "") +
                              "CFG_UNLOCK;CFG_DISABLE_EXTENDED_TIMEOUT;");
  }
}

TEST_F(Remote, AnUpdateThatCannotBeginOrEndLeavesTheThreadFree) {
  const struct {
    const char* refused;
    bool failed;
    const char* commands;
  } cases[] = {
      {"CFG_LOCK", false, "CFG_ENABLE_EXTENDED_TIMEOUT;CFG_LOCK;"},
      {"CFG_UNLOCK", false, "CFG_ENABLE_EXTENDED_TIMEOUT;CFG_LOCK;CFG_UNLOCK;"},
      {"CFG_ROLLBACK", true, "CFG_ENABLE_EXTENDED_TIMEOUT;CFG_LOCK;CFG_ROLLBACK;"},
  };
  for (const auto& c : cases) {
    for (const auto how : {Answer::FORM, Answer::REFUSE, Answer::CLOSE}) {
      Answer answer = answer_of({{10, 0L}});
      answer.how = how;
      m_service.on(c.refused, answer);
      const bool is_done =
          m_repository.StartTransactionUpdate() && m_repository.EndTransactionUpdate(c.failed);
      EXPECT_FALSE(is_done);
      EXPECT_FALSE(m_repository.IsInTransaction());
      EXPECT_EQ(commands(), c.commands);
      m_service.on(c.refused, answer_of({{10, 1L}}));
      EXPECT_TRUE(m_repository.StartTransactionUpdate());
      EXPECT_TRUE(m_repository.EndTransactionUpdate(false));
      commands();
    }
  }
}

// The message that allows it more time has no answer: what follows it finds out.
TEST_F(Remote, AnUpdateDoesNotBeginWhereNothingAnswers) {
  m_service.on("CFG_LOCK", {{{}}, Answer::NOTHING});
  CFG_Repository repository;
  repository.SetProperty("HALVORIA_CONNECTION_PROPERTIES", "answer_timeout=0.1");
  Log_Capture log;
  EXPECT_FALSE(repository.StartTransactionUpdate());
  EXPECT_TRUE(log.has("no answer within 100 ms")) << log.text();
  EXPECT_FALSE(repository.IsInTransaction());
  repository.SetProperty("HALVORIA_CONNECTION_PROPERTIES", "");

  ScriptedService lively;
  CFG_Connector connector;
  ASSERT_EQ(connector.InitConn("127.0.0.1", lively.port(), "", "test", 1, 1), 1);
  EXPECT_TRUE(connector.EnableExtendedTimeout() && connector.Lock());
  EXPECT_TRUE(connector.IsPatient());
}

TEST_F(Remote, ABrokenConnectionEndsATransactionButNotTheNextRequest) {
  m_service.on("CFG_SET_VALUE", {{{}}, Answer::CLOSE});
  {
    const CFG_RepositoryTransaction transaction(&m_repository);
    EXPECT_FALSE(m_repository.SetValue("p", "v"));
    EXPECT_FALSE(m_repository.DeleteValue("p")) << "not on another connection";
  }
  EXPECT_TRUE(m_repository.DeleteValue("p"));
}

// --- processes -----------------------------------------------------------------------------------

TEST_F(Remote, AChildHasConnectionsOfItsOwnAndNoTransaction) {
  m_service.on("CFG_GET_VAL", answer_of({{9, "text"s}}));
  EXPECT_EQ(m_repository.GetValue("p"), "text");  // leaves a connection that nobody uses
  std::thread([&] { m_repository.GetMaxSeqNumber(); }).join();
  EXPECT_TRUE(m_repository.StartTransaction());
  EXPECT_EQ(m_repository.GetValue("p"), "text");
  std::atomic<bool> is_over{false};
  std::vector<std::thread> busy;
  for (int i = 0; i < 3; ++i) {
    busy.emplace_back([&] {
      while (!is_over) EXPECT_EQ(m_repository.GetValue("q"), "text");
    });
  }
  for (int i = 0; i < 10; ++i) {
    EXPECT_TRUE(holds_in_child([&] {
      return !m_repository.IsInTransaction() && m_repository.GetValue("p") == "text" &&
             m_repository.StartTransactionUpdate() && m_repository.SetValue("p", "v") &&
             m_repository.EndTransactionUpdate(false) && m_repository.DisConnect();
    }));
    EXPECT_TRUE(m_repository.IsInTransaction());
    EXPECT_EQ(m_repository.GetValue("p"), "text") << "on a connection that goes on";
  }
  is_over = true;
  for (std::thread& thread : busy) thread.join();
  EXPECT_EQ(m_repository.EndTransaction(), 1);
}

TEST(RemoteForks, InTheMiddleOfFirstUsesLeaveTheChildUsable) {
  ScriptedService service;
  service.on("CFG_GET_VAL", answer_of({{9, "text"s}}));
  CFG_Repository repository;
  repository.SetProperty("HALVORIA_REMOTE_SERVER_NAME", "127.0.0.1");
  repository.SetProperty("HALVORIA_REMOTE_SERVER_PORT", RWCString(std::to_string(service.port())));
  // A thread that makes the first request reads the parameters, which do not come to their end.
  const TemporaryFolder folder;
  const std::string parameters = (folder / "parameters").string();
  ASSERT_EQ(mkfifo(parameters.c_str(), 0600), 0);
  setenv("HALVORIA_CFG_FILE", parameters.c_str(), 1);
  std::atomic<bool> is_over{false};
  std::thread first([&] {
    EXPECT_EQ(repository.GetValue("p"), "text");
    is_over = true;
  });
  int end = -1;
  while (end < 0 && !is_over) end = open(parameters.c_str(), O_WRONLY | O_NONBLOCK);
  EXPECT_GE(end, 0) << "it was not the first";
  unsetenv("HALVORIA_CFG_FILE");
  // Another one is connecting.
  struct Busy : CFG_Repository {
    RecursiveThreadMutexWrapper& lock() { return m_connection_lock; }
  } busy;
  std::barrier steps(2);
  std::thread connecting([&] {
    const RecursiveThreadMutexWrapper::WriteGuard guard(busy.lock());
    steps.arrive_and_wait();
    steps.arrive_and_wait();
  });
  steps.arrive_and_wait();
  EXPECT_TRUE(holds_in_child([&] { return repository.GetValue("p") == "text"; }));
  EXPECT_TRUE(holds_in_child([&] { return busy.Connect() && busy.GetValue("p") == "text"; }));
  steps.arrive_and_wait();
  connecting.join();
  close(end);
  first.join();
}

TEST_F(Remote, AChildDoesNotKeepItsParentsConnectionsOpen) {
  m_repository.GetMaxSeqNumber();
  int gate[2];
  ASSERT_EQ(pipe(gate), 0);
  const pid_t child = fork();
  if (child == 0) {
    char byte;
    close(gate[1]);
    _exit(static_cast<int>(read(gate[0], &byte, 1)));  // until the parent lets it go
  }
  m_repository.DisConnect();
  while (m_service.sessions() > 0) std::this_thread::yield();
  close(gate[1]);
  close(gate[0]);
  int status = 1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
}

// --- where the service is ------------------------------------------------------------------------

TEST_F(Remote, TheEnvironmentNamesAnotherServiceWhenItIsComplete) {
  ScriptedService local;
  const std::string port = std::to_string(local.port());
  const struct {
    const char* variable;
    const char* value;
    int asked;  // whether the other one is asked then
  } steps[] = {
      {"HALVORIA_USE_LOCAL_SVCFG_SERVER", "127.0.0.1", 0},
      {"HALVORIA_USE_LOCAL_SVCFG_PORT", port.c_str(), 0},
      {"HALVORIA_USE_LOCAL_SVCFG", "1", 1},
  };
  for (const auto& step : steps) {
    setenv(step.variable, step.value, 1);
    CFG_Repository repository;
    repository.GetMaxSeqNumber();
    EXPECT_EQ(local.take_requests().size(), static_cast<size_t>(step.asked)) << step.variable;
  }
  unsetenv("HALVORIA_USE_LOCAL_SVCFG_PORT");
  CFG_Repository repository;
  repository.GetMaxSeqNumber();
  EXPECT_EQ(local.take_requests().size(), 0u);
}

TEST_F(Remote, ConnectionsAreSecuredWhenTheirPropertiesSaySoInLowerCase) {
  for (const auto& [properties, is_secured] :
       {std::pair("a=b connssl", true), std::pair("CONNSSL", false)}) {
    CFG_Repository repository;
    repository.SetProperty("HALVORIA_CONNECTION_PROPERTIES", properties);
    Log_Capture capture;
    repository.GetMaxSeqNumber();
    EXPECT_EQ(capture.has("CFG_GET_MAX_SEQ fails: there is no encryption (TLS) yet"), is_secured)
        << capture.text();
    EXPECT_EQ(m_service.take_requests().size(), is_secured ? 0u : 1u);
  }
}

TEST_F(Remote, TimeOutsStandInTheConnectionsProperties) {
  const struct {
    const char* properties;
    int connect, answer;  // milliseconds
    const char* message;
  } cases[] = {
      {"", 5000, 10000, ""},
      {"connect_timeout=2;answer_timeout=0.25", 2000, 250, ""},
      {"a=b, answer_timeout=30", 5000, 30000, ""},
      {"answer_timeout=soon connect_timeout=1", 1000, 10000, "<answer_timeout=soon> is no time"},
      {"answer_timeout=0", 5000, 10000, "<answer_timeout=0> is no time"},
      {"answer_timeout=1s connect_timeout=-1", 5000, 10000, "<connect_timeout=-1> is no time"},
  };
  for (const auto& c : cases) {
    CFG_Repository repository;
    repository.SetProperty("HALVORIA_CONNECTION_PROPERTIES", c.properties);
    Log_Capture log;
    const std::unique_ptr<CFG_Connector> connector(repository.GetConnector());
    EXPECT_EQ(connector->GetTimeOuts().connect.count(), c.connect) << c.properties;
    EXPECT_EQ(connector->GetTimeOuts().answer.count(), c.answer) << c.properties;
    EXPECT_TRUE(log.has(c.message)) << log.text();
  }
  m_repository.SetProperty("HALVORIA_CONNECTION_PROPERTIES", "");
}

TEST_F(Remote, AsksForTheNameOfTheServersNodeOnce) {
  for (const char* name : {"n1", ""}) {
    m_service.on("CFG_SERV_NODE_NAME", answer_of({{9, std::string(name)}}));
    CFG_Repository().GetServerNodeName();  // what is known goes with the repository
    m_service.take_requests();
    for (int i = 0; i < 2; ++i) EXPECT_EQ(m_repository.GetServerNodeName(), name);
    EXPECT_EQ(m_service.take_commands(), "CFG_SERV_NODE_NAME;");
  }
}

// --- what is said about it -------------------------------------------------------------------

TEST_F(Remote, MonitorsWhoCallsTheServer) {
  CFG_ServicesImp::SetMonitorConnActive(true);
  for (const auto& [mode, level] : {std::pair("log", 1), std::pair("stack", 2)}) {
    CFG_ServicesImp::SetMonitorConnSupport(mode);
    Log_Capture capture;
    m_repository.StartTransaction();
    m_repository.GetMaxSeqNumber();
    m_repository.EndTransaction();
    const std::string text = "calling server monitor level " + std::to_string(level) + " using ";
    EXPECT_TRUE(capture.has(text + "new connection\n"));
    EXPECT_TRUE(capture.has(text + "existing connection\n"));
    const auto lines = capture.lines();
    EXPECT_EQ(std::any_of(lines.begin(), lines.end(),
                          [](const auto& l) { return l.file.ends_with("Tmr_StackTrace"); }),
              level == 2);
  }
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  CFG_ServicesImp::SetMonitorConnSupport("exit");
  EXPECT_EXIT(m_repository.GetMaxSeqNumber(), testing::ExitedWithCode(1),
              "monitor level 3 using new");
}

TEST(RemoteEvents, AreSentWhenTheTreeSaysSoAndAskForThatOnce) {
  ScriptedService service;
  service.on("CFG_GET_VAL", answer_of({{9, "true"s}}));
  service.on("CFG_GET_SUB_SEQ", answer_of({{4, "k"s}, {8, "v\0001\0w\0002\0"s}, {8, ""s}}));
  CFG_Repository repository;
  repository.SetProperty("HALVORIA_REMOTE_SERVER_NAME", "127.0.0.1");
  repository.SetProperty("HALVORIA_REMOTE_SERVER_PORT", RWCString(std::to_string(service.port())));
  repository.SetProperty("n", "node");
  Log_Capture capture;
  repository.GetValue("A\\<n>");
  const SubTreePtr read(repository.GetSubTree("k"));
  repository.SetValue("p", "v");
  CFG_SubTree tree("k");
  repository.AddOrReplaceSubTree(&tree, "p");
  repository.DeleteValue("p");
  repository.DeleteSubTree("p");
  repository.GetValueNum("p");
  const auto requests = service.take_requests();
  EXPECT_EQ(requests[0].substr(requests[0].rfind(" 4=")), " 4="s + activation);
  EXPECT_EQ(requests.size(), 8u) << "asked for once, before the first operation";
  std::vector<std::string> events;
  for (const auto& line : capture.lines()) {
    if (line.module != 505) continue;
    const size_t number = line.text.find("\"number\"");
    const size_t time = line.text.find("\"milliseconds\"");
    events.push_back(line.text.substr(number, time - number) +
                     line.text.substr(line.text.find("\"flag\"")));
  }
  const auto event = [](int number, const char* path, const char* operation, int count) {
    return "\"number\":" + std::to_string(number) + ",\"path\":\"" + path +
           "\",\"source\":\"Remote\",\"operation\":\"" + operation +
           "\",\"flag\":false,\"count\":" + std::to_string(count) + "}\n";
  };
  const std::vector<std::string> expected = {
      event(260, "a\\\\node", "GetValue", 0), event(261, "k", "GetSubTree", 2),
      event(262, "p", "SetValue", 0),         event(263, "p", "WriteSubTree", 0),
      event(264, "p", "DeleteValue", 0),      event(265, "p", "DeleteSubTree", 0)};
  EXPECT_EQ(events, expected);
}

// --- large trees -----------------------------------------------------------------------------

TEST_F(Remote, WritesALargeTreeInOneUpdateOfItsOwnOrInTheOneThatIsOpen) {
  CFG_SubTree large("top");
  for (int i = 0; i < 40; ++i) {
    const RWCString name(std::to_string(i));
    large.SetValue((i % 2 ? "odd\\" : "even\\") + name, std::string(500000, 'x'));
  }
  const std::string writes = "CFG_WRITE_SUB;CFG_WRITE_SUB;";
  EXPECT_TRUE(m_repository.AddOrReplaceSubTree(&large, "p"));
  EXPECT_EQ(commands(), "CFG_ENABLE_EXTENDED_TIMEOUT;CFG_LOCK;" + writes +
                            "CFG_UNLOCK;CFG_DISABLE_EXTENDED_TIMEOUT;");
  {
    const CFG_RepositoryTransaction transaction(&m_repository);
    EXPECT_TRUE(m_repository.AddOrReplaceSubTree(&large, "p"));
  }
  EXPECT_EQ(commands(), "CFG_LOCK;" + writes + "CFG_UNLOCK;");
  EXPECT_TRUE(m_repository.StartTransactionUpdate());
  EXPECT_TRUE(m_repository.AddOrReplaceSubTree(&large, "p"));
  EXPECT_EQ(commands(), "CFG_ENABLE_EXTENDED_TIMEOUT;CFG_LOCK;" + writes);
  EXPECT_TRUE(m_repository.EndTransactionUpdate(false));
  commands();

  m_service.on("CFG_WRITE_SUB", answer_of({{10, 0L}}));
  EXPECT_FALSE(m_repository.AddOrReplaceSubTree(&large, "p"));
  EXPECT_EQ(commands(),
            "CFG_ENABLE_EXTENDED_TIMEOUT;CFG_LOCK;CFG_WRITE_SUB;CFG_ROLLBACK;CFG_UNLOCK;"
            "CFG_DISABLE_EXTENDED_TIMEOUT;");
}

}  // namespace
