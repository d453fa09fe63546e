// Many clients at once, well and badly behaved.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include <CFG/CFG_Repository.h>
#include "../CFG/temporary_folder.h"
#include "../CFG/test_trees.h"
#include "../servers/Test_Seed.h"
#include "../servers/Test_Service.h"

namespace {

constexpr std::chrono::seconds LOAD_TIME(LOAD_SECONDS);
constexpr int CLIENTS = 200;
#ifdef __SANITIZE_ADDRESS__
constexpr long SLACK = 400000;  // kilobytes: the sanitizer keeps what was freed
#else
constexpr long SLACK = 20000;
#endif
constexpr int COUNTERS = 10;
constexpr int LARGE_ENTRIES = 2000;

RWCString counter(unsigned i) { return RWCString("halvoria\\counters\\c" + std::to_string(i)); }

// What one client does, and what it saw.
struct Client {
  CFG_Repository cfg;  // a pool of its own: a connection of its own
  std::mt19937 random;
  RWCString own;
  int own_value = 0, increments = 0, errors = 0, reads = 0;

  void increment() {
    const RWCString path = counter(random() % COUNTERS);
    if (!cfg.StartTransactionUpdate()) {
      ++errors;
      return;
    }
    const int next = cfg.GetIntegerValueWrapper(path, 0) + 1;
    const int done = cfg.SetIntegerValue(path, next);
    if (cfg.EndTransactionUpdate(!done) && done) {
      ++increments;
    } else {
      ++errors;
    }
  }
  void write_own() {
    if (!cfg.SetValue(own, std::to_string(++own_value))) ++errors;
  }
  void read_own() {
    ++reads;
    const RWCString found = cfg.GetValue(own);
    const bool is_right =
        own_value == 0 ? found.isNull() : found == std::to_string(own_value).c_str();
    if (!is_right) ++errors;
  }
  void read_tree() {
    ++reads;
    const SubTreePtr tree(cfg.GetSubTree("halvoria\\large"));
    if (!tree || tree->GetSubTreeEntriesCount("") != LARGE_ENTRIES) ++errors;
  }
  void step() {
    const unsigned dice = random() % 1000;
    if (dice < 20) return increment();
    if (dice < 60) return write_own();
    if (dice < 65) return read_tree();
    read_own();
  }
};

TEST(Load, TwoHundredClientsLoseNothing) {
  const unsigned seed = test_seed();
  TemporaryFolder folder;
  const std::string log = (folder / "svcfg.log").string();
  Test_Service service("sqlite:" + (folder / "tree.sqlite").string(), log);
  ASSERT_TRUE(service.start());
  service.use();
  CFG_Repository first;
  ASSERT_TRUE(first.Connect());
  CFG_SubTree large{RWCString("large")};
  for (int i = 0; i < LARGE_ENTRIES; ++i) large.SetValue("v" + std::to_string(i), "text");
  ASSERT_TRUE(first.AddOrReplaceSubTree(&large, "halvoria"));

  std::vector<std::unique_ptr<Client>> clients;
  for (int i = 0; i < CLIENTS; ++i) {
    clients.push_back(std::make_unique<Client>());
    clients.back()->random.seed(seed + static_cast<unsigned>(i));
    clients.back()->own = RWCString("halvoria\\own\\c" + std::to_string(i));
    ASSERT_TRUE(clients.back()->cfg.Connect());
  }
  std::atomic<bool> is_over{false};
  std::vector<std::thread> threads;
  for (auto& client : clients) {
    threads.emplace_back([&client = *client, &is_over] {
      while (!is_over) client.step();
    });
  }
  std::this_thread::sleep_for(LOAD_TIME / 4);
  const long early = service.process().memory("VmRSS");
  std::this_thread::sleep_for(LOAD_TIME * 3 / 4);
  const long late = service.process().memory("VmRSS");
  is_over = true;
  for (std::thread& thread : threads) thread.join();

  int increments = 0, errors = 0, reads = 0, counted = 0;
  for (const auto& client : clients) {
    increments += client->increments;
    errors += client->errors;
    reads += client->reads;
  }
  for (unsigned i = 0; i < COUNTERS; ++i) counted += first.GetIntegerValueWrapper(counter(i), 0);
  std::cout << reads << " reads, " << increments << " transactions, memory " << early << " KB, "
            << late << " KB\n";
  EXPECT_EQ(errors, 0);
  EXPECT_EQ(counted, increments);
  EXPECT_GT(increments, 0);
  EXPECT_LT(late, early + early / 2 + SLACK) << "memory grows with the work done";
  EXPECT_EQ(service.stop(), 0);
}

}  // namespace
