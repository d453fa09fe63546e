#include <gtest/gtest.h>

#include <CFG/CFG_IteratorTree.h>
#include <CFG/CFG_IteratorValue.h>
#include <tree/Tree_Node.h>
#include "test_trees.h"

namespace {

// "1=name 3=other": the ordinals and what stands there.
std::string walked(CFG_IteratorTree& it) {
  std::string text;
  for (; it.is_valid(); ++it) {
    text += std::to_string(it.ordinal()) + "=" + SubTreePtr(it.value())->GetKeyName().str() + " ";
  }
  return text;
}

TEST(Iterators, EntriesComeByOrdinalWhateverTheirOrder) {
  const struct {
    std::vector<const char*> names;
    const char *prefix, *expected;
    long entries;
  } cases[] = {
      {{"a3", "a1"}, "a", "1=a1 3=a3 ", 3},
      {{"item", "item1", "item2", "item4"}, "Item", "1=item1 2=item2 4=item4 ", 4},
      {{"item1", "item"}, "item", "1=item ", 2},
      {{"b1", "a", "x", "y"}, "a", "1=a ", 4},
      {{"a2", "a02", "a002x"}, "a", "2=a002x ", 3},
      {{"a0", "a-1", "ab1", "a"}, "a", "1=a ", 4},
      {{"a2147483647", "a2147483648", "a99999999999999999999", "a5"},
       "a",
       "5=a5 2147483647=a2147483647 ",
       2147483647},
      {{"1", "2"}, "", "1=1 2=2 ", 2},
      {{}, "a", "", 0},
      {{"b"}, "a", "", 1},
  };
  for (const auto& c : cases) {
    CFG_SubTree tree("t");
    for (const char* name : c.names) tree.SetValue(RWCString(name) + "\\v", "x");
    CFG_IteratorTree it(&tree, c.prefix);
    EXPECT_EQ(walked(it), c.expected) << c.expected;
    EXPECT_EQ(it.entries(), c.entries) << c.expected;
    EXPECT_EQ(it.ordinal(), c.entries + 1) << "past the end";
    EXPECT_EQ(it.value(), nullptr);
    it.reset();
    EXPECT_EQ(walked(it), c.expected);
  }
}

TEST(Iterators, ValuesAreMatchedIgnoringCase) {
  CFG_SubTree tree("t");
  tree.GetData()->Add(new Tree_Node("Server2", "two", 0));
  tree.GetData()->Add(new Tree_Node("server1", "one", 0));
  tree.GetData()->Add(new Tree_Node("server4", "four", 0));
  CFG_IteratorValue it(&tree, "server");
  EXPECT_EQ(it.value(), "one");
  it++;
  EXPECT_EQ(it.value(), "two");
  EXPECT_FALSE(it.set_pos(2));
  EXPECT_EQ(it.value(), "");
  for (const long position : {-2L, 4L, 5'000'000'000L, -5'000'000'000L})
    EXPECT_FALSE(it.set_pos(position));
  EXPECT_TRUE(it.set_pos(3));
  EXPECT_EQ(it.value(), "four");
  CFG_IteratorValue copy(it);
  copy.reset();
  EXPECT_EQ(copy.ordinal() + it.ordinal(), 5);
}

TEST(Iterators, ANullSubtreeHasNoEntries) {
  CFG_IteratorTree it(nullptr, "a");
  EXPECT_FALSE(it.is_valid());
  EXPECT_EQ(it.entries(), 0);
  ++it;
  EXPECT_EQ(it.value(), nullptr);
}

}  // namespace
