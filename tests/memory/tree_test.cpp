#include <algorithm>
#include <string>

#include <tree/Tree_Node.h>
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

const OutOfMemoryCase tree_cases[] = {
    {"Reserve", reserve},
    {"MoveElsewhere", move_elsewhere},
    {"Rename", rename},
    {"Texts", texts},
};
INSTANTIATE_TEST_SUITE_P(Tree, OutOfMemory, testing::ValuesIn(tree_cases), OutOfMemory::NameOf);

}  // namespace
