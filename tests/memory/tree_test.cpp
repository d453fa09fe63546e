#include <memory>
#include <string>
#include <vector>

#include <tree/Tree_Node.h>
#include <tree/Tree_PathIndex.h>
#include <tree/Tree_Walk.h>

#include "../CFG/test_trees.h"
#include "out_of_memory.h"

namespace {

constexpr char kLong[] = "a text that takes a block of its own";
constexpr int kMany = 20;  // more children than a small list has room for

std::string numbered(const char* prefix, int i) { return prefix + std::to_string(i); }

// Two levels of keys, a small list and a large one, short texts and long ones, a changed value.
Tree_NodePtr sample(const char* name = "top", const char* text = kLong) {
  Tree_NodePtr top = Tree_NodePtr::First(new Tree_Node(name));
  Tree_Node* small = top->AddKey("small");
  small->AddValue("short", "1", 1);
  small->AddValue(name, text, 0);
  small->AddKey("deep")->AddKey("deeper")->AddValue("value", text, 0);
  Tree_Node* large = top->AddKey("large");
  for (int i = 0; i < kMany; ++i) large->AddValue(numbered("v", i), text, 0);
  return top;
}

// Every child is found where it stands, by name and from the top, and nothing else is counted.
void expect_whole(const Tree_NodePtr& top) {
  for (Tree_PathsWalk walk(top.get(), ""); walk; walk.Next()) {
    if (const Tree_ChildList* children = walk->Children()) {
      uint32_t keys = 0, all = 0;
      for (uint32_t place = children->next(0); place != Tree_ChildList::npos;
           place = children->next(place + 1), ++all) {
        Tree_Node* child = children->at(place).get();
        ASSERT_NE(child, nullptr);
        EXPECT_EQ(child->GetParent(), *walk);
        EXPECT_EQ(walk->Child(child->NameView()), child);
        EXPECT_EQ(walk->GetChildAt(static_cast<int>(all)).get(), child);
        keys += !child->IsLeaf();
      }
      EXPECT_EQ(children->count(), all);
      EXPECT_EQ(children->count(Tree_ChildList::KEYS), keys);
    }
    const std::string path =
        walk.Path().substr(std::min(top->NameView().size() + 1, walk.Path().size()));
    EXPECT_EQ(top->Find(path), *walk) << path;
  }
}

void build(MemoryShortage& memory) {
  const std::string wanted = shown(*sample());
  Tree_NodePtr tree;
  EXPECT_TRUE(memory.Try([&] { tree = sample(); }) || memory.HasStruck());
  if (tree) {
    EXPECT_EQ(shown(*tree), wanted);
  }
}

// Child by child, so that what is there already stays.
void add(MemoryShortage& memory) {
  const Tree_NodePtr tree = new Tree_Node("t");
  for (int i = 0; i < kMany; ++i) {
    const bool is_done = memory.Try([&] {
      tree->AddKey(numbered("k", i));
      tree->AddDistinct(new Tree_Node(numbered("v", i), kLong, 1));
    });
    expect_whole(tree);
    const int before = 2 * i, now = tree->GetChildCount();
    EXPECT_TRUE(now == before + 2 || (!is_done && (now == before || now == before + 1)));
    tree->AddKey(numbered("k", i));
    if (!tree->Child(numbered("v", i)))
      tree->AddDistinct(new Tree_Node(numbered("v", i), kLong, 1));
  }
  expect_whole(tree);
}

void reserve(MemoryShortage& memory) {
  const Tree_NodePtr tree = sample();
  memory.Try([&] { tree->Child("small")->Reserve(8); });
  memory.Try([&] { tree->Child("small")->Reserve(kMany); });
  expect_whole(tree);
  EXPECT_EQ(shown(*tree), shown(*sample()));
}

void move_elsewhere(MemoryShortage& memory) {
  const Tree_NodePtr from = sample("from"), to = sample("to");
  const Tree_NodePtr child = from->Child("small");
  const bool is_done = memory.Try([&] { to->Child("large")->Add(child); });
  expect_whole(from);
  expect_whole(to);
  EXPECT_EQ(child->GetParent(), is_done ? to->Child("large") : from.get());
}

void move_here(MemoryShortage& memory) {
  const Tree_NodePtr from = sample("from", "other"), to = sample("to");
  bool all_moved = true;
  for (int i = kMany - 1; i >= 0; --i) {
    all_moved &= memory.Try([&] { to->Child("large")->MoveHere(*from->Child("large"), i); });
  }
  expect_whole(from);
  expect_whole(to);
  EXPECT_EQ(from->Child("large")->GetChildCount() == 0, all_moved);
  for (int i = 0; i < kMany; ++i) {
    const Tree_Node* there = from->Child("large")->Child(numbered("v", i));
    const Tree_Node* here = to->Child("large")->Child(numbered("v", i));
    ASSERT_NE(here, nullptr);
    EXPECT_EQ(here->GetText(), there ? kLong : "other");
  }
}

void copy(MemoryShortage& memory) {
  const Tree_NodePtr tree = sample();
  tree->SetVirtualParentPath("some\\where\\far\\away\\in\\the\\tree");
  Tree_NodePtr made;
  memory.Try([&] { made = tree->DuplicateFromHereDown(true); });
  EXPECT_TRUE(made || memory.HasStruck());
  EXPECT_EQ(shown(*tree), shown(*sample()));
  if (!made) return;
  expect_whole(made);
  EXPECT_EQ(shown(*made), shown(*sample()));
  EXPECT_EQ(made->GetPath(), tree->GetPath());
}

template <Tree_NodePtr (*merge_of)(const Tree_NodePtr&, const Tree_NodePtr&)>
void merge(MemoryShortage& memory) {
  const Tree_NodePtr base = sample(), overlay = sample("over", "another text of some length");
  overlay->AddKey("only")->AddValue("in", "overlay", 0);
  overlay->Child("small")->Remove("deep");
  overlay->Child("small")->AddValue("deep", kLong, 1);
  const std::string wanted = shown(*merge_of(base, overlay));
  Tree_NodePtr made;
  memory.Try([&] { made = merge_of(base, overlay); });
  EXPECT_TRUE(made || memory.HasStruck());
  EXPECT_EQ(shown(*base), shown(*sample()));
  if (!made) return;
  expect_whole(made);
  EXPECT_EQ(shown(*made), wanted);
}

void changes(MemoryShortage& memory) {
  const Tree_NodePtr tree = sample();
  tree->Find("small\\deep\\deeper\\value")->GetTreeValue()->SetIsChange(1);
  Tree_NodePtr made;
  memory.Try([&] { made = Tree_Node::GetChangesTreeNode(tree); });
  EXPECT_TRUE(made || memory.HasStruck());
  if (made) {
    EXPECT_EQ(shown(*made), std::string("top{small{short=1 deep{deeper{value=") + kLong + "}}}}");
  }
}

// What is asked to go goes, however little memory there is: packing a list of holes can wait.
void remove(MemoryShortage& memory) {
  const Tree_NodePtr tree = sample();
  Tree_Node* large = tree->Child("large");
  for (int i = 0; i < kMany; ++i) {
    const RWCString name(numbered("v", i));
    memory.Under([&] { EXPECT_TRUE(large->Remove(name)); });
    expect_whole(tree);
  }
  memory.Try([&] { tree->RemoveEmptyBranches(); });
  expect_whole(tree);
  tree->RemoveEmptyBranches();
  EXPECT_EQ(tree->GetChildCount(), 1);
}

void rename(MemoryShortage& memory) {
  const Tree_NodePtr tree = sample();
  for (const char* path : {"small\\deep", "large\\v7"}) {
    Tree_Node* node = tree->Find(path);
    const std::string old_name(node->NameView());
    bool is_done = memory.Try([&] { node->SetKeyName("another name of some length"); });
    EXPECT_EQ(node->NameView(), is_done ? "another name of some length" : old_name);
    expect_whole(tree);
  }
}

void texts(MemoryShortage& memory) {
  const Tree_NodePtr tree = sample();
  Tree_Value& value = *tree->Find("small\\short")->GetTreeValue();
  const bool is_done = memory.Try([&] { value.SetText(kLong); });
  EXPECT_EQ(value.GetText(), is_done ? kLong : "1");
}

void find_or_make(MemoryShortage& memory) {
  const Tree_NodePtr tree = sample();
  Tree_NodePtr made;
  const Tree_Path path("small\\new\\keys\\below");
  const bool is_done = memory.Try([&] { made = tree->GetOrCreateRelativeNode(path, tree); });
  expect_whole(tree);
  EXPECT_EQ(tree->Find("small\\new") != nullptr, is_done);
}

// A child that is put on a path is there with all keys on its way, or none of them is.
void put(MemoryShortage& memory) {
  const Tree_NodePtr tree = sample(), child = new Tree_Node("v7", kLong, 1);
  for (const char* path : {"small\\new\\keys\\below", "large"}) {
    const std::string before = shown(*tree);
    const Tree_Node* const held_by = child->GetParent();
    if (!memory.Try([&] { EXPECT_TRUE(tree->Put(path, child)); })) {
      EXPECT_EQ(shown(*tree), before);
      EXPECT_EQ(child->GetParent(), held_by);
    }
    expect_whole(tree);
    tree->Put(path, child);
    EXPECT_EQ(tree->Find(path)->Child("v7"), child.get());
  }
  EXPECT_TRUE(tree->Find("small\\new\\keys\\below")->IsEmpty());
}

void search(MemoryShortage& memory) {
  const Tree_NodePtr tree = sample();
  std::unique_ptr<String_Arr> found;
  memory.Try([&] { found.reset(tree->Search("value", tree, 0)); });
  EXPECT_TRUE(memory.HasStruck() || found->GetArrLen() == 1);
  memory.Try([&] { found.reset(tree->GetSubTreePaths("small", tree)); });
  std::unique_ptr<Tree_PathAndValueArray> values;
  memory.Try([&] { values.reset(tree->GetSubTreeValues("large", tree)); });
  EXPECT_TRUE(memory.HasStruck() || values->m_count == kMany);
  memory.Try([&] { EXPECT_EQ(tree->Find("large\\v3")->GetPath(), "top\\large\\v3"); });
}

// Reads make the index and changes keep it: without memory for it there is none.
void path_index(MemoryShortage& memory) {
  const Tree_NodePtr tree = sample();
  const auto read = [&] {
    for (int i = 0; i < 600; ++i) EXPECT_NE(tree->Find("small\\deep\\deeper\\value"), nullptr);
  };
  memory.Under(read);
  read();
  ASSERT_TRUE(Tree_PathIndex::IsAnyAlive());
  for (int i = 0; i < kMany; ++i) {
    memory.Try([&] { tree->Child("large")->AddKey(numbered("new", i)); });
    memory.Under([&] { tree->Child("large")->Remove(tree->Child("large")->GetChildAt(0)); });
    memory.Try([&] { tree->Find("small\\short")->SetKeyName(numbered("s", i)); });
    memory.Try([&] { tree->Find("small")->GetChildAt(0)->SetKeyName("short"); });
    tree->Find("small")->GetChildAt(0)->SetKeyName("short");
    memory.Try([&] { tree->GetOrCreateRelativeNode(Tree_Path("a\\b\\c\\d"), tree); });
    expect_whole(tree);
    EXPECT_EQ(tree->Find("small\\short\\none"), nullptr);
    tree->Remove("a");
    read();
  }
  expect_whole(tree);
}

void records(MemoryShortage& memory) {
  const Tree_NodePtr tree = sample();
  std::vector<Tree_NodeInfo*> plain;
  memory.Try([&] { Tree_Node::ConvertTreeToSimpleVec(tree, "", &plain); });
  EXPECT_TRUE(memory.HasStruck() || static_cast<int>(plain.size()) == tree->GetNodeNum());
  for (Tree_NodeInfo* record : plain) delete record;

  Tmr_PtrSortedVector<Tree_NodeInfo> sorted;
  memory.Try([&] { Tree_Node::ConvertTreeNodeToVec(tree->Child("small"), "", &sorted); });
  sorted.clear();
  Tree_Node::ConvertTreeNodeToVec(tree->Child("small"), "", &sorted);
  const std::string wanted = shown(*tree->BuildSubTree(&sorted, "top"));
  Tree_NodePtr made;
  memory.Try([&] { made = tree->BuildSubTree(&sorted, "top"); });
  EXPECT_TRUE(made || memory.HasStruck());
  if (made) {
    EXPECT_EQ(shown(*made), wanted);
  }
}

void bytes(MemoryShortage& memory) {
  const Tree_NodePtr tree = sample();
  int length = 0;
  std::unique_ptr<char[]> array;
  memory.Try([&] { array.reset(Tree_Node::GetSerializedTreeNode(tree, length, true)); });
  EXPECT_TRUE(memory.HasStruck() || length > 0);
}

const OutOfMemoryCase tree_cases[] = {
    {"Build", build},
    {"Add", add},
    {"Reserve", reserve},
    {"MoveElsewhere", move_elsewhere},
    {"MoveHere", move_here},
    {"Copy", copy},
    {"Merge", merge<Tree_Node::Merge>},
    {"MergeOneLevel", merge<Tree_Node::MergeOneLevel>},
    {"Changes", changes},
    {"Remove", remove},
    {"Rename", rename},
    {"Texts", texts},
    {"FindOrMake", find_or_make},
    {"Put", put},
    {"Search", search},
    {"PathIndex", path_index},
    {"Records", records},
    {"Bytes", bytes},
};
INSTANTIATE_TEST_SUITE_P(Tree, OutOfMemory, testing::ValuesIn(tree_cases), OutOfMemory::NameOf);

}  // namespace
