#include <CFG/CFG_Connector.h>

#include <gtest/gtest.h>

#include <CFG/CFG_RepositoryServices.h>
#include <connection/Conn_TokenManagerHook.h>
#include <logging/Log_Capture.h>
#include <tree/Tree_Node.h>
#include "../scripted_service.h"
#include "../test_trees.h"

namespace {

using namespace std::string_literals;
using cfg::protocol::Command;
using cfg::protocol::Reply;

class Connector : public testing::Test {
 protected:
  Connector() {
    m_connector.InitConn("127.0.0.1", m_service.port(), "", "cfg", 1, 1);
    m_connector.SetUser("ann");
    m_connector.SetApplication("viewer");
  }

  ScriptedService m_service;
  CFG_Connector m_connector;
};

// --- results as text ---------------------------------------------------------------------------

std::string shown(const RWCString& text) { return "'" + text.str() + "'"; }
std::string shown(int number) { return std::to_string(number); }
std::string shown(const Tree_NodePtr& tree) {
  return tree ? tree->GetPath().str() + ": " + shown(*tree) : "NULL";
}
std::string shown(String_Arr* array) {
  const std::unique_ptr<String_Arr> owned(array);
  if (!array) return "NULL";
  std::string text = std::to_string(array->GetArrLen());
  for (int i = 0; i < array->GetArrLen(); ++i) text += "," + std::string(array->GetStr(i));
  return text;
}
std::string shown(Tree_PathAndValueArray* array) {
  const std::unique_ptr<Tree_PathAndValueArray> owned(array);
  if (!array) return "NULL";
  std::string text = std::to_string(array->m_count);
  for (int i = 0; i < array->m_count; ++i) {
    text += ","s + array->GetPV(i)->GetPath() + "=" + array->GetPV(i)->GetValue();
  }
  return text;
}
std::string shown_bytes(char* bytes, long length) {
  const std::unique_ptr<char[]> owned(bytes);
  return bytes ? std::string(bytes, static_cast<size_t>(length))
               : "NULL" + (length ? std::to_string(length) : "");
}

const char* rules[] = {"r1", "r2"};

struct Operation {
  Command command;
  const char* arguments;  // behind the header
  std::function<std::string(CFG_Connector&)> call;
  Frame good;
  std::string expected;
};

#define SHOWN(call) [](CFG_Connector& c) { return shown(c.call); }
#define BYTES(call)                    \
  [](CFG_Connector& c) {               \
    long length = 7;                   \
    char* array = c.call;              \
    return shown_bytes(array, length); \
  }

std::string streamed(CFG_Connector& c, bool is_deleted) {
  RWCString seq = "17", path = "before";
  return shown(is_deleted ? c.GetSubTreeOnlyDeletedNodes("p", seq, path, true)
                          : c.GetSubTreeBySeqNumber("p", seq, path, false)) +
         " at " + path.str();
}

std::string found_by_rule(CFG_Connector& c) {
  char *value = nullptr, *path = nullptr;
  const int result = c.GetValue("name", rules, 2, &value, &path);
  const std::unique_ptr<char[]> owned_value(value), owned_path(path);
  if (result != 0 && (value || path)) return "not freed";
  return std::to_string(result) + (result == 0 ? " "s + value + " " + path : "");
}

std::string written(CFG_Connector& c) {
  Tree_NodePtr tree = tree_of("k", {{"v", "1"}}).GetData();
  return shown(c.WriteSubTree(tree, "p"));
}

const Frame code = {{10, 5L}};
const Frame text = {{9, "text"s}};
const Frame number = {{16, 12L}};
const Frame bytes = {{7, "a\0b"s}};
const Frame list = {{12, 2L}, {9, "one"s}, {9, ""s}};
const Frame tree = {{4, "top\\k"s}, {8, "v\0001\0"s}, {8, ""s}};

const Operation operations[] = {
    {Command::LOCK, "", SHOWN(Lock()), code, "5"},
    {Command::UNLOCK, "", SHOWN(UnLock()), code, "5"},
    {Command::ROLLBACK, "", SHOWN(Rollback()), code, "5"},
    {Command::ENABLE_EXTENDED_TIMEOUT, "", SHOWN(EnableExtendedTimeout()), {}, "1"},
    {Command::DISABLE_EXTENDED_TIMEOUT, "", SHOWN(DisableExtendedTimeout()), {}, "1"},
    {Command::SET_VALUE, " 4=p 11=v", SHOWN(SetValue("p", "v")), code, "5"},
    {Command::DEL_VAL, " 4=p", SHOWN(DeleteValue("p")), code, "5"},
    {Command::DEL_SUB, " 4=p", SHOWN(DeleteSubTree("p")), code, "5"},
    {Command::WRITE_SUB, " 7=(39 bytes) 4=p", written, code, "5"},
    {Command::GET_VAL, " 4=p", SHOWN(GetValue("p")), text, "'text'"},
    {Command::GET_VAL_INX, " 4=p 15=3", SHOWN(GetValue("p", 3)), text, "'text'"},
    {Command::GET_VAL_NAME, " 4=p 15=-1", SHOWN(GetValueName("p", -1)), text, "'text'"},
    {Command::GET_VAL_NUM, " 4=p", SHOWN(GetValueNum("p")), number, "12"},
    {Command::GET_SUB_NUM, " 4=p", SHOWN(GetSubTreeNum("p")), number, "12"},
    {Command::GET_SUB_ENTRIES_COUNT, " 4=p", SHOWN(GetSubTreeEntriesCount("p")), number, "12"},
    {Command::GET_SUB_EXISTS, " 4=p", SHOWN(IsSubTreeExist("p")), code, "5"},
    {Command::GET_SUB_PATHS, " 4=p", SHOWN(GetSubTreePaths("p")), list, "2,one,"},
    {Command::GET_SUB_TREE_VALUES,
     " 4=p",
     SHOWN(GetSubTreeValues("p")),
     {{12, 2L}, {9, "a"s}, {9, "1"s}, {9, "b"s}, {9, "2"s}},
     "2,a=1,b=2"},
    {Command::GET_SUB_INX, " 4=p 15=70000", BYTES(GetSubTree("p", 70000, length)), bytes, "a\0b"s},
    {Command::GET_SUB_MERGE, " 4=n 12=2 4=r1 4=r2 14=0",
     BYTES(GetSubTree("n", rules, 2, 0, length)), bytes, "a\0b"s},
    {Command::GET_SUB_TREE_ONLY_WITH_VALUES, " 4=n 12=2 4=r1 4=r2 14=1",
     BYTES(GetSubTreeOnlyWithValues("n", rules, 2, 1, length)), bytes, "a\0b"s},
    {Command::GET_SUB_LONG_VALUE, " 4=p", BYTES(GetSubTreeWithLongValues("p", length)), bytes,
     "a\0b"s},
    {Command::GET_SUB_LONG_VALUE_WILDCARD, " 4=p",
     BYTES(GetSubTreeWithPrecentAndWildcard("p", length)), bytes, "a\0b"s},
    {Command::GET_SUB_WITH_VALUE_PRECENT_WILDCARD, " 4=p",
     BYTES(GetSubTreeOnlyWithValuesWithPrecentAndWildcard("p", length)), bytes, "a\0b"s},
    {Command::GET_SUB_SEQ, " 4=p 5=17 6=0", [](CFG_Connector& c) { return streamed(c, false); },
     tree, "top\\k: k{v=1} at top\\k"},
    {Command::GET_SUB_DEL_SEQ, " 4=p 5=17 6=1", [](CFG_Connector& c) { return streamed(c, true); },
     tree, "top\\k: k{v=1} at top\\k"},
    {Command::GET_VALUE_BY_SEARCH_RULE,
     " 13=name 12=2 4=r1 4=r2",
     found_by_rule,
     {{10, 1L}, {11, "v"s}, {4, "r2"s}},
     "0 v r2"},
    {Command::FILL_PATH, " 4=p", SHOWN(FillPath("p")), list, "2,one,"},
    {Command::FILL_PATH_NAME_VALUE, " 4=p 13=n 11=v", SHOWN(FillPath("p", "n", "v")), text,
     "'text'"},
    {Command::GET_NODE_NAME, " 4=ae", SHOWN(GetNodeName("ae")), text, "'text'"},
    {Command::GET_NODE_NAME_BY_IP, " 4=ip", SHOWN(GetNodeNameByIp("ip")), text, "'text'"},
    {Command::SERV_NODE_NAME, "", SHOWN(GetServerNodeName()), text, "'text'"},
    {Command::GET_MAX_SEQ, "", SHOWN(GetMaxSeqNumber()), text, "'text'"},
    {Command::GET_MAX_SEQ_PATH, " 4=p", SHOWN(GetMaxSeqNumber("p")), text, "'text'"},
    {Command::GET_DEL_MIN_SEQ, "", SHOWN(GetMinSeqNumberOfDeletedEntry()), text, "'text'"},
    {Command::GET_DB_DATETIME, "", SHOWN(GetDbServerDateTime()), text, "'text'"},
    {Command::GET_SERVER_SYNC_ID, "", SHOWN(GetServerSyncID()), text, "'text'"},
};

TEST_F(Connector, SendsEachCommandWithItsFieldsInOrderAndReadsItsAnswer) {
  ASSERT_EQ(std::size(operations), static_cast<size_t>(cfg::protocol::COMMAND_COUNT));
  for (const Operation& operation : operations) {
    const auto& row = cfg::protocol::row_of(operation.command);
    m_service.on(row.name, answer_of(operation.good));
    const std::string result = operation.call(m_connector);
    EXPECT_EQ(result, operation.expected) << row.name;
    m_connector.GetMaxSeqNumber();  // behind what is sent one way
    const auto requests = m_service.take_requests();
    ASSERT_EQ(requests.size(), 2u) << row.name;
    EXPECT_EQ(requests[0], row.name + " 2=ann 3=viewer"s + operation.arguments);
  }
  EXPECT_EQ(m_service.sessions(), 1) << "one connection for all of it";
}

TEST_F(Connector, GivesTheFailureValueForEveryAnswerThatIsNotTheRightOne) {
  const auto failure_of = [](const Operation& operation) -> std::string {
    switch (cfg::protocol::row_of(operation.command).reply) {
      case Reply::NOTHING:
        return "1";
      case Reply::SUCCESS_CODE:
      case Reply::NUMBER:
        return "0";
      case Reply::STRING:
        return "''";
      case Reply::FOUND_VALUE:
        return "-1";
      case Reply::TREE:
        return "NULL at before";
      default:
        return "NULL";
    }
  };
  const Answer bad[] = {
      answer_of({}),
      answer_of({{99, 1L}}),
      answer_of({{10, "text"s}}),
      {{operations[0].good}, Answer::OTHER_NAME},
      {{{}}, Answer::REFUSE},
      {{{}}, Answer::CLOSE},
  };
  for (const Answer& answer : bad) {
    for (const Operation& operation : operations) {
      const auto& row = cfg::protocol::row_of(operation.command);
      m_service.on(row.name, answer);
      Log_Capture capture;
      EXPECT_EQ(operation.call(m_connector), failure_of(operation)) << row.name << answer.how;
      int errors = 0;
      for (const auto& line : capture.lines()) errors += line.level <= 4;
      if (answer.how == Answer::REFUSE && row.reply != Reply::NOTHING) {
        EXPECT_EQ(errors, 1) << capture.text();
        EXPECT_TRUE(capture.has(" refused the request: because"));
      }
      // An answer without a field is a list without hits.
      const bool is_list = row.reply == Reply::LIST || row.reply == Reply::PATH_VALUES;
      const bool is_empty = answer.how == Answer::FORM && answer.frames[0].empty();
      EXPECT_EQ(errors > 0, row.reply != Reply::NOTHING && !(is_list && is_empty)) << row.name;
      m_service.on(row.name, answer_of(operation.good));
      operation.call(m_connector);
      EXPECT_TRUE(row.reply == Reply::NOTHING ||
                  operation.call(m_connector) != failure_of(operation))
          << "the next request is answered: " << row.name;
    }
  }
}

TEST_F(Connector, AListThatIsCutOrClaimsTooMuchIsNone) {
  const Frame lists[] = {
      {{12, 3L}, {9, "one"s}, {9, "two"s}}, {{12, -1L}}, {{12, 0x7FFFFFFFL}}, {{9, "one"s}}};
  for (const Frame& cut : lists) {
    m_service.on("CFG_GET_SUB_PATHS", answer_of(cut));
    m_service.on("CFG_GET_SUB_TREE_VALUES", answer_of(cut));
    EXPECT_EQ(shown(m_connector.GetSubTreePaths("p")), "NULL");
    EXPECT_EQ(shown(m_connector.GetSubTreeValues("p")), "NULL");
  }
  m_service.on("CFG_GET_SUB_PATHS", answer_of({{12, 0L}}));
  EXPECT_EQ(shown(m_connector.GetSubTreePaths("p")), "0");
}

TEST_F(Connector, AValueIsFoundByRuleOnlyWithFlagTextAndPath) {
  const Frame not_found[] = {
      {{10, 0L}, {11, "v"s}, {4, "p"s}},
      {{10, 1L}, {11, ""s}, {4, "p"s}},
      {{10, 1L}, {11, "v"s}, {4, ""s}},
      {{10, 1L}, {11, "v"s}},
  };
  for (const Frame& frame : not_found) {
    m_service.on("CFG_GET_VALUE_BY_SEARCH_RULE", answer_of(frame));
    EXPECT_EQ(found_by_rule(m_connector), "-1");
  }
}

// --- streamed trees --------------------------------------------------------------------------

const std::string dummy = Tree_EmptySubTree_DummyName + "\0\0"s;

TEST_F(Connector, BuildsTreesFromChunksHoweverTheyAreCut) {
  const std::string long_path = std::string(700, 'p') + "\\v";
  const std::string long_value(5000, 'x');
  const struct {
    std::vector<std::string> chunks;
    const char* top;
    std::string expected;
    const char* message;
  } cases[] = {
      {{""}, "a\\k", "NULL", nullptr},
      {{"v\0001\0s\0\0s\\w\0002\0"s, ""}, "a\\k", "a\\k: k{v=1 s{w=2}}", "Synchronized 3 paths"},
      {{"v\0001\0"s, "s\\w\0002\0"s, ""}, "k", "k: k{v=1 s{w=2}}", "Synchronized 2 paths"},
      {{dummy, ""}, "a\\k", "a\\k: k{}", "GetQueryTreePaths: got tree with no data. path a\\k"},
      {{dummy, "v\0001\0"s, ""}, "k", "k: k{}", "next element size <v> is 4 instead of 0\n"},
      {{"v\0001\0"s + dummy, ""}, "k", "k: k{v=1 EMPTY_SUB_TREE{}}", nullptr},
      {{"v\0001\0w\0002"s, ""}, "k", "k: k{v=1}", "Read Wrong Number of bytes!\n"},
      {{"v\0001\0w"s, "x\0003\0"s, ""}, "k", "k: k{v=1 x=3}", "Read Wrong Number of bytes!\n"},
      {{"v\0001\0"s}, "k", "k: k{v=1}", "Error reading\n"},
      {{}, "k", "NULL", "Error reading\n"},
      {{long_path + "\0"s + long_value + "\0"s, ""},
       "k",
       "k: k{" + std::string(700, 'p') + "{v=" + long_value + "}}",
       nullptr},
  };
  for (const auto& c : cases) {
    Frame frame = {{4, std::string(c.top)}};
    for (const std::string& chunk : c.chunks) frame.push_back({8, chunk});
    std::vector<Frame> frames;  // the same with each field in a frame of its own
    for (const Field& field : frame) frames.push_back({field});
    for (const Answer& answer : {answer_of(frame), Answer{frames}}) {
      m_service.on("CFG_GET_SUB_SEQ", answer);
      Log_Capture capture;
      RWCString seq, path;
      const std::string result = shown(m_connector.GetSubTreeBySeqNumber("p", seq, path, false));
      EXPECT_EQ(result, c.expected);
      EXPECT_EQ(path, c.top);
      if (c.message) {
        EXPECT_TRUE(capture.has(c.message)) << capture.text();
      }
    }
    EXPECT_EQ(m_connector.GetMaxSeqNumber(), "") << "nothing of the answer is left";
  }
}

TEST_F(Connector, ATreeThatIsBrokenOffIsNone) {
  m_service.on("CFG_GET_SUB_SEQ", {{{{4, "k"s}, {8, "v\0001\0"s}}}, Answer::REFUSE_BEHIND});
  const Log_Capture capture;
  RWCString seq, path;
  EXPECT_EQ(shown(m_connector.GetSubTreeBySeqNumber("p", seq, path, false)), "NULL");
  EXPECT_TRUE(capture.has("refused the request: because")) << capture.text();
  EXPECT_EQ(m_connector.GetMaxSeqNumber(), "") << "nothing of the answer is left";
}

TEST_F(Connector, WarnsOfTreesWithMoreThanHalfAMillionRecords) {
  std::vector<Frame> frames = {{{4, "k"s}}};
  std::string chunk;
  int count = 0;
  const auto add = [&](int last) {
    for (; count < last; ++count) {
      (chunk += "v" + std::to_string(count % 90000)) += "\0001\0"s;
      if (chunk.size() > 60000) frames.push_back({{8, std::exchange(chunk, "")}});
    }
    if (!chunk.empty()) frames.push_back({{8, std::exchange(chunk, "")}});
  };
  for (const int wanted : {500000, 500001}) {
    add(wanted);
    std::vector<Frame> whole = frames;
    whole.push_back({{8, ""s}});
    m_service.on("CFG_GET_SUB_SEQ", {whole});
    Log_Capture capture;
    RWCString seq, path;
    const Tree_NodePtr tree_read = m_connector.GetSubTreeBySeqNumber("p", seq, path, false);
    ASSERT_TRUE(tree_read);
    EXPECT_EQ(tree_read->GetChildCount(), 90000);
    EXPECT_EQ(capture.has("Serious warning: reading tree (k) returned too many paths (500001)"),
              wanted == 500001);
  }
}

// --- writes, and the token -------------------------------------------------------------------

TEST_F(Connector, SendsNothingForATreeThatNoArrayCanHold) {
  Tree_NodePtr none, empty_value(new Tree_Node("k"));
  empty_value->AddValue("v", "", 0);
  EXPECT_EQ(m_connector.WriteSubTree(none, "p"), 0);
  Log_Capture capture;
  EXPECT_EQ(m_connector.WriteSubTree(empty_value, "p"), 0);
  EXPECT_EQ(capture.last(), "Fail to write subtree, return NULL\n");
  EXPECT_EQ(m_service.sessions(), 0);
}

TEST_F(Connector, SendsTheTokenOnceAConnectionAndOnlyWithChanges) {
  Conn_TokenManagerHook::RegisterSecmSessionIdGetter([] { return RWCString("session"); }, 0);
  RWCString session_id;
  const auto token = Conn_TokenManagerHook::GetToken("cfg_modify", session_id);
  ASSERT_TRUE(token);
  m_connector.GetValue("p");
  m_connector.Lock();
  m_connector.SetValue("p", "1");
  m_connector.Rollback();
  m_connector.Disconnect();
  m_connector.DeleteValue("p");
  const auto requests = m_service.take_requests();
  ASSERT_EQ(requests.size(), 5u);
  for (size_t i = 0; i < requests.size(); ++i) {
    EXPECT_EQ(requests[i].find(" token=" + *token + " 4=p") != std::string::npos, i == 2 || i == 4)
        << requests[i];
  }
}

TEST_F(Connector, WithoutAServiceSaysSoAndFails) {
  CFG_Connector nowhere;
  nowhere.InitConn("127.0.0.1", 1, "", "cfg", 1, 1);
  Log_Capture capture;
  EXPECT_EQ(nowhere.EnableExtendedTimeout(), 0);
  EXPECT_TRUE(capture.has("Failed to send User Name & Application to the CFG Service.\n"));
  for (const Operation& operation : operations) {
    EXPECT_NE(operation.call(nowhere), operation.expected);
  }
}

}  // namespace
