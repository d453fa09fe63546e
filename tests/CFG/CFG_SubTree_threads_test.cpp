#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "test_trees.h"

namespace {

// Readers, and others that copy and drop handles on the same nodes, need no lock.
TEST(SubTreeThreads, OneTreeIsReadWhileHandlesComeAndGo) {
  CFG_SubTree tree("t");
  for (int i = 0; i < 100; ++i)
    tree.SetValue("Key" + RWCString(std::to_string(i)) + "\\value", "text");
  tree.SetProperty("k", "key7");

  std::atomic<int> wrong{0};
  const auto read = [&] {
    for (int i = 0; i < 3000; ++i) {
      wrong += tree.GetValue("KEY" + RWCString(std::to_string(i % 100)) + "\\value") != "text";
      wrong += tree.GetValue("<k>\\value", "default") != "text";
      wrong += tree.GetSubTreeNum("") != 100;
    }
  };
  const auto hold = [&] {
    CFG_SubTree own(tree);
    for (int i = 0; i < 3000; ++i) {
      const SubTreePtr part(own.GetSubTree("", i % 100));
      const CFG_SubTree copy(*part);
      CFG_SubTree assigned("x");
      assigned = copy;
      wrong += assigned.GetValue("value") != "text";
    }
  };
  std::vector<std::thread> threads;
  threads.emplace_back(read);
  threads.emplace_back(read);
  threads.emplace_back(hold);
  threads.emplace_back(hold);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
