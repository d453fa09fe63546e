// Requests to a service.
#include <CFG/CFG_Repository.h>
#include <CFG/CFG_RepositoryTransaction.h>
#include <CFG/CFG_Transaction.h>
#include <CFG/CFG_TransactionGuard.h>
#include <tree/Tree_Node.h>

#include "../CFG/scripted_service.h"
#include "../CFG/test_trees.h"
#include "out_of_memory.h"

namespace {

using namespace std::string_literals;

constexpr char kLong[] = "a text that takes a block of its own";
// What a caller hands over is the caller's.
const RWCString path("some\\path\\that\\is\\longer\\than\\a\\short\\text"), text(kLong);
const char* rule[] = {"halvoria\\some\\place", "another"};

ScriptedService& service() {
  static ScriptedService& running = *[] {
    auto* made = new ScriptedService;
    made->on("CFG_GET_VAL", answer_of({{9, std::string(kLong)}}));
    made->on("CFG_GET_NODE_NAME", answer_of({{9, "node"s}}));
    made->on("CFG_GET_SUB_EXISTS", answer_of({{10, 0L}}));
    made->on("CFG_GET_SUB_PATHS", answer_of({{12, 2L}, {9, std::string(kLong)}, {9, "two"s}}));
    made->on("CFG_GET_SUB_TREE_VALUES",
             answer_of({{12, 1L}, {9, "name"s}, {9, std::string(kLong)}}));
    made->on("CFG_GET_VALUE_BY_SEARCH_RULE",
             answer_of({{10, 1L}, {11, std::string(kLong)}, {4, "path"s}}));
    made->on("CFG_GET_SUB_SEQ", {{{{4, "k"s}, {8, "v\0001\0"s}}, {{8, "s\\w\0002\0"s}, {8, ""s}}}});
    made->on("CFG_DEL_VAL", {{{}}, Answer::REFUSE});
    return made;
  }();
  return running;
}

struct Client : CFG_Repository {
  using CFG_Repository::GetValue;
  Client() {
    SetProperty("HALVORIA_REMOTE_SERVER_NAME", "127.0.0.1");
    SetProperty("HALVORIA_REMOTE_SERVER_PORT", RWCString(std::to_string(service().port())));
    Connect();
  }
  // Whatever failed, the next request gets its own answer.
  ~Client() override {
    EXPECT_EQ(GetNodeName("AE"), "node");
    EXPECT_FALSE(IsInTransaction());
    service().take_requests();  // which it keeps
  }
};

std::string said(int answer) { return std::to_string(answer); }
std::string said(const RWCString& answer) { return answer.str(); }
template <class T>
std::string said(T* given) {
  const std::unique_ptr<T> answer(given);
  if (!answer) return "NULL";
  if constexpr (std::is_same_v<T, CFG_SubTree>) return shown(*answer->GetData());
  if constexpr (std::is_same_v<T, Tree_ValueAndPath>) return answer->GetValue();
  if constexpr (std::is_same_v<T, Tree_PathAndValueArray>) return said(answer->m_count);
  if constexpr (std::is_same_v<T, String_Arr>) return said(answer->GetArrLen());
}

// The whole answer, or the empty one and a line that says why.
template <auto ask>
void asks(MemoryShortage& memory) {
  static const std::string wanted = said(ask(*std::make_unique<Client>()));
  Client client;
  decltype(ask(client)) answer{}, none{};
  memory.Under([&] { answer = ask(client); });
  const std::string whole = said(answer);
  if (whole == wanted) return;
  EXPECT_EQ(whole, said(none));
  EXPECT_TRUE(memory.HasStruck() && memory.IsExplained(LOG_LEVEL_ERROR));
}

int update(Client& client) {
  static CFG_SubTree written = tree_of("k", {{"v", kLong}});
  if (!client.StartTransactionUpdate()) return FALSE;
  const int is_written = client.AddOrReplaceSubTree(&written, path);
  return client.EndTransactionUpdate(!is_written) && is_written;
}

// Each object ends what it began, and nothing of what others began.
void transactions(MemoryShortage& memory) {
  Client client;
  const auto nested = [&] {
    const CFG_RepositoryTransaction outer(&client);
    client.GetNodeName("AE");
    const CFG_Transaction inner(&client);
    client.GetNodeName("AE");
    const CFG_TransactionGuard innermost(&client);
  };
  memory.Under(nested);
  EXPECT_FALSE(client.IsInTransaction());
  EXPECT_TRUE(client.StartTransaction());
  memory.Under(nested);
  memory.Under([&] { EXPECT_FALSE(client.StartTransactionUpdate()); });
  EXPECT_TRUE(client.IsInTransaction());
  EXPECT_TRUE(client.EndTransaction());
}

const OutOfMemoryCase rows[] = {
    {"Value", asks<[](Client& c) { return c.GetValue(path); }>},
    {"Names", asks<[](Client& c) { return c.GetSubTreePaths(path); }>},
    {"Values", asks<[](Client& c) { return c.GetSubTreeValues(path); }>},
    {"ByRule", asks<[](Client& c) { return c.GetValue("name", rule, 2); }>},
    {"Subtree", asks<[](Client& c) { return static_cast<CFG_Services&>(c).GetSubTree("k"); }>},
    {"SetValue", asks<[](Client& c) { return c.SetValue(path, text); }>},
    {"Refusal", asks<[](Client& c) { return c.DeleteValue(path); }>},
    {"RenameOverAnother", asks<[](Client& c) { return c.SetKeyName("a\\k", "other"); }>},
    {"Update", asks<update>},
    {"Transactions", transactions},
};
INSTANTIATE_TEST_SUITE_P(Remote, OutOfMemory, testing::ValuesIn(rows), OutOfMemory::NameOf);

}  // namespace
