#include <CFG/CFG_InProcessCacheRepository.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include <CFG/cache/in_process_cache.h>
#include <CFG/cache/process_name.h>
#include <CFG/temporary_folder.h>
#include <CFG/test_trees.h>
#include <logging/Log_Capture.h>
#include <support/comes.h>
#include <tree/Tree_Node.h>
#include "cache_configuration.h"

namespace {

using testing::ElementsAre;
using Values = std::initializer_list<std::pair<const char*, const char*>>;
using Cached = CFG_InProcessCacheRepository<CFG_DBRepository>;

std::vector<std::string> lines_of(const Log_Capture& log) {
  std::vector<std::string> texts;
  for (const auto& line : log.lines()) {
    if (line.file == "src/CFG/CFG_InProcessCacheRepository" || line.file == "inc/Tmr/Tmr_Cache") {
      texts.push_back(std::to_string(line.level) + " " + line.text);
    }
  }
  return texts;
}

// A database, and two that are at it: one plain, one with a cache.
class InProcessCache : public testing::Test {
 protected:
  void open(Values configuration) {
    ASSERT_TRUE(plain.Connect());
    for (const auto& [path, text] :
         Values{{"a\\v", "1"}, {"a\\b\\w", "2"}, {"a\\b\\c\\x", "3"}, {"z\\y", "4"}}) {
      plain.SetValue(RWCString("halvoria\\") + path, text);
    }
    configure_cache(plain, configuration);
    ASSERT_TRUE(cached.Connect());
  }
  // What is kept of all that could be.
  std::string kept() {
    std::string text;
    for (const char* path :
         {"a", "a\\b", "a\\b\\c", "z", "a\\v", "a\\b\\w", "a\\b\\c\\x", "none"}) {
      const RWCString whole = RWCString("halvoria\\") + path;
      if (cached.IsSubTreeInCache(whole)) text += std::string("{") + path + "}";
      if (cached.IsValueInCache(whole)) text += std::string("(") + path + ")";
    }
    return text;
  }
  void read_all() {
    cached.ClearCache();
    for (const char* value : {"a\\v", "a\\b\\w", "a\\b\\c\\x"}) {
      cached.GetValue(RWCString("halvoria\\") + value);
    }
    for (const char* key : {"a\\b\\c", "a\\b", "a", "z"}) {  // each goes when one above it comes
      RWCString path = RWCString("halvoria\\") + key;
      const SubTreePtr tree(cached.GetSubTree(path));
    }
  }

  TemporaryFolder folder;
  const RWCString store = "sqlite:" + (folder / "tree.db").string();
  CFG_DBRepository plain{store, "test"};
  Cached cached{store, "test"};
};

TEST(InProcessCacheConfiguration, HasDefaultsAndUpperBounds) {
  const auto shown_of = [](CFG_SubTree tree) {
    const CFG_InProcessCacheConfigurations c(tree);
    const std::vector<int> all{c.value_cache_timeout,    c.value_cache_size,
                               c.sub_tree_cache_timeout, c.sub_tree_cache_size,
                               c.largest_sub_tree,       c.keeps_what_does_not_exist};
    return all;
  };
  EXPECT_THAT(shown_of(tree_of("t", {{"value_cache_size", "many"}})),
              ElementsAre(1800, 100, 1800, 100, 500000, 1));
  const Log_Capture log;
  EXPECT_THAT(shown_of(tree_of("t", {{"value_cache_timeout", "10801"},
                                     {"value_cache_size", "500"},
                                     {"subtree_cache_timeout", "20000"},
                                     {"sub_tree_cache_size", "500"},
                                     {"max_subtree_entries_allowed", "1000001"},
                                     {"store_non_existing_keys", "false"}})),
              ElementsAre(10800, 200, 10800, 500, 1000000, 0));
  EXPECT_THAT(lines_of(log), ElementsAre("4 subtree size of 500 is bigger than the recommended "
                                         "limit of subtree cache size - 200"));
  EXPECT_THAT(shown_of(tree_of("t", {{"value_cache_timeout", "-1"},
                                     {"value_cache_size", "-2"},
                                     {"subtree_cache_timeout", "-3"},
                                     {"sub_tree_cache_size", "-4"},
                                     {"max_subtree_entries_allowed", "-5"}})),
              ElementsAre(-1, -2, -3, -4, -5, 1));
}

TEST(InProcessCacheConfiguration, IsUnderTheNameOfTheProgram) {
  const struct {
    const char* file;
    const char* name;
  } cases[] = {{"/usr/bin/Tool", "tool"},
               {"/opt/v1.2/tool-1.2", "tool-1"},
               {"C:\\Bin\\Viewer.EXE", "viewer"},
               {"C:\\inetsrv\\W3WP.EXE", "My Site"},
               {"/bin/.hidden", ""},
               {"tool", "tool"}};
  for (const auto& c : cases) EXPECT_EQ(cfg::process_name(c.file, "My Site"), c.name) << c.file;
}

TEST_F(InProcessCache, IsOffUnlessTheTreeSaysHowLargeItIs) {
  ASSERT_TRUE(plain.Connect());
  const std::string process = Sys_ProcessName().str();
  const std::string off = "5 can't get configuration for in process cache to process : <" +
                          process + "> , cache will not be enbaled for that process";
  const struct {
    const char* name;
    const char* text;
    std::vector<std::string> lines;
  } steps[] = {
      {"value_cache_size", "0", {off}},
      {"enable", "false", {off}},
      {"sub_tree_cache_size", "-1", {off}},
      {"enable", "true", {"3 can't create cache instance with no value and subtree size"}},
      {"value_cache_size",
       "7",
       {"5 value cache is enabled with max capacity = <7> , timeout = <1800> seconds",
        "5 subtree cache is disabled"}},
      {"sub_tree_cache_size",
       "8",
       {"5 value cache is enabled with max capacity = <7> , timeout = <1800> seconds",
        "5 subtree cache is enabled with max capacity = <8> , timeout = <1800> seconds, max subtree size = <500000>"}},
  };
  for (const auto& step : steps) {
    plain.SetValue(cache_configuration() + "\\" + step.name, step.text);
    Cached repository(store, "test");
    const Log_Capture log;
    EXPECT_TRUE(repository.Connect());
    EXPECT_EQ(lines_of(log), step.lines) << step.name;
    EXPECT_TRUE(repository.Connect());  // which changes nothing
    EXPECT_EQ(lines_of(log), step.lines) << step.name;
    repository.GetValue("halvoria\\none");
    EXPECT_EQ(repository.IsValueInCache("halvoria\\none"), step.lines.size() == 2);
  }
}

TEST_F(InProcessCache, ReadsOnceAndSaysWhereItLooks) {
  open({});
  const Log_Capture log;
  const auto line_of = [](const char* text) { return std::string(text); };
  EXPECT_EQ(cached.GetValue("halvoria\\A\\v"), "1");
  EXPECT_THAT(lines_of(log),
              ElementsAre("7 search path <halvoria\\a\\v> in InProcess cache",
                          "6 path <halvoria\\a\\v> was not found in value cache,checking in "
                          "subtree cache",
                          "6 path <halvoria\\a\\v> is not in InProcess cache,checking in CFG",
                          "6 path <halvoria\\a\\v> found in CFG",
                          "7 End, path = halvoria\\a\\v, value = 1"));
  plain.SetValue("halvoria\\a\\v", "new");
  const Log_Capture again;
  EXPECT_EQ(cached.GetValue("halvoria\\a\\v"), "1");
  EXPECT_THAT(lines_of(again), ElementsAre("7 search path <halvoria\\a\\v> in InProcess cache",
                                           line_of("6 path <halvoria\\a\\v> found in value cache"),
                                           "7 End, path = halvoria\\a\\v, value = 1"));
  EXPECT_EQ(cached.GetIntegerValueWrapper("halvoria\\a\\v", 7), 1);  // made of it
  EXPECT_EQ(cached.GetValue("halvoria\\none"), "");
  plain.SetValue("halvoria\\none", "there");
  EXPECT_EQ(cached.GetValue("halvoria\\none"), "");
  cached.ClearCache();
  EXPECT_EQ(cached.GetValue("halvoria\\none"), "there");
}

TEST_F(InProcessCache, AnswersBelowASubTreeFromIt) {
  open({{"sub_tree_cache_size", "2"}});
  RWCString b = "halvoria\\a\\b", z = "halvoria\\z", c = "halvoria\\a\\b\\c";
  bool flag = true;
  const auto kept_b = cached.GetCachedSubTree(b, flag);
  EXPECT_FALSE(flag);
  const SubTreePtr of_z(cached.GetSubTree(z));
  plain.SetValue("halvoria\\a\\b\\w", "new");
  EXPECT_EQ(cached.GetValue("halvoria\\a\\b\\w"), "2");  // which makes it the most recent one
  EXPECT_EQ(cached.GetValue("halvoria\\a\\b\\none"), "");
  EXPECT_EQ(kept(), "{a\\b}{z}(a\\b\\w)");
  const SubTreePtr of_c(cached.GetSubTree(c));
  EXPECT_EQ(shown(of_c), "c{x=3}");
  EXPECT_EQ(of_c->GetPath(), "halvoria\\a\\b\\c");
  EXPECT_FALSE(cached.IsSubTreeInCache(c));
  RWCString none = "halvoria\\none";
  EXPECT_EQ(SubTreePtr(cached.GetSubTree(none)), nullptr);
  EXPECT_EQ(kept(), "{a\\b}(a\\b\\w){none}");  // z was the last
  EXPECT_EQ(kept_b, cached.GetCachedSubTree(b, flag));
  of_c->SetValue("x", "mine");
  EXPECT_EQ(shown(*kept_b), "b{c{x=3} w=2}");
}

TEST_F(InProcessCache, KeepsNothingThatIsMissingListedOrTooLarge) {
  open({{"store_non_existing_keys", "false"},
        {"max_subtree_entries_allowed", "2"},
        {"load_on_start", "halvoria\\a\\b\\c;halvoria\\none"},
        {"blacklist", "halvoria\\z"}});
  EXPECT_EQ(kept(), "{a\\b\\c}");
  cached.GetValue("halvoria\\none");
  const Log_Capture log;
  RWCString a = "halvoria\\a", none = "halvoria\\none", z = "halvoria\\z";
  EXPECT_TRUE(SubTreePtr(cached.GetSubTree(a)));
  EXPECT_TRUE(log.has("path <halvoria\\a> with size = <"));
  EXPECT_FALSE(SubTreePtr(cached.GetSubTree(none)));
  EXPECT_TRUE(SubTreePtr(cached.GetSubTree(z)));
  EXPECT_TRUE(log.has("path <halvoria\\z> is in black list,will not search for subtree in cache"));
  EXPECT_EQ(cached.GetValue("halvoria\\z\\y"), "4");
  EXPECT_TRUE(log.has("path <halvoria\\z\\y> is in black list,will not search for value in cache"));
  EXPECT_EQ(kept(), "{a\\b\\c}");
}

TEST_F(InProcessCache, LooksAlongSearchPathsWhereAllIsKept) {
  open({});
  const char* paths[] = {"halvoria\\z", "halvoria\\A\\b"};
  const auto read = [&] {
    const std::unique_ptr<Tree_ValueAndPath> found(cached.GetValue("w", paths, 2));
    return found ? std::string(found->GetPath()) + "=" + found->GetValue() : std::string("NULL");
  };
  EXPECT_EQ(read(), "halvoria\\A\\b=2");  // from the store
  EXPECT_EQ(kept(), "");
  cached.GetValue("halvoria\\z\\w");
  cached.GetValue("halvoria\\a\\b\\w");
  plain.SetValue("halvoria\\z\\w", "new");
  EXPECT_EQ(read(), "halvoria\\A\\b=2");
  EXPECT_EQ(cached.GetValue("w", paths, 0), nullptr);
  EXPECT_EQ(cached.GetValue("w", paths, 1), nullptr);  // an empty hit

  bool flag;
  RWCString z = "halvoria\\z", a = "halvoria\\a";
  cached.GetCachedSubTree(z, flag);
  cached.GetCachedSubTree(a, flag);
  const char* keys[] = {"halvoria\\z", "halvoria\\a\\b"};
  EXPECT_EQ(shown(SubTreePtr(cached.GetSubTree("c", keys, 2))), "c{x=3}");
  EXPECT_EQ(cached.GetSubTree("c", keys, 1), nullptr);
}

TEST_F(InProcessCache, WritesDropWhatTheyConcern) {
  open({{"sub_tree_cache_size", "9"}});
  CFG_SubTree tree = tree_of("c", {{"new", "n"}});
  RWCString none = "halvoria\\none";
  const struct {
    const char* name;
    std::function<int()> write;
    const char* kept;
  } rows[] = {
      {"nothing", [] { return 1; }, "{a}{z}(a\\v)(a\\b\\w)(a\\b\\c\\x)"},
      {"SetValue", [&] { return cached.SetValue("halvoria\\a\\B\\w", "5"); },
       "{z}(a\\v)(a\\b\\w)(a\\b\\c\\x)"},
      {"refused", [&] { return !cached.SetValue("elsewhere\\a\\v", "5"); },
       "{a}{z}(a\\v)(a\\b\\w)(a\\b\\c\\x)"},
      {"DeleteValue", [&] { return cached.DeleteValue("halvoria\\a\\v"); },
       "{z}(a\\b\\w)(a\\b\\c\\x)"},
      {"AddOrReplaceSubTree", [&] { return cached.AddOrReplaceSubTree(&tree, "halvoria\\a\\b"); },
       "{z}(a\\v)"},
      {"AddMoreInfoToSubTree", [&] { return cached.AddMoreInfoToSubTree(&tree, "halvoria\\a\\b"); },
       "{z}(a\\v)"},
      {"with long values",
       [&] { return cached.AddOrReplaceSubTreeWithLongValues(&tree, "halvoria\\a\\b", TRUE); },
       "{z}(a\\v)(a\\b\\w)"},
      {"DeleteSubTree", [&] { return cached.DeleteSubTree("halvoria\\a\\b\\c"); },
       "{z}(a\\v)(a\\b\\w)"},
      {"SetKeyName", [&] { return cached.SetKeyName("halvoria\\a\\b", "none"); }, "{z}(a\\v)"},
      {"SetValueName", [&] { return cached.SetValueName("halvoria\\z", "y", "renamed"); },
       "{a}(a\\v)(a\\b\\w)(a\\b\\c\\x)"},
      {"Rollback", [&] { return cached.Rollback(); }, ""},
  };
  for (const auto& row : rows) {
    read_all();
    EXPECT_TRUE(row.write()) << row.name;
    EXPECT_EQ(kept(), row.kept) << row.name;
    plain.SetValue("halvoria\\a\\v", "1");
    plain.SetValue("halvoria\\a\\b\\w", "2");
    plain.SetValue("halvoria\\a\\b\\c\\x", "3");
  }
}

TEST_F(InProcessCache, WithoutOneOfSubTreesKeepsTheValuesOfDeletedOnes) {
  open({{"sub_tree_cache_size", "0"}});
  read_all();
  EXPECT_EQ(kept(), "(a\\v)(a\\b\\w)(a\\b\\c\\x)");
  EXPECT_TRUE(cached.DeleteSubTree("halvoria\\a\\b"));
  EXPECT_EQ(kept(), "(a\\v)(a\\b\\w)(a\\b\\c\\x)");
  const Log_Capture log;
  bool flag;
  RWCString z = "halvoria\\z";
  EXPECT_EQ(cached.GetCachedSubTree(z, flag), nullptr);
  EXPECT_THAT(lines_of(log), ElementsAre("3 requested subtree from cached, but no cache for "
                                         "subtree was created"));
}

TEST_F(InProcessCache, MergesWithWhatIsStoredNotWithWhatIsKept) {
  open({});
  CFG_SubTree tree = tree_of("b", {{"mine", "m"}});
  for (const auto& merge : std::initializer_list<std::function<int()>>{
           [&] { return cached.AddOrReplaceSubTree(&tree, "halvoria\\a", TRUE); },
           [&] { return cached.AddMoreInfoToSubTree(&tree, "halvoria\\a"); },
           [&] { return cached.AddOrReplaceSubTreeWithLongValues(&tree, "halvoria\\a", TRUE); },
           [&] { return cached.AddMoreInfoToSubTreeWithLongValues(&tree, "halvoria\\a"); }}) {
    read_all();
    plain.SetValue("halvoria\\a\\b\\theirs", "t");
    EXPECT_TRUE(merge());
    EXPECT_EQ(plain.GetValue("halvoria\\a\\b\\theirs"), "t");
    EXPECT_EQ(cached.GetValue("halvoria\\a\\b\\theirs"), "t");
    EXPECT_EQ(cached.GetValue("halvoria\\a\\b\\mine"), "m");
    plain.DeleteSubTree("halvoria\\a\\b\\c");
    plain.DeleteValue("halvoria\\a\\b\\theirs");
  }
}

TEST_F(InProcessCache, ForgetsWhatARollbackUndoes) {
  open({});
  read_all();
  ASSERT_TRUE(cached.StartTransactionUpdate());
  EXPECT_TRUE(cached.SetValue("halvoria\\a\\v", "undone"));
  std::thread([&] { EXPECT_EQ(cached.GetValue("halvoria\\a\\v"), "undone"); }).join();
  EXPECT_TRUE(cached.EndTransactionUpdate(true));
  EXPECT_EQ(cached.GetValue("halvoria\\a\\v"), "1");

  std::thread([&] {  // which ends within its update
    ASSERT_TRUE(cached.StartTransactionUpdate());
    EXPECT_TRUE(cached.SetValue("halvoria\\a\\v", "undone"));
  })
      .join();
  EXPECT_EQ(cached.GetValue("halvoria\\a\\v"), "1");
}

TEST(OverlappingChanges, KeepNothingThatWasReadMeanwhile) {
  const struct {
    const char* read;
    const char* changed;
    bool is_kept;
  } rows[] = {{"h\\a", "h\\a", false}, {"h\\a\\b", "h\\a", false}, {"h\\a", "h\\a\\b\\c", false},
              {"h\\a", "h\\b", true},  {"h\\a", "h\\ab", true},    {"h\\a", "", false}};
  for (const auto& row : rows) {
    cfg::overlapping_changes all;
    bool is_kept = false, is_kept_later = false, was_overtaken = true;
    cfg::overlapping_changes::Use read(all, row.read);
    {
      cfg::overlapping_changes::Use change(all, row.changed);
      change.changed([&](bool is_overtaken) { was_overtaken = is_overtaken; });
    }
    read.keep([&] { is_kept = true; });
    cfg::overlapping_changes::Use(all, row.read).keep([&] { is_kept_later = true; });
    EXPECT_EQ(is_kept, row.is_kept) << row.read << " " << row.changed;
    EXPECT_TRUE(is_kept_later);
    EXPECT_FALSE(was_overtaken);
  }
}

TEST(OverlappingChanges, OfAnUpdateLastUntilItsEnd) {
  cfg::overlapping_changes all;
  const auto is_kept = [&](const char* key) {
    bool kept = false;
    cfg::overlapping_changes::Use(all, key).keep([&] { kept = true; });
    return kept;
  };
  const auto is_kept_elsewhere = [&](const char* key) {
    bool kept = false;
    std::thread([&] { kept = is_kept(key); }).join();
    return kept;
  };
  all.begin_update();
  cfg::overlapping_changes::Use(all, "h\\a").changed([](bool) {});
  EXPECT_TRUE(is_kept("h\\a\\b"));  // it is this thread's
  EXPECT_FALSE(is_kept_elsewhere("h\\a\\b"));
  EXPECT_TRUE(is_kept_elsewhere("h\\b"));
  EXPECT_TRUE(all.end_update());
  EXPECT_FALSE(all.end_update());
  EXPECT_TRUE(is_kept_elsewhere("h\\a\\b"));
}

// Who has written a value never reads one of before: each writer has its own.
TEST_F(InProcessCache, ThreadsReadWhatTheyHaveWritten) {
  open({{"value_cache_size", "4"}, {"sub_tree_cache_size", "2"}, {"value_cache_timeout", "1"}});
  std::atomic<bool> is_over{false};
  std::vector<std::thread> others, writers;
  for (int t = 0; t < 2; ++t) {
    others.emplace_back([&, t] {
      RWCString path = t ? "halvoria\\a" : "halvoria\\a\\b";
      while (!is_over) {
        bool flag;
        const auto kept = cached.GetCachedSubTree(path, flag);
        const SubTreePtr copy(cached.GetSubTree(path));
        if (kept) kept->GetValue("w");
        for (int i = 0; i < 3; ++i) {
          cached.GetValue(RWCString("halvoria\\a\\b\\own") + std::to_string(i));
        }
        if (t) cached.ClearCache();
      }
    });
  }
  for (int t = 0; t < 3; ++t) {
    writers.emplace_back([&, t] {
      const RWCString path = RWCString("halvoria\\a\\b\\own") + std::to_string(t);
      for (int i = 0; i < 60; ++i) {
        const RWCString text(std::to_string(i));
        ASSERT_TRUE(cached.SetValue(path, text));
        ASSERT_EQ(cached.GetValue(path), text);
        RWCString above = "halvoria\\a\\b";
        const SubTreePtr tree(cached.GetSubTree(above));
        ASSERT_EQ(tree->GetValue(path.subString(above.length() + 1)), text);
      }
    });
  }
  for (std::thread& writer : writers) writer.join();
  is_over = true;
  for (std::thread& other : others) other.join();
}

// Entries go off all the time while threads read and write, and then it ends.
TEST(InProcessCacheEnd, WaitsForNothingThatIsAboutToExpire) {
  const TemporaryFolder folder;
  const RWCString store = "sqlite:" + (folder / "tree.db").string();
  CFG_DBRepository plain(store, "test");
  ASSERT_TRUE(plain.Connect());
  configure_cache(plain, {{"value_cache_timeout", "1"}, {"subtree_cache_timeout", "1"}});
  for (int round = 0; round < 3; ++round) {
    auto cached = std::make_unique<Cached>(store, "test");
    ASSERT_TRUE(cached->Connect());
    std::atomic<bool> is_over{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
      threads.emplace_back([&, t] {
        for (int i = 0; !is_over; ++i) {
          const RWCString key("halvoria\\k" + std::to_string(i % 40));
          if (t == 0) cached->SetValue(key + "\\v", "1");
          if (t == 1 && i % 100 == 0) cached->ClearCache();
          cached->GetValue(key + "\\v");
          RWCString path(key);
          const SubTreePtr tree(cached->GetSubTree(path));
        }
      });
    }
    EXPECT_TRUE(comes([&] { return cached->GetValueCacheCounts().expiries > 0; }));
    is_over = true;
    for (std::thread& thread : threads) thread.join();
    cached.reset();  // what was set a moment ago has a second yet
  }
}

// Two that write one value: whatever is kept at last is what is stored.
TEST_F(InProcessCache, KeepsTheLastOfTwoChanges) {
  open({});
  for (int round = 0; round < 100; ++round) {
    std::thread other([&] { cached.SetValue("halvoria\\a\\v", "other's"); });
    cached.SetValue("halvoria\\a\\v", "mine");
    other.join();
    ASSERT_EQ(cached.GetValue("halvoria\\a\\v"), plain.GetValue("halvoria\\a\\v"));
  }
}

}  // namespace
