#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <memory>
#include <thread>
#include <vector>

#include <CFG/CFG_MemoryRepository.h>
#include <CFG/CFG_Utils.h>
#include <tree/Tree_Node.h>

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

// --- the tree above goes ----------------------------------------------------------------------

// Wide enough to take a while to go, deep enough for an index, which it has.
SubTreePtr indexed_tree(const char* name) {
  SubTreePtr tree(new CFG_SubTree(name));
  for (const char* key : {"", "a\\", "a\\b\\", "a\\b\\c\\", "a\\b\\d\\"}) {
    for (int i = 0; i < 20; ++i)
      tree->SetValue(key + RWCString(std::to_string(i)) + "k\\value", "text");
  }
  for (int i = 0; i < 600; ++i) tree->GetValue("a\\b\\c\\1k\\value");
  return tree;
}

// What a thread does with a handle on a key of a tree whose last other handle is dropped
// meanwhile. FALSE when an answer is wrong.
const struct {
  const char* name;
  bool (*use)(CFG_SubTree& inner, const RWCString& path);
} uses[] = {
    {"GetPath", [](CFG_SubTree& inner, const RWCString& path) { return inner.GetPath() == path; }},
    {"Search",
     [](CFG_SubTree& inner, const RWCString&) {
       const std::unique_ptr<String_Arr> found(inner.Search("value", ""));
       return found && found->GetArrLen() == 20;
     }},
    {"MakeACopy",
     [](CFG_SubTree& inner, const RWCString& path) {
       CFG_SubTree* source = &inner;
       const SubTreePtr copy(CFG_Utils::MakeACopy(source));
       return copy && copy->GetPath() == path && copy->GetSubTreeNum("") == 20;
     }},
    {"MergeTrees",
     [](CFG_SubTree& inner, const RWCString&) {
       CFG_SubTree* tree = &inner;
       const SubTreePtr merged(CFG_Utils::MergeTrees(tree, tree));
       return merged && merged->GetPath() == "____temp_____" && inner.GetKeyName() == "c";
     }},
    {"AddOrReplaceSubTree",
     [](CFG_SubTree& inner, const RWCString&) {
       CFG_SubTree own("own");
       return own.AddOrReplaceSubTree(&inner, "x") && own.GetValue("x\\c\\1k\\value") == "text";
     }},
    {"Export",
     [](CFG_SubTree& inner, const RWCString& path) {
       std::vector<CFG_SubTree*> two{&inner, &inner};
       CFG_MemoryRepository writer(nullptr);
       return !writer.ExportSubTreeVectorToFile(&two, L"/none/t.xml") &&
              inner.GetData()->GetFullPath() == path;
     }},
    {"Reads",
     [](CFG_SubTree& inner, const RWCString&) {
       const SubTreePtr part(inner.GetSubTree("1k"));
       return part && part->GetValue("value") == "text" && inner.GetValue("2k\\value") == "text";
     }},
};

// How the tree comes to its end: the last way to its top is what comes back.
const struct {
  const char* name;
  SubTreePtr (*end)(SubTreePtr tree);
} ends[] = {
    {"dropped", [](SubTreePtr tree) { return tree; }},
    {"moved under another key",
     [](SubTreePtr tree) {
       SubTreePtr other = indexed_tree("other");
       EXPECT_TRUE(other->GetData()->Find("1k")->Add(tree->GetData()->Find("a")));
       return other;
     }},
    {"merged away",
     [](SubTreePtr tree) {
       SubTreePtr other(new CFG_SubTree(tree->GetKeyName()));
       EXPECT_EQ(other->MergeSubTree(tree.get(), ""), 0);
       return other;
     }},
};

// Each round a tree of its own goes while some threads use a handle each on a key in it.
template <class Use>
int wrong_answers(SubTreePtr (*end)(SubTreePtr), size_t threads, Use&& use) {
  constexpr int kRounds = 40;
  struct Held {
    SubTreePtr handle;
    RWCString path;
  };
  std::vector<Held> held(threads);
  std::atomic<int> wrong{0};
  std::barrier ready(static_cast<std::ptrdiff_t>(threads) + 1);
  std::barrier done(static_cast<std::ptrdiff_t>(threads) + 1);
  std::vector<std::thread> users;
  for (Held& mine : held) {
    users.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        ready.arrive_and_wait();
        for (int i = 0; i < 8; ++i) wrong += !use(*mine.handle, mine.path);
        mine.handle = nullptr;
        done.arrive_and_wait();
      }
    });
  }
  for (int round = 0; round < kRounds; ++round) {
    SubTreePtr tree = indexed_tree("top");
    for (Held& mine : held) mine.handle.reset(tree->GetSubTree("a\\b\\c"));
    tree = end(std::move(tree));
    for (Held& mine : held) mine.path = mine.handle->GetPath();
    ready.arrive_and_wait();
    tree = nullptr;
    done.arrive_and_wait();
  }
  for (std::thread& user : users) user.join();
  return wrong;
}

TEST(SubTreeThreads, AHandleOutlivesTheTreeAboveIt) {
  const auto change = [](CFG_SubTree& inner, const RWCString& path) {
    return inner.SetValue("new\\keys\\below", "1") && inner.SetValue("1k\\more", "2") &&
           inner.SetKeyName("1k\\more", "less") && inner.DeleteSubTree("new") &&
           inner.DeleteValue("1k\\less") && inner.GetPath() == path;
  };
  for (const auto& [end_name, end] : ends) {
    for (const auto& [name, use] : uses) {
      EXPECT_EQ(wrong_answers(end, 2, use), 0) << name << " in a tree that is " << end_name;
    }
    EXPECT_EQ(wrong_answers(end, 1, change), 0) << "changes in a tree that is " << end_name;
  }
}

}  // namespace
