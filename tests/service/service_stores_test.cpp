// Services, and what else there is, at one store.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <thread>
#include <vector>

#include <CFG/CFG_DBRepository.h>
#include <CFG/CFG_Repository.h>
#include "../CFG/temporary_folder.h"
#include "../CFG/test_trees.h"
#include "../servers/Test_Postgres.h"
#include "../servers/Test_Seed.h"
#include "../servers/Test_Service.h"

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

constexpr char COUNTER[] = "halvoria\\counter";
constexpr int TIMES = 60;

// How often a counter was raised by what says that it was.
int increments(CFG_RepositoryServices& cfg) {
  int done = 0;
  for (int i = 0; i < TIMES; ++i) {
    if (!cfg.StartTransactionUpdate()) continue;
    const int next = cfg.GetIntegerValueWrapper(COUNTER, 0) + 1;
    const int is_set = cfg.SetIntegerValue(COUNTER, next);
    done += cfg.EndTransactionUpdate(!is_set) && is_set;
  }
  return done;
}

// All at once; what the counter says must be what was acknowledged.
void expect_exact(const std::vector<std::unique_ptr<CFG_RepositoryServices>>& clients) {
  std::atomic<int> acknowledged{0};
  std::vector<std::thread> threads;
  for (const auto& client : clients) {
    threads.emplace_back([&] { acknowledged += increments(*client); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(clients.front()->GetIntegerValueWrapper(COUNTER, 0), acknowledged);
  EXPECT_GT(acknowledged, TIMES);
}

std::unique_ptr<CFG_RepositoryServices> client_of(const Test_Service& service) {
  service.use();
  auto client = std::make_unique<CFG_Repository>();
  EXPECT_TRUE(client->Connect());
  EXPECT_EQ(client->GetValue("halvoria\\none"), "");  // its connection goes to this service
  return client;
}

std::unique_ptr<CFG_RepositoryServices> store_of(const std::string& connection) {
  auto store = std::make_unique<CFG_DBRepository>(RWCString(connection), RWCString());
  EXPECT_TRUE(store->Connect());
  return store;
}

TEST(SharedStore, CountsWhatTwoServicesAndAProgramCountOnPostgres) {
  if (!Test_Postgres::IsInstalled()) GTEST_SKIP() << "no PostgreSQL server is installed";
  const Test_Postgres server;
  ASSERT_TRUE(server.is_running()) << server.problem();
  Test_Service first(server.connection()), second(server.connection());
  ASSERT_TRUE(first.start() && second.start());
  std::vector<std::unique_ptr<CFG_RepositoryServices>> clients;
  for (int i = 0; i < 2; ++i) {
    clients.push_back(client_of(first));
    clients.push_back(client_of(second));
  }
  clients.push_back(store_of(server.connection()));
  expect_exact(clients);
}

TEST(SharedStore, CountsWhatAServiceAndAProgramCountInAFile) {
  const TemporaryFolder folder;
  const std::string store = "sqlite:" + (folder / "tree.sqlite").string();
  Test_Service service(store);
  ASSERT_TRUE(service.start());
  std::vector<std::unique_ptr<CFG_RepositoryServices>> clients;
  for (int i = 0; i < 2; ++i) clients.push_back(client_of(service));
  for (int i = 0; i < 2; ++i) clients.push_back(store_of(store));
  expect_exact(clients);
}

// --- reads beside a writer -----------------------------------------------------------------------

// What the store holds after the n-th commit. Everything that stands in a read tells n, or whether
// it is even; what is read beside commits must be as it is when nobody writes.
constexpr char TOP[] = "halvoria\\t";
constexpr int BRANCHES = 12;  // more than a read of names goes through without passing over one

bool commit(CFG_DBRepository& store, int n) {
  const RWCString number("n" + std::to_string(n)), before("n" + std::to_string(n - 1));
  int done = store.Lock();
  for (int i = 0; done && i < BRANCHES; ++i) {
    const RWCString branch(std::string(TOP) + "\\k" + std::to_string(i));
    done = store.DeleteSubTree(branch + "\\" + before) &&
           store.SetValue(branch + "\\" + number + "\\w", number) &&
           store.SetValue(branch + "\\v", number) &&
           store.SetValue(branch + "\\x\\inet_address", n % 2 ? "10.0.0.1" : "10.0.0.2");
  }
  const RWCString here(std::string(TOP) + (n % 2 ? "\\a" : "\\z"));
  const RWCString gone(std::string(TOP) + (n % 2 ? "\\z" : "\\a"));
  done = done && store.DeleteValue(gone) && store.SetValue(here, "1") &&
         store.SetValue(here + "x\\alone\\v", number) && store.DeleteSubTree(gone + "x");
  return store.UnLock() && done;
}

std::string shown_list(String_Arr* names) {
  const std::unique_ptr<String_Arr> list(names);
  std::string text;
  for (int i = 0; list && i < list->GetArrLen(); ++i) text += std::string(list->GetStr(i)) + " ";
  return text;
}
std::string shown_pair(Tree_ValueAndPath* found) {
  const std::unique_ptr<Tree_ValueAndPath> pair(found);
  return pair ? std::string(pair->GetPath()) + "=" + pair->GetValue() : "";
}
std::string shown_records(Tree_PathAndValueArray* found) {
  const std::unique_ptr<Tree_PathAndValueArray> records(found);
  std::string text;
  for (int i = 0; records && i < records->m_count; ++i) {
    text += std::string(records->GetPV(i)->GetPath()) + "=" + records->GetPV(i)->GetValue() + " ";
  }
  return text;
}
std::string shown_tree(CFG_SubTree* tree) { return shown(SubTreePtr(tree)); }

using Cfg = CFG_RepositoryServices;
RWCString top() { return TOP; }
const char* rules[] = {"halvoria\\t\\ax", "halvoria\\t\\k3", "halvoria\\t\\zx", "halvoria\\t\\k4"};
constexpr int RULES = 4;

struct Read {
  const char* name;
  std::string (*of)(Cfg& cfg);
};
const Read reads[] = {
    {"tree",
     [](Cfg& c) {
       RWCString p = top();
       return shown_tree(c.GetSubTree(p));
     }},
    {"long tree", [](Cfg& c) { return shown_tree(c.GetSubTreeWithLongValues(TOP)); }},
    {"tree by position",
     [](Cfg& c) {
       RWCString p = top();
       return shown_tree(c.GetSubTree(p, 5));
     }},
    {"wildcard",
     [](Cfg& c) { return shown_tree(c.GetSubTreeWithPrecentAndWildcard("halvoria\\t\\%\\v")); }},
    {"wildcard keys",
     [](Cfg& c) { return shown_tree(c.GetSubTreeWithPrecentAndWildcard("halvoria\\t\\%\\%")); }},
    {"wildcard with values",
     [](Cfg& c) {
       return shown_tree(c.GetSubTreeOnlyWithValuesWithPrecentAndWildcard("halvoria\\t\\%\\%"));
     }},
    {"by rule", [](Cfg& c) { return shown_tree(c.GetSubTree("alone", rules, RULES)); }},
    {"by rule, merged", [](Cfg& c) { return shown_tree(c.GetSubTree("", rules, TRUE, RULES)); }},
    {"by rule, values",
     [](Cfg& c) { return shown_tree(c.GetSubTreeOnlyWithValues("", rules, TRUE, RULES)); }},
    {"value by rule", [](Cfg& c) { return shown_pair(c.GetValue("alone\\v", rules, RULES)); }},
    {"keys", [](Cfg& c) { return shown_list(c.GetSubTreePaths(TOP)); }},
    {"keys below", [](Cfg& c) { return shown_list(c.GetSubTreePaths("halvoria\\t\\k7")); }},
    {"values", [](Cfg& c) { return shown_records(c.GetSubTreeValues(TOP)); }},
    {"number of keys",
     [](Cfg& c) {
       RWCString p = top();
       return std::to_string(c.GetSubTreeNum(p));
     }},
    {"number of values",
     [](Cfg& c) {
       RWCString p = top();
       return std::to_string(c.GetValueNum(p));
     }},
    {"name by position",
     [](Cfg& c) {
       RWCString p = top();
       return c.GetValueName(p, 0).str();
     }},
    {"value by position",
     [](Cfg& c) {
       RWCString p = top();
       return c.GetValue(p, 0).str();
     }},
    {"entries", [](Cfg& c) { return std::to_string(c.GetSubTreeEntriesCount(TOP)); }},
    {"paths", [](Cfg& c) { return shown_list(c.FillPath("halvoria\\t\\%\\%\\w")); }},
    {"path by value",
     [](Cfg& c) {
       return c.FillPath("halvoria\\t\\%\\x", "inet_address", "10.0.0.1").str() +
              c.FillPath("halvoria\\t\\%", "none", "1").str();
     }},
};

// With the number that stands in it first in place of every such number.
std::string without_number(std::string text, std::string& number) {
  const size_t at = text.find_first_of("0123456789", text.find("n1"));
  if (at == text.npos || text.find("n1") == text.npos) return text;
  number = text.substr(at - 1, text.find_first_not_of("0123456789", at) - at + 1);
  for (size_t i = 0; (i = text.find(number, i)) != text.npos;) text.replace(i, number.size(), "#");
  return text;
}

// Reads at random while another connection commits.
void expect_whole_reads(CFG_DBRepository& writer, Cfg& reader, int most) {
  constexpr int FIRST = 100000;
  constexpr size_t COUNT = std::size(reads);
  std::string whole[COUNT][2], number;
  ASSERT_TRUE(writer.DeleteSubTree(TOP));
  for (const int n : {FIRST, FIRST + 1}) {
    ASSERT_TRUE(commit(writer, n));
    for (size_t i = 0; i < COUNT; ++i)
      whole[i][n % 2] = without_number(reads[i].of(reader), number);
  }
  std::atomic<bool> is_over{false};
  std::thread writing([&] {
    for (int n = FIRST + 2; !is_over; ++n) EXPECT_TRUE(commit(writer, n));
  });
  std::mt19937 random(test_seed());
  for (int i = 0; i < most && !testing::Test::HasFailure(); ++i) {
    const size_t which = random() % COUNT;
    number.clear();
    const std::string found = without_number(reads[which].of(reader), number);
    const bool is_whole = number.empty() ? found == whole[which][0] || found == whole[which][1]
                                         : found == whole[which][std::stoi(number.substr(1)) % 2];
    EXPECT_TRUE(is_whole) << reads[which].name << ", " << number << ": " << found << "\n"
                          << whole[which][0] << "\n"
                          << whole[which][1];
  }
  is_over = true;
  writing.join();
}

TEST(SharedStore, EveryAnswerIsOfOneState) {
  constexpr int READS = 2000;
  const auto over = [](const std::string& connection) {
    const auto writer = store_of(connection), reader = store_of(connection);
    expect_whole_reads(dynamic_cast<CFG_DBRepository&>(*writer), *reader, READS);
    Test_Service service(connection);
    ASSERT_TRUE(service.start());
    expect_whole_reads(dynamic_cast<CFG_DBRepository&>(*writer), *client_of(service), READS);
  };
  const TemporaryFolder folder;
  over("sqlite:" + (folder / "tree.sqlite").string());
  if (!Test_Postgres::IsInstalled()) GTEST_SKIP() << "no PostgreSQL server is installed";
  const Test_Postgres server;
  ASSERT_TRUE(server.is_running()) << server.problem();
  over(server.connection());
}

TEST(SharedStore, AFileHasOneServiceAndASecondIsToldWhich) {
  const TemporaryFolder folder;
  const std::string file = (folder / "tree.sqlite").string(), log = (folder / "log").string();
  Test_Service first("sqlite:" + file);
  ASSERT_TRUE(first.start());
  std::filesystem::create_symlink(file, folder / "link");
  for (const std::string& name : {file, (folder / "link").string()}) {
    Test_Service second("sqlite:" + name, log);
    EXPECT_FALSE(second.start());
    std::stringstream said;
    said << std::ifstream(log).rdbuf();
    EXPECT_THAT(said.str(), AllOf(HasSubstr("svcfg: another service serves " + name + ": process " +
                                            std::to_string(first.process().pid()) + " on "),
                                  HasSubstr(", listening on 127.0.0.1 port " +
                                            std::to_string(first.port()) + " since 2")));
  }
  first.kill();
  Test_Service next("sqlite:" + file);
  EXPECT_TRUE(next.start()) << "who was killed has nothing";
  EXPECT_EQ(next.stop(), 0);
  EXPECT_TRUE(first.start());
}

}  // namespace
