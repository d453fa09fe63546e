#include <CFG/CFG_CacheBlackList.h>

#include <gtest/gtest.h>

#include <CFG/test_trees.h>
#include <logging/Log_Capture.h>

namespace {

TEST(CacheBlackList, HasItsEntriesAndWhateverHoldsOneBeforeABackslash) {
  CFG_SubTree configuration = tree_of("tool", {{"blacklist", "h\\a\\b;;B c"}});
  CFG_CacheBlackList list(configuration);
  list.Add("h\\added");
  const struct {
    const char* path;
    bool is_listed;
  } cases[] = {
      {"h\\a\\b", true},
      {"h\\a\\b\\c", true},
      {"x\\h\\a\\b\\c", true},
      {"x\\h\\a\\b", false},
      {"h\\a\\bc", false},
      {"h\\a", false},
      {"h\\a\\bc\\h\\a\\b\\", true},
      {"xB c\\y", true},
      {"b c", false},  // as it is written
      {"", true},
      {"\\", false},  // the empty entry is that path only
      {"h\\added\\x", true},
  };
  for (const auto& c : cases) EXPECT_EQ(list.IsInBlackList(c.path), c.is_listed) << c.path;
}

TEST(CacheBlackList, SaysWhatItTakes) {
  CFG_SubTree configuration = tree_of("tool", {{"blacklist", "h\\a;h\\b"}});
  const Log_Capture log;
  const CFG_CacheBlackList list(configuration);
  EXPECT_TRUE(log.has("Going to init black list"));
  EXPECT_TRUE(log.has("inserting path = <h\\b> to black list"));

  CFG_SubTree without = tree_of("tool", {{"enable", "true"}});
  const Log_Capture nothing;
  EXPECT_FALSE(CFG_CacheBlackList(without).IsInBlackList(""));
  EXPECT_FALSE(nothing.has("black list"));
}

}  // namespace
