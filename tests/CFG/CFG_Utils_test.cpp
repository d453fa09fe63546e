#include <gtest/gtest.h>

#include <climits>

#include <CFG/CFG_Utils.h>
#include <tree/Tree_Node.h>
#include "test_trees.h"

namespace {

TEST(Utils, OrdinalsAreSplitOffAtTheFirstDigit) {
  const struct {
    const char *name, *stem;
    long ordinal;
  } cases[] = {{"disk12x", "disk", 12},
               {"disk", "", -1},
               {"", "", -1},
               {"7", "", 7},
               {"a1b2", "a", 1},
               {"x99999999999999999999", "x", LONG_MAX}};
  for (const auto& c : cases) {
    long ordinal = 0;
    EXPECT_EQ(CFG_Utils::ExtractOrdinal(c.name, &ordinal), c.stem) << c.name;
    EXPECT_EQ(ordinal, c.ordinal) << c.name;
  }
}

TEST(Utils, DeletesEveryChildOfAKind) {
  CFG_SubTree tree("t");
  for (int i = 0; i < 100; ++i) {
    tree.SetValue("k" + RWCString(std::to_string(i)) + "\\v", "x");
    tree.SetValue("v" + RWCString(std::to_string(i)), "x");
  }
  tree.SetProperty("k_by_property", "k1");
  for (const char* name : {"<k_by_property>", "Big"}) tree.GetData()->AddKey(name);
  CFG_Utils utils(&tree);
  utils.DeleteAllSubTrees();
  EXPECT_EQ(tree.GetSubTreeNum("") * 1000 + utils->GetValueNum(""), 100);
  utils.DeleteAllValues();
  EXPECT_TRUE(utils.Tree()->IsEmpty());
}

TEST(Utils, ReadsTheFirstNameThatHasAText) {
  CFG_SubTree tree = tree_of("t", {{"a", "1"}, {"b", "2"}});
  CFG_Utils utils(&tree);
  EXPECT_EQ(utils.GetValueCompatible("a", "b", ""), "1");
  EXPECT_EQ(utils.GetValueCompatible("none", "b", "a"), "2");
  EXPECT_EQ(utils.GetValueCompatible("", "none", "a"), "");
}

TEST(Utils, ACopyStandsOnItsOwn) {
  CFG_SubTree tree = tree_of("t", {{"k\\v", "1"}}), unnamed = tree_of("", {{"v", "1"}});
  CFG_SubTree *source = SubTreePtr(tree.GetSubTree("k")).release(), *no_name = &unnamed,
              *none = nullptr;
  const SubTreePtr owned(source), copy(CFG_Utils::MakeACopy(source)),
      second(CFG_Utils::MakeACopy(no_name));
  copy->SetValue("v", "2");
  EXPECT_EQ(shown(tree), "t{k{v=1}}");
  EXPECT_EQ(shown(copy), "k{v=2}");
  EXPECT_EQ(copy->GetPath(), "t\\k");
  EXPECT_EQ(shown(second) + shown(unnamed), "{v=1}{v=1}");
  EXPECT_EQ(CFG_Utils::MakeACopy(none), nullptr);
}

TEST(Utils, MergingLaysTheSecondTreeOverTheFirst) {
  CFG_SubTree a = tree_of("a", {{"x", "1"}, {"k\\y", "1"}}),
              b = tree_of("", {{"x", "2"}, {"k\\z", "2"}});
  CFG_SubTree *first = &a, *second = &b, *none = nullptr;
  EXPECT_EQ(shown(SubTreePtr(CFG_Utils::MergeTrees(first, second))),
            "____temp_____{x=2 k{y=1 z=2}}");
  EXPECT_EQ(shown(SubTreePtr(CFG_Utils::MergeTrees(first, none))), "____temp_____{x=1 k{y=1}}");
  EXPECT_EQ(shown(SubTreePtr(CFG_Utils::MergeTrees(none, second))), "____temp_____{x=2 k{z=2}}");
  EXPECT_EQ(CFG_Utils::MergeTrees(none, none), nullptr);
  EXPECT_EQ(shown(a) + shown(b), "a{x=1 k{y=1}}{x=2 k{z=2}}") << "both keep their names";
}

TEST(Utils, SwappingExchangesNamesNotContents) {
  CFG_SubTree tree = tree_of("t", {{"item1\\v", "one"}, {"item2\\v", "two"}});
  CFG_Utils(&tree).SwapKeysByOrdinal("Item", 1, 2);
  EXPECT_EQ(shown(tree), "t{item2{v=one} item1{v=two}}");
  CFG_Utils(&tree).SwapKeysByOrdinal("item", 1, 3);
  EXPECT_EQ(shown(tree), "t{item2{v=one} item3{v=two}}") << "one is missing";
  for (int i = 4; i < 40; ++i) tree.SetValue(RWCString("item" + std::to_string(i) + "\\v"), "x");
  for (const int i : {17, 30, 3, 17}) CFG_Utils(&tree).SwapKeysByOrdinal("item", 2, i);
  EXPECT_EQ(tree.GetValue("item30\\v"), "x");
  EXPECT_EQ(tree.GetValue("item3\\v"), "x");
  EXPECT_EQ(tree.GetValue("item17\\v"), "two");
  EXPECT_EQ(tree.GetValue("item2\\v"), "one");
}

}  // namespace
