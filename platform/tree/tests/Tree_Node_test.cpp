#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <thread>

#include <tree/Tree_Node.h>
#include <tree/Tree_Walk.h>

namespace {

// "a\b=1" is a value, "a\c" a key.
Tree_NodePtr tree(const char* root, std::initializer_list<const char*> lines) {
  Tree_NodePtr top = new Tree_Node(root);
  for (const std::string line : lines) {
    const size_t equals = line.find('=');
    if (equals == std::string::npos) {
      top->GetOrCreateRelativeNode(Tree_Path(line), top);
      continue;
    }
    const std::string path = line.substr(0, equals);
    const size_t cut = path.rfind('\\');
    const Tree_NodePtr parent = cut == std::string::npos ? top
                                                         : top->GetOrCreateRelativeNode(
                                                               Tree_Path(path.substr(0, cut)), top);
    const std::string name = cut == std::string::npos ? path : path.substr(cut + 1);
    EXPECT_TRUE(parent->Add(
        new Tree_Node(RWCString(name), new Tree_Value(RWCString(line.substr(equals + 1)), 0))));
  }
  return top;
}

// The tree as text, one node a line in tree order.
std::string text_of(const Tree_NodePtr& top) {
  std::string out;
  if (!top) return "(null)";
  for (Tree_PathsWalk walk(top.get(), ""); walk; walk.Next()) {
    out += walk.Path() + (walk->IsLeaf() ? "=" + std::string(walk->GetText()) : "") + "\n";
  }
  return out;
}

std::string joined(String_Arr* array) {
  const std::unique_ptr<String_Arr> owned(array);
  std::string out;
  for (int i = 0; owned && i < owned->GetArrLen(); ++i) out += std::string(owned->GetStr(i)) + ";";
  return out;
}

Tree_NodePtr chain(int depth) {
  Tree_NodePtr top = new Tree_Node("top");
  std::string path;
  for (int i = 0; i < depth; ++i) path += "k\\";
  const Tree_NodePtr last = top->GetOrCreateRelativeNode(Tree_Path(path), top);
  last->Add(new Tree_Node("v", "deep", 1));
  return top;
}

TEST(Tree, PathsOfAnyLengthAreSplitAtTheirBackslashes) {
  std::mt19937 random(3);
  for (int length = 0; length < 300; ++length) {
    std::string path;
    while (static_cast<int>(path.size()) < length) path += "\\ab"[random() % 3];
    std::vector<std::string> expected(1), seen;
    for (const char c : path)
      c == '\\' ? void(expected.emplace_back()) : void(expected.back() += c);
    std::erase(expected, "");
    std::string_view component;
    for (Tree_PathWalk walk(path); walk.Next(component);) seen.emplace_back(component);
    ASSERT_EQ(seen, expected) << path;
  }
}

TEST(Tree, LookupsFollowPathsAndTellKeysFromValues) {
  Tree_NodePtr top =
      tree("root", {"sys\\nodes\\alpha\\ip=10.0.0.1", "sys\\nodes\\beta", "sys\\name=x"});
  EXPECT_EQ(top->GetValue("sys\\nodes\\alpha\\ip", top), "10.0.0.1");
  EXPECT_EQ(top->GetValue("sys\\nodes\\alpha", top), "");
  EXPECT_EQ(top->GetValue("sys\\nodes\\gamma\\ip", top), "");
  EXPECT_EQ(top->GetValue("sys\\name\\below", top), "");
  EXPECT_EQ(top->Find(""), top.get());
  EXPECT_EQ(top->Find("\\sys\\\\name\\"), top->Find("sys\\name"));
  EXPECT_EQ(top->GetRelativeNode(Tree_Path("sys\\nope"), top), Tree_Node::NULL_TREE_NODE_PTR);
  EXPECT_EQ(&top->GetRelativeSubTreeByRef(Tree_Path(""), top), &top);
  EXPECT_EQ(top->GetRelativeSubTreeByRef(Tree_Path("sys\\nodes"), top)->GetPath(),
            "root\\sys\\nodes");
  EXPECT_EQ(top->GetRelativeSubTreeByRef("sys\\nodes", 1, top)->GetKeyName(), "beta");
  EXPECT_TRUE(top->GetRelativeSubTreeByRef("sys\\nodes", 2, top).IsNull());
  EXPECT_TRUE(top->GetRelativeSubTreeByRef("sys\\nodes", -1, top).IsNull());
  EXPECT_EQ(top->GetValueName("sys", 0, top), "name");
  EXPECT_EQ(top->GetValue("sys", 0, top), "x");
  EXPECT_EQ(top->GetValueNum("sys", top), 1);
  EXPECT_EQ(top->GetSubTreeNum("sys\\nodes", top), 2);
  EXPECT_EQ(top->GetSubTreeEntriesCount("sys", top), 5);
  EXPECT_EQ(joined(top->GetSubTreePaths("sys\\nodes", top)), "alpha;beta;");
  EXPECT_EQ(top->GetSubTreePaths("sys\\name", top), nullptr);
  EXPECT_TRUE(top->GetOrCreateRelativeNode(Tree_Path("sys\\name\\x\\y"), top)->IsLeaf());
}

TEST(Tree, SearchGivesRelativeOrFullPathsOfEverythingBelow) {
  Tree_NodePtr top = tree("root", {"a\\x=1", "x\\b\\x", "y=2"});
  top->SetVirtualParentPath("full\\way");
  EXPECT_EQ(joined(top->Search("x", top, 1)), "a\\x;x;x\\b\\x;");
  EXPECT_EQ(joined(top->Search("y", top, 0)), "full\\way\\root\\y;");
  EXPECT_EQ(joined(top->Search("root", top, 0)), "");
}

TEST(Tree, AddKeepsNamesUniqueAndANodeUnderOneKey) {
  Tree_NodePtr top = tree("root", {"a\\x=1", "b", "v=1"});
  EXPECT_FALSE(top->Add(new Tree_Node("a")));
  EXPECT_FALSE(top->Add(new Tree_Node("")));
  EXPECT_FALSE(top->Add(Tree_NodePtr()));
  EXPECT_FALSE(top->Find("v")->Add(new Tree_Node("below")));
  EXPECT_FALSE(top->Find("a")->Add(top)) << "a key must not come to hang below itself";
  EXPECT_TRUE(top->Find("b")->Add(top->GetChildAt(0)));
  EXPECT_EQ(text_of(top), "root\nroot\\b\nroot\\b\\a\nroot\\b\\a\\x=1\nroot\\v=1\n");
  EXPECT_FALSE(top->Find("b")->SetKeyName("v"));
  EXPECT_TRUE(top->Find("b")->SetKeyName("c"));
  EXPECT_EQ(top->GetValue("c\\a\\x", top), "1");
  EXPECT_EQ(top->Find("b"), nullptr);
}

TEST(Tree, ANodeOutlivesItsTreeWhileSomebodyHoldsIt) {
  Tree_NodePtr top = tree("root", {"a\\b\\x=1", "a\\c=2", "d\\e=3"});
  top->SetVirtualParentPath("far\\up");
  const Tree_NodePtr held = top->Find("a\\b"), value = top->Find("a\\c");
  const RWCString path = held->GetPath();
  top = nullptr;
  EXPECT_EQ(held->GetParent(), nullptr);
  EXPECT_EQ(held->GetPath(), path);
  EXPECT_EQ(value->GetPath(), "far\\up\\root\\a\\c");
  EXPECT_EQ(held->DuplicateFromHereDown(true)->GetPath(), path);
  EXPECT_EQ(text_of(held), "b\nb\\x=1\n");

  // What is assigned to the nothing of one answer is not the next answer.
  held->GetChildAt(7) = value;
  EXPECT_TRUE(held->GetChildAt(7).IsNull());
  EXPECT_TRUE(Tree_Node::NULL_TREE_NODE_PTR.IsNull());

  Tree_NodePtr stays = new Tree_Node("unowned");
  Tree_Node* raw = stays.get();
  stays.SetOwning(0);
  stays = nullptr;
  stays = raw;
  EXPECT_EQ(stays->GetKeyName(), "unowned");
  stays.SetOwning(1);
}

TEST(Tree, CopiesShareNothingAndKnowWhereTheyCameFrom) {
  Tree_NodePtr top = tree("root", {"a\\b\\x=1"});
  top->SetVirtualParentPath("above");
  const Tree_NodePtr copy = top->Find("a\\b")->DuplicateFromHereDown(true);
  copy->Find("x")->GetTreeValue()->SetValue("2");
  EXPECT_EQ(top->GetValue("a\\b\\x", top), "1");
  EXPECT_EQ(copy->GetPath(), "above\\root\\a\\b");
  EXPECT_EQ(copy->GetVirtualParentPath(), "above\\root\\a");
}

TEST(Tree, CopiesOfKeysOfAnySizeGoOnLikeTheirOriginals) {
  for (const int children : {1, 4, 15, 16, 17, 40, 300}) {
    Tree_NodePtr top = new Tree_Node("root");
    for (int i = 0; i < children; ++i) {
      const std::string name = "child" + std::to_string(i);
      ASSERT_TRUE(i % 3 ? top->AddValue(name, std::string(static_cast<size_t>(i), 'x'), i % 2)
                        : top->AddKey(name));
      ASSERT_EQ(top->AddKey(name), nullptr);
    }
    for (int i = 0; i < children; i += 4) top->Remove(RWCString("child" + std::to_string(i)));
    Tree_NodePtr copy = top->DuplicateFromHereDown(true);
    ASSERT_EQ(text_of(copy), text_of(top));
    for (const Tree_NodePtr& each : {copy, top}) {
      for (int i = 0; i < children; i += 2) each->AddValue("child" + std::to_string(i), "again", 0);
      each->Remove(RWCString("child1"));
      EXPECT_EQ(each->GetValue("child0", each), "again");
      EXPECT_EQ(each->GetChildAt(each->GetChildCount() - 1)->GetParent(), each.get());
    }
    ASSERT_EQ(text_of(copy), text_of(top));
    ASSERT_EQ(copy->GetSubTreeNum("", copy), top->GetSubTreeNum("", top));
  }
}

// More names than a thread keeps at hand, dropped by other threads than those that made them.
TEST(Tree, NamesAreOneForAllThreads) {
  constexpr int count = 3000;
  const auto name = [](int i) { return Tree_Name("name" + std::to_string(i)); };
  std::vector<Tree_Name> made;
  for (int i = 0; i < count; ++i) made.push_back(name(i));
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([&, t] {
      std::vector<Tree_Name> mine;
      for (int i = 0; i < 4 * count; ++i) {
        const int which = i % 5 ? i * (7 + t) % count : i % 40;
        mine.push_back(i % 2 ? name(which) : made[static_cast<size_t>(which)]);
        EXPECT_TRUE(mine.back() == made[static_cast<size_t>(which)]);
        if (i % 3 == 0) std::swap(mine.front(), mine.back()), mine.pop_back();
        const Tree_Name passing("passing" + std::to_string(i % 50));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  made.clear();
  for (int i = 0; i < count; ++i) EXPECT_EQ(name(i).view(), "name" + std::to_string(i));
}

TEST(Tree, MergesTakeTheOverlayWhereBothHaveAName) {
  const Tree_NodePtr base =
      tree("base", {"k\\same=old", "k\\only=1", "turn=v", "fold\\x=1", "deep\\l\\b=1"});
  const Tree_NodePtr over =
      tree("over", {"k\\same=new", "k\\more=2", "turn\\now=key", "fold=v", "deep\\l\\o=2"});
  EXPECT_EQ(
      text_of(Tree_Node::Merge(base, over)),
      "base\nbase\\k\nbase\\k\\same=new\nbase\\k\\only=1\nbase\\k\\more="
      "2\nbase\\deep\nbase\\deep\\l\n"
      "base\\deep\\l\\b=1\nbase\\deep\\l\\o=2\nbase\\turn\nbase\\turn\\now=key\nbase\\fold=v\n");
  EXPECT_EQ(text_of(Tree_Node::MergeOneLevel(tree("b", {"k\\x=1", "v=1", "w=1"}),
                                             tree("o", {"k\\y=2", "v=2"}))),
            "b\nb\\v=2\nb\\w=1\nb\\k\nb\\k\\y=2\n");
  EXPECT_EQ(text_of(Tree_Node::Merge(nullptr, over)), text_of(over));
}

TEST(Tree, ChangesAreTheChangedValuesAndTheKeysOnTheWay) {
  const Tree_NodePtr top = tree("t", {"a\\x=1", "a\\b\\y=2", "c\\z=3", "d"});
  EXPECT_TRUE(Tree_Node::GetChangesTreeNode(top).IsNull());
  top->Find("a\\b\\y")->GetTreeValue()->SetIsChange(1);
  top->Find("c\\z")->GetTreeValue()->SetIsChange(1);
  EXPECT_EQ(text_of(Tree_Node::GetChangesTreeNode(top)),
            "t\nt\\a\nt\\a\\b\nt\\a\\b\\y=2\nt\\c\nt\\c\\z=3\n");
}

TEST(Tree, EmptyBranchesGoAsAWhole) {
  const Tree_NodePtr top = tree("t", {"a\\b\\c", "a\\d\\v=1", "e\\f", "g=1"});
  EXPECT_TRUE(top->RemoveEmptyBranches());
  EXPECT_EQ(text_of(top), "t\nt\\a\nt\\a\\d\nt\\a\\d\\v=1\nt\\g=1\n");
  EXPECT_FALSE(top->RemoveEmptyBranches());
}

TEST(Tree, RecordsBuildTheTreeTheyWereMadeFrom) {
  const Tree_NodePtr top =
      tree("t", {"a b\\x=1", "a\\b\\y=2", "a\\z", "v=long text that does not fit in the node"});
  Tmr_PtrSortedVector<Tree_NodeInfo> full;
  Tree_Node::ConvertTreeNodeToVec(top, "pre\\fix", &full);
  ASSERT_EQ(full.entries(), 8u);
  EXPECT_EQ(full[0]->GetPath(), "pre\\fix\\t");
  EXPECT_EQ(full[1]->GetParentPath(), "pre\\fix\\t");

  Tmr_PtrSortedVector<Tree_NodeInfo> relative;
  for (size_t i = 1; i < full.entries(); ++i) {
    relative.append(new Tree_NodeInfo(full[i]->GetPath().subString(10), full[i]->GetValue(), 1));
  }
  const Tree_NodePtr built = top->BuildSubTree(&relative, "pre\\fix\\t");
  EXPECT_EQ(built->GetVirtualParentPath(), "pre\\fix\\t");
  Tmr_PtrSortedVector<Tree_NodeInfo> again;
  Tree_Node::ConvertTreeNodeToVec(built, "pre\\fix", &again);
  ASSERT_EQ(again.entries(), full.entries());
  for (size_t i = 0; i < full.entries(); ++i) {
    EXPECT_EQ(again[i]->GetPath(), full[i]->GetPath());
    EXPECT_EQ(again[i]->GetValue(), full[i]->GetValue());
  }
}

TEST(Tree, RecordsThatContradictEachOtherBuildNothing) {
  const struct {
    const char* paths[2];
    const char* values[2];
    const char* expected;
  } rows[] = {
      {{"a", "a"}, {"1", "2"}, "t\nt\\a=2\n"},
      {{"a", "a"}, {"", ""}, "t\nt\\a\n"},
      {{"a", "a\\b\\c"}, {"", "1"}, "t\nt\\a\nt\\a\\b\nt\\a\\b\\c=1\n"},
      {{"a", "a"}, {"", "1"}, "(null)"},
      {{"a", "a"}, {"1", ""}, "(null)"},
      {{"a", "a\\b"}, {"1", "2"}, "(null)"},
  };
  for (const auto& row : rows) {
    Tmr_PtrSortedVector<Tree_NodeInfo> records;
    for (int i : {0, 1}) records.append(new Tree_NodeInfo(row.paths[i], row.values[i]));
    EXPECT_EQ(text_of(tree("scratch", {})->BuildSubTree(&records, "t")), row.expected);
  }
}

TEST(Tree, AHundredThousandLevelsNeedNoStack) {
  const int depth = 100000;
  Tree_NodePtr top = chain(depth);
  Tree_NodePtr copy = top->DuplicateFromHereDown(true);
  EXPECT_EQ(copy->GetNodeNum(), depth + 2);
  EXPECT_EQ(Tree_Node::Merge(top, copy)->GetNodeNum(), depth + 2);
  EXPECT_EQ(Tree_Node::GetChangesTreeNode(top)->GetNodeNum(), depth + 2);
  EXPECT_FALSE(top->RemoveEmptyBranches());
  Tree_Node::ChangeTreeNodePtrProtection(copy, Tree_Node::TRUE_BOOL);
  const std::unique_ptr<String_Arr> found(top->Search("v", top, 1));
  EXPECT_EQ(found->GetArrLen(), 1);
  EXPECT_EQ(std::string(found->GetStr(0)).size(), size_t{2} * depth + 1);
}

TEST(Tree, RecordsAreCutBetweenCharacters) {
  const std::string value(3070, 'v'), path(598, 'p');
  const Tree_ValueAndPath record(RWCString(path + "\xC3\xA4"), RWCString(value + "\xC3\xA4"));
  EXPECT_EQ(record.GetValue(), value);
  EXPECT_EQ(record.GetPath(), path);
  EXPECT_EQ(std::string(Tree_ValueAndPath((path + "q").c_str(), (value + "w").c_str()).GetValue()),
            value + "w");
}

Tree_Node* walked(Tree_Node* node, const std::string& path) {
  Tree_PathWalk walk(path);
  for (std::string_view name; node && walk.Next(name);) node = node->Child(name);
  return node;
}

// A tree that is read so much that it has an index goes through changes; whatever is looked
// up must be what the walk from key to key leads to.
TEST(Tree, ManyLookupsChangeNoAnswerWhateverChangesBetweenThem) {
  std::mt19937 random(7);
  const auto below = [&](size_t n) { return static_cast<size_t>(random() % n); };
  const auto name_of = [&] {
    const char* const names[] = {"k0", "k1", "k2", "a key with more than 16 bytes"};
    return std::string(names[below(4)]);
  };
  const auto path_of = [&] {
    std::string path = name_of();
    for (size_t levels = below(4); levels > 0; --levels) path += "\\" + name_of();
    return path;
  };
  const auto odd_path = [&] {  // with empty components at places
    std::string path = path_of();
    for (size_t at = path.size(); at-- > 0;) {
      if (path[at] == '\\' && below(4) == 0) path.insert(at, "\\");
    }
    return (below(4) ? "" : "\\") + path + (below(4) ? "" : "\\\\");
  };
  const Tree_NodePtr top = tree("t", {});
  for (int step = 0; step < 3000; ++step) {
    const Tree_NodePtr node = walked(top.get(), path_of()), other = walked(top.get(), path_of());
    // No path leads to a name with a backslash, though its text may look as if.
    const std::string name = below(8) ? name_of() : path_of();
    const size_t action = below(8);
    if (action < 4) top->GetOrCreateRelativeNode(Tree_Path(path_of()), top);
    if (action == 4 && node) node->Add(new Tree_Node(name, "text", 0));
    if (action == 5 && node) node->SetKeyName(name);
    if (action == 6 && node && node->GetParent()) node->GetParent()->Remove(node);
    if (action == 7 && node && other) other->Add(node);
    if (top->GetNodeNum() > 500) top->Remove(top->GetChildAt(0));
    if (step % 50 == 0) {  // enough lookups for an index
      top->GetOrCreateRelativeNode(Tree_Path(RWCString("k0\\k1\\k2\\k0")), top);
      for (int i = 0; i < 600; ++i) top->Find("k0\\k1\\k2\\k0");
    }
    for (int i = 0; i < 5; ++i) {
      for (const std::string& asked : {path_of(), odd_path()}) {
        ASSERT_EQ(top->Find(asked), walked(top.get(), asked)) << asked;
      }
    }
  }
  EXPECT_EQ(top->Find(""), top.get());
  EXPECT_EQ(top->Find("\\\\"), top.get());
}

TEST(Tree, ThreadsReadWhileOthersCopyAndDrop) {
  Tree_NodePtr top = tree("root", {});
  for (int i = 0; i < 100; ++i) {
    const std::string name = "host" + std::to_string(i);
    top->GetOrCreateRelativeNode(Tree_Path(name + "\\a\\b"), top)
        ->Add(new Tree_Node("c", "deep", 0));
    top->GetOrCreateRelativeNode(Tree_Path(name), top)
        ->Add(new Tree_Node("ip", "10.0.0." + std::to_string(i), 0));
  }
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&top, t] {
      for (int i = 0; i < 500; ++i) {
        const std::string host = "host" + std::to_string((i * 7 + t) % 100);
        const Tree_NodePtr held = top->Find(host);
        EXPECT_FALSE(held->GetValue("ip", held).isNull());
        EXPECT_EQ(top->Find(host + "\\a\\b\\c")->GetText(), "deep");  // an index comes up under way
        if (i % 10 == t) {
          EXPECT_EQ(top->DuplicateFromHereDown(true)->GetNodeNum(), 501);
        }
        const Tree_Name name(host + std::to_string(i % 3));  // comes and goes on all threads
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
