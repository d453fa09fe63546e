// Services, and what else there is, at one store.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>
#include <vector>

#include <CFG/CFG_DBRepository.h>
#include <CFG/CFG_Repository.h>
#include "../CFG/temporary_folder.h"
#include "../servers/Test_Postgres.h"
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
