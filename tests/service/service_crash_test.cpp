// A service that is killed while clients write, and started again.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <map>
#include <random>
#include <thread>

#include <CFG/CFG_DBRepository.h>
#include <CFG/CFG_Repository.h>
#include "../CFG/temporary_folder.h"
#include "../servers/Test_Seed.h"
#include "../servers/Test_Service.h"

namespace {

constexpr int ROUNDS = 60;
constexpr int WRITERS = 4;
constexpr int VALUES = 5;  // of a transaction

// One thread's writes, numbered, and what came back.
struct Writer {
  enum Outcome { UNKNOWN, ACKNOWLEDGED };

  const int number;
  int next = 0;
  std::map<int, Outcome> values, transactions;

  RWCString path(const char* kind, int i) const {
    return RWCString(std::string("halvoria\\") + kind + std::to_string(number) + "\\n" +
                     std::to_string(i));
  }

  void write_value(CFG_Repository& cfg) {
    const int i = next++;
    values[i] = UNKNOWN;
    if (cfg.SetValue(path("value", i), std::to_string(i))) values[i] = ACKNOWLEDGED;
  }
  // Whether it was acknowledged.
  bool write_transaction(CFG_Repository& cfg) {
    if (!cfg.StartTransactionUpdate()) {
      cfg.EndTransaction();  // what of it was started
      return false;
    }
    const int i = next++;
    transactions[i] = UNKNOWN;
    int done = TRUE;
    for (int k = 0; k < VALUES && done; ++k) {
      done = cfg.SetValue(path("group", i) + "\\v" + std::to_string(k), std::to_string(i));
    }
    if (cfg.EndTransactionUpdate(!done) && done) {
      transactions[i] = ACKNOWLEDGED;
      return true;
    }
    while (cfg.IsInTransaction() && cfg.EndTransaction()) {
    }
    return false;
  }
};

void check(const Writer& writer, CFG_DBRepository& store) {
  for (const auto& [i, outcome] : writer.values) {
    const RWCString found = store.GetValue(writer.path("value", i));
    if (outcome == Writer::ACKNOWLEDGED) {
      EXPECT_EQ(found, std::to_string(i).c_str());
    }
  }
  for (const auto& [i, outcome] : writer.transactions) {
    int there = 0;
    for (int k = 0; k < VALUES; ++k) {
      const RWCString path = writer.path("group", i) + "\\v" + std::to_string(k);
      there += store.GetValue(path) == std::to_string(i).c_str();
    }
    EXPECT_TRUE(there == VALUES || (there == 0 && outcome == Writer::UNKNOWN))
        << there << " values of transaction " << i << " are there";
  }
}

TEST(Crash, WhatWasAcknowledgedIsThereAndNothingInPart) {
  std::mt19937 random(test_seed());
  TemporaryFolder folder;
  const std::string store = "sqlite:" + (folder / "tree.sqlite").string();
  Test_Service service(store, (folder / "svcfg.log").string());
  CFG_Repository cfg;  // one for all rounds: clients go on
  ASSERT_TRUE(cfg.Connect());
  Writer writers[WRITERS] = {{0, 0, {}, {}}, {1, 0, {}, {}}, {2, 0, {}, {}}, {3, 0, {}, {}}};

  for (int round = 0; round < ROUNDS; ++round) {
    ASSERT_TRUE(service.start()) << "round " << round;
    service.use();
    std::atomic<bool> is_over{false};
    std::atomic<unsigned> acknowledged{0};
    std::vector<std::thread> threads;
    for (Writer& writer : writers) {
      threads.emplace_back([&cfg, &writer, &is_over, &acknowledged] {
        while (!is_over) {
          writer.write_value(cfg);
          acknowledged += writer.write_transaction(cfg);
        }
      });
    }
    // The clients go on each time, and the end comes in the midst of whatever.
    const unsigned some = 1 + random() % 4;
    const auto until = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (acknowledged < some && std::chrono::steady_clock::now() < until) {
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 10000));
    service.kill();
    is_over = true;
    for (std::thread& thread : threads) thread.join();
    ASSERT_GE(acknowledged, some) << "the clients did not go on";
  }

  CFG_DBRepository after{RWCString(store), RWCString()};
  ASSERT_TRUE(after.Connect());
  std::string reason;
  EXPECT_TRUE(after.CheckIntegrity(reason)) << reason;
  for (const Writer& writer : writers) check(writer, after);
}

}  // namespace
