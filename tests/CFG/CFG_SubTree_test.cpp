#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <logging/Log_Capture.h>
#include <tree/Tree_Node.h>
#include "test_trees.h"

namespace {

TEST(SubTree, PathsAreRelativeLowerCasedAndSubstituted) {
  CFG_SubTree tree("Nodes");
  EXPECT_TRUE(tree.SetValue("A\\B\\c", "Text"));
  EXPECT_EQ(shown(tree), "nodes{a{b{c=Text}}}");
  EXPECT_EQ(tree.GetData()->Find("a\\b\\c")->GetTreeValue()->IsChange(), 1);
  tree.SetProperty("node", "A");
  EXPECT_EQ(tree.GetValue("<node>\\b\\C"), "Text");
  EXPECT_EQ(tree.GetValue("a\\b"), "") << "a key has no text";
  EXPECT_EQ(shown(SubTreePtr(tree.GetSubTree(""))), shown(tree));
}

TEST(SubTree, SetValueRefusesWhatWouldMixKeysAndValues) {
  const struct {
    const char *path, *text, *message;
    int expected = FALSE;
  } cases[] = {
      {"", "x", " : value_path.isNull,return FALSE\n"},
      {"new\\v", "", " for path <new\\v> : value_data.isNull,return FALSE\n"},
      {"k", "x", " : value path exist as sub tree,return FALSE\n"},
      {"k\\v\\w", "x", " : value_name parent path is a value,return FALSE\n"},
      {"k\\v\\w\\x", "x", " : value_name parent path is a value,return FALSE\n"},
      {"new\\", "x", " : value name is empty,return FALSE\n"},
      {"k\\v", "other", "", TRUE},
  };
  for (const auto& c : cases) {
    CFG_SubTree tree = tree_of("t", {{"k\\v", "1"}});
    Log_Capture capture;
    EXPECT_EQ(tree.SetValue(c.path, c.text), c.expected) << c.path;
    EXPECT_EQ(shown(tree), c.expected ? "t{k{v=other}}" : "t{k{v=1}}") << c.path;
    EXPECT_THAT(capture.text(), testing::HasSubstr(c.message)) << c.path;
  }
}

TEST(SubTree, DeletingTellsKeysFromValues) {
  const struct {
    const char* path;
    int sub_tree, value;  // answers of DeleteSubTree and DeleteValue
    const char *sub_tree_message, *value_message;
  } cases[] = {
      {"", FALSE, FALSE, "path is empty string", "path is empty string"},
      {"none\\x", FALSE, TRUE, "path none\\x does not exist, return FALSE\n",
       "path none\\x does not exist, return TRUE\n"},
      {"k", TRUE, FALSE, "",
       "path k is a sub tree (try use DeleteSubTree(const RWCString & path)), return FALSE\n"},
      {"k\\v", FALSE, TRUE,
       "path k\\v is a value (try use DeleteValue(const RWCString & path)), return FALSE\n", ""},
      {"\\", FALSE, FALSE, "for path <\\> fail to get value parent", "path \\ is a sub tree"},
  };
  for (const auto& c : cases) {
    CFG_SubTree tree = tree_of("t", {{"k\\v", "1"}}),
                other(tree.GetData()->DuplicateFromHereDown(true));
    Log_Capture capture;
    EXPECT_EQ(tree.DeleteSubTree(c.path), c.sub_tree) << c.path;
    EXPECT_THAT(capture.text(), testing::HasSubstr(c.sub_tree_message)) << c.path;
    EXPECT_EQ(other.DeleteValue(c.path), c.value) << c.path;
    EXPECT_THAT(capture.text(), testing::HasSubstr(c.value_message)) << c.path;
    EXPECT_EQ(shown(tree), c.sub_tree ? "t{}" : "t{k{v=1}}");
    EXPECT_EQ(shown(other), c.value && c.path == std::string("k\\v") ? "t{k{}}" : "t{k{v=1}}");
  }
}

TEST(SubTree, HandlesShareNodesAndOutliveEachOther) {
  SubTreePtr part;
  {
    CFG_SubTree tree = tree_of("t", {{"k\\v", "1"}});
    part.reset(tree.GetSubTree("k"));
    part->SetValue("v", "2");
    EXPECT_EQ(shown(tree), "t{k{v=2}}");
    EXPECT_EQ(part->GetPath(), "t\\k");
    CFG_SubTree copy(*part), assigned("x");
    assigned = copy;
    assigned = *&assigned;
    assigned.SetValue("w", "3");
  }
  EXPECT_EQ(shown(part), "k{v=2 w=3}");
  EXPECT_EQ(part->GetPath(), "t\\k");
}

TEST(SubTree, PositionsCountKeysAndValuesApart) {
  CFG_SubTree tree = tree_of("t", {{"k\\v1", "1"}, {"k\\a", ""}, {"k\\v2", "2"}, {"k\\b\\x", "3"}});
  EXPECT_EQ(tree.GetValue("k", 1), "2");
  EXPECT_EQ(tree.GetValueName("k", 1), "v2");
  EXPECT_EQ(SubTreePtr(tree.GetSubTree("k", 1))->GetPath(), "t\\k\\b");
  for (const int index : {-1, 2}) {
    EXPECT_EQ(tree.GetValue("k", index), "");
    EXPECT_EQ(tree.GetSubTree("k", index), nullptr);
  }
  EXPECT_EQ(tree.GetValueNum("k"), 2);
  EXPECT_EQ(tree.GetSubTreeNum("k"), 2);
  EXPECT_EQ(tree.GetSubTreeNum("k\\v1"), 0);
  EXPECT_EQ(tree.GetSubTreeEntriesCount(""), 6);
  EXPECT_EQ(tree.GetSubTree("k\\v1"), nullptr);
  EXPECT_FALSE(tree.IsSubTreeExist("k\\v1"));
  EXPECT_TRUE(tree.IsSubTreeExist("k\\a"));
}

TEST(SubTree, SearchGivesPathsRelativeToTheSearchedKey) {
  CFG_SubTree tree = tree_of("t", {{"k\\name", "1"}, {"k\\b\\name\\x", "2"}, {"name", "3"}});
  const std::unique_ptr<String_Arr> found(tree.Search("NAME", "k"));
  ASSERT_TRUE(found);
  ASSERT_EQ(found->GetArrLen(), 2);
  EXPECT_STREQ(found->GetStr(0), "name");
  EXPECT_STREQ(found->GetStr(1), "b\\name");
  EXPECT_EQ(tree.Search("", "k"), nullptr);
  EXPECT_EQ(tree.Search("name", "none"), nullptr);
  EXPECT_EQ(tree.Search("name", "k\\name"), nullptr);
}

TEST(SubTree, WritingASubtreeReplacesTheChildOfItsName) {
  const struct {
    const char *name, *path, *expected;
  } cases[] = {
      {"k", "", "t{v=2 k{n=new}}"},
      {"v", "", "t{k{x=1} v{n=new}}"},
      {"n", "k\\sub", "t{k{x=1 sub{n{n=new}}} v=2}"},
      {"n", "v", "t{k{x=1} v=2}"},
      {"t", "k", "t{k{x=1 t{n=new}} v=2}"},
      {"t", "", "t{n=new}"},
  };
  for (const auto& c : cases) {
    CFG_SubTree tree = tree_of("t", {{"k\\x", "1"}, {"v", "2"}}),
                given = tree_of(c.name, {{"n", "new"}});
    EXPECT_EQ(tree.AddOrReplaceSubTree(&given, c.path), c.path != std::string("v")) << c.name;
    EXPECT_EQ(shown(tree), c.expected) << c.name << " at " << c.path;
    given.SetValue("n", "changed later");
    EXPECT_EQ(shown(tree), c.expected) << "what was written is a copy";
  }
  CFG_SubTree tree = tree_of("t", {{"k\\x", "1"}}), given("t");
  tree.GetData()->SetVirtualParentPath("halvoria\\system");
  tree.AddOrReplaceSubTree(&given, "");
  EXPECT_EQ(tree.GetPath(), "halvoria\\system\\t");
  tree.AddOrReplaceSubTree(&tree, "");
  EXPECT_TRUE(tree.AddOrReplaceSubTree(&tree, "own")) << "also a tree into itself";
  EXPECT_EQ(shown(tree), "t{own{t{}}}");
}

TEST(SubTree, RenamingKeepsNamesUnique) {
  CFG_SubTree tree = tree_of("t", {{"a\\x", "1"}, {"b", "2"}});
  EXPECT_TRUE(tree.SetKeyName("A", "C"));
  EXPECT_FALSE(tree.SetKeyName("c", "b"));
  EXPECT_FALSE(tree.SetKeyName("c", ""));
  EXPECT_FALSE(tree.SetKeyName("c", "x\\y"));
  EXPECT_FALSE(tree.SetKeyName("none", "d"));
  EXPECT_TRUE(tree.SetKeyName("", "root"));
  EXPECT_EQ(shown(tree), "root{c{x=1} b=2}");
  EXPECT_EQ(tree.GetValue("c\\x"), "1");
}

TEST(SubTree, WithoutDataEveryReadIsEmptyAndSaysSo) {
  CFG_SubTree none{Tree_NodePtr()}, other("t");
  Log_Capture capture;
  EXPECT_EQ(none.GetValue("x"), "");
  EXPECT_EQ(none.GetValue("", 0), "");
  EXPECT_EQ(none.GetValueName("", 0), "");
  EXPECT_EQ(none.GetValueNum(""), 0);
  EXPECT_EQ(none.GetSubTreeNum(""), 0);
  EXPECT_EQ(none.GetSubTreeEntriesCount(""), 0);
  EXPECT_EQ(none.GetSubTreeValues(""), nullptr);
  EXPECT_EQ(none.GetSubTreePaths(""), nullptr);
  EXPECT_EQ(none.GetSubTree(""), nullptr);
  EXPECT_EQ(none.GetSubTree("", 0), nullptr);
  EXPECT_FALSE(none.IsSubTreeExist(""));
  EXPECT_FALSE(none.IsEmpty());
  EXPECT_EQ(none.GetKeyName(), "");
  EXPECT_EQ(none.GetPath(), "");
  EXPECT_EQ(none.Search("x", ""), nullptr);
  EXPECT_FALSE(none.SetValue("x", "y"));
  EXPECT_FALSE(none.DeleteValue("x"));
  EXPECT_FALSE(none.DeleteSubTree("x"));
  EXPECT_FALSE(none.SetKeyName("", "y"));
  EXPECT_FALSE(none.AddOrReplaceSubTree(&other, ""));
  int errors = 0;
  for (const auto& line : capture.lines()) {
    if (line.level != 3) continue;
    ++errors;
    EXPECT_NE(line.text.find("ata is null"), std::string::npos) << line.text;
  }
  EXPECT_EQ(errors, 20);
  EXPECT_EQ(none.GetTotalSize(), 0u);
  EXPECT_EQ(none.MergeSubTree(&other, ""), -1);
  EXPECT_EQ(none.MergeDeletionSubTree(&other), 0);
}

// --- merges that move nodes ----------------------------------------------------------------------

TEST(MovingMerge, TheSourceWinsWhereKindOrTextDiffer) {
  CFG_SubTree tree = tree_of(
      "t", {{"same", "1"}, {"text", "old"}, {"key\\in", "1"}, {"value", "1"}, {"both\\mine", "1"}});
  CFG_SubTree other = tree_of("t", {{"same", "1"},
                                    {"text", "new"},
                                    {"key", "now a value"},
                                    {"value\\in", "2"},
                                    {"both\\theirs", "2"},
                                    {"z\\deep\\v", "3"},
                                    {"a", "4"}});
  EXPECT_EQ(tree.MergeSubTree(&other, ""), 0);
  EXPECT_EQ(
      shown(tree),
      "t{same=1 both{mine=1 theirs=2} a=4 z{deep{v=3}} value{in=2} key=now a value text=new}");
  const SubTreePtr moved(tree.GetSubTree("z\\deep"));
  other = CFG_SubTree("gone");
  EXPECT_EQ(moved->GetPath(), "t\\z\\deep")
      << "the end of the source leaves the moved nodes where they are";
}

TEST(MovingMerge, StopsAtTheGivenKeyAndRefusesOtherRoots) {
  CFG_SubTree tree = tree_of("t", {{"a\\x", "1"}, {"b\\x", "1"}});
  CFG_SubTree other = tree_of("t", {{"a\\x", "2"}, {"b\\x", "2"}}),
              stranger = tree_of("s", {{"x", "1"}});
  EXPECT_EQ(tree.MergeSubTree(&other, "t\\a"), 0);
  EXPECT_EQ(shown(tree), "t{a{x=1} b{x=2}}");
  EXPECT_EQ(tree.MergeSubTree(&other, "t"), 0);
  EXPECT_EQ(shown(tree), "t{a{x=1} b{x=2}}");
  Log_Capture capture;
  EXPECT_EQ(tree.MergeSubTree(&stranger, ""), -1);
  EXPECT_EQ(capture.last(), "MergeSubTree: trying to merge two different trees\n");
  EXPECT_EQ(tree.MergeSubTree(nullptr, ""), 0);
  EXPECT_EQ(tree.MergeSubTree(&tree, ""), 0);
  EXPECT_EQ(shown(tree), "t{a{x=1} b{x=2}}");
}

TEST(MovingMerge, DeletionsAreNamedByLeaves) {
  CFG_SubTree tree = tree_of("t", {{"a\\x", "1"}, {"a\\y", "2"}, {"b\\c\\d", "3"}});
  CFG_SubTree deletions = tree_of("t", {{"a\\x", "any"}, {"b\\c", ""}, {"none\\z", "any"}}),
              stranger("s");
  Log_Capture capture;
  EXPECT_EQ(tree.MergeDeletionSubTree(&deletions), 0);
  EXPECT_EQ(shown(tree), "t{a{y=2} b{}}");
  EXPECT_EQ(capture.last(), "MergeDeletionTreeNodes: Trying to merge null nodes\n");
  EXPECT_EQ(tree.MergeDeletionSubTree(&stranger), -1);
  EXPECT_EQ(tree.MergeDeletionSubTree(nullptr), 0);
  CFG_SubTree all("t");
  EXPECT_EQ(tree.MergeDeletionSubTree(&all), 0);
  EXPECT_EQ(shown(tree), "t{a{y=2} b{}}") << "a root without a parent stays";
  EXPECT_EQ(tree.MergeDeletionSubTree(&tree), 0);
  EXPECT_EQ(shown(tree), "t{a{}}");
}

// Deep enough to overflow the stack of anything that recurses.
TEST(MovingMerge, DepthDoesNotMatter) {
  std::string path;
  for (int i = 0; i < 100'000; ++i) path += "k\\";
  const auto deep = [&](const char* name) {
    CFG_SubTree tree("t");
    tree.SetValue(path + name, "1");
    return tree;
  };
  CFG_SubTree tree = deep("mine"), other = deep("theirs"), deletions = deep("mine");
  EXPECT_EQ(tree.MergeSubTree(&other, "t\\no such key"), 0);
  EXPECT_EQ(tree.GetSubTreeEntriesCount(""), 100'002);
  EXPECT_EQ(tree.MergeDeletionSubTree(&deletions), 0);
  EXPECT_EQ(tree.GetValue(path + "mine"), "");
  EXPECT_EQ(tree.GetValue(path + "theirs"), "1");
  CFG_SubTree holder("h");
  EXPECT_TRUE(holder.AddOrReplaceSubTree(&tree, ""));
  EXPECT_TRUE(holder.AddOrReplaceSubTree(&other, "", TRUE));
  EXPECT_TRUE(holder.DeleteSubTree("t"));
}

}  // namespace
