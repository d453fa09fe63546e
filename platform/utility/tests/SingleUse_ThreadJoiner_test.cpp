#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include <support/forked.h>
#include <utility/SingleUse_ThreadJoiner.h>

namespace {

using std::chrono::milliseconds;

TEST(ThreadJoiner, OnceSignalledEverybodyIsLetThroughForEver) {
  for (int round = 0; round < 50; ++round) {
    auto joiner = std::make_unique<SingleUse_ThreadJoiner>();
    EXPECT_FALSE(joiner->IsSignalled());
    EXPECT_FALSE(joiner->Wait(milliseconds(0)));
    std::vector<std::thread> waiting;
    for (int i = 0; i < 4; ++i) {
      waiting.emplace_back([&] {
        joiner->Wait();
        EXPECT_TRUE(joiner->Wait(std::chrono::minutes(1)));
      });
    }
    joiner->Signal();
    joiner->Signal();
    for (std::thread& thread : waiting) thread.join();
    EXPECT_TRUE(joiner->IsSignalled());
    joiner->Wait();
    joiner.reset();
  }
}

TEST(ThreadJoiner, AChildFindsItAsItWasAndFreeOfItsParentsWaiters) {
  auto open = std::make_unique<SingleUse_ThreadJoiner>();
  auto done = std::make_unique<SingleUse_ThreadJoiner>();
  done->Signal();
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) threads.emplace_back([&] { open->Wait(); });
  threads.emplace_back([&] {  // at it, in one way or other, whenever the process forks
    while (!open->Wait(milliseconds(0))) done->Wait();
  });
  bool holds = true;
  for (int i = 0; i < 20 && holds; ++i) {
    holds = holds_in_child([&] {
      if (!done->IsSignalled() || open->IsSignalled()) return false;
      open->Signal();
      open->Wait();
      const bool is_signalled = open->IsSignalled();
      open.reset();
      done.reset();
      return is_signalled;
    });
  }
  EXPECT_TRUE(holds);
  EXPECT_FALSE(open->IsSignalled());
  open->Signal();
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
