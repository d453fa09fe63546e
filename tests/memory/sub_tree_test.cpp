#include <memory>
#include <string>
#include <type_traits>

#include <CFG/CFG_IteratorTree.h>
#include <CFG/CFG_IteratorValue.h>
#include <CFG/CFG_RepositoryServices.h>
#include <CFG/CFG_SubTree.h>
#include <CFG/CFG_Utils.h>
#include <tree/Tree_Node.h>

#include "../CFG/test_trees.h"
#include "out_of_memory.h"

namespace {

// What the caller gives is made before memory runs out.
const RWCString kLong("a text that takes a block of its own");
const RWCString kFar("<somewhere>\\a\\path\\that\\takes\\a\\block\\of\\its\\own");

CFG_SubTree sample() {
  return tree_of("top", {{"a\\item1\\v", kLong.data()},
                         {"a\\item2\\v", "2"},
                         {"a\\item10\\v", "10"},
                         {"a\\number", "42"},
                         {"a\\flag", "true"},
                         {"b", kLong.data()},
                         {"first\\place\\with\\a\\name\\that\\takes\\a\\block\\number", "43"},
                         {"first\\place\\with\\a\\name\\that\\takes\\a\\block\\item1\\w", "1"}});
}

// A change that is refused says why and leaves the tree as it was; otherwise it is made whole.
template <class Change>
void expect_whole_change(MemoryShortage& memory, Change&& change) {
  CFG_SubTree tree = sample(), wanted = sample();
  ASSERT_TRUE(change(wanted));
  const std::string before = shown(tree);
  int answer = FALSE;
  memory.Under([&] { answer = change(tree); });
  EXPECT_EQ(shown(tree), answer ? shown(wanted) : before);
  EXPECT_TRUE(answer || (memory.HasStruck() && memory.IsExplained()));
}

template <auto change>
void changing(MemoryShortage& memory) {
  expect_whole_change(memory, change);
}

// The given tree is laid at a path in one of the ways that there are.
template <auto change>
void writing(MemoryShortage& memory) {
  for (const char* name : {"a", "top", "other"}) {
    CFG_SubTree given = tree_of(name, {{"x\\y", kLong.data()}, {"number", "43"}});
    expect_whole_change(memory, [&](CFG_SubTree& tree) { return change(tree, given); });
  }
}

template <bool base64>
void write_blob(MemoryShortage& memory) {
  std::string bytes(1200, 'x');
  expect_whole_change(memory, [&](CFG_SubTree& tree) {
    return tree.WriteBlobFromBuffer("a\\blob", bytes.data(), 1200, base64, "plain");
  });
}

const OutOfMemoryCase changes[] = {
    {"SetValueOnANewPath", changing<[](CFG_SubTree& t) { return t.SetValue(kFar, kLong); }>},
    {"SetValueBesideOthers", changing<[](CFG_SubTree& t) { return t.SetValue("A\\x", kLong); }>},
    {"SetValueAnew", changing<[](CFG_SubTree& t) { return t.SetValue("a\\number", kLong); }>},
    {"SetInteger", changing<[](CFG_SubTree& t) { return t.SetIntegerValue("a\\n", 7); }>},
    {"SetDouble", changing<[](CFG_SubTree& t) { return t.SetDoubleValue("a\\n", 7.5); }>},
    {"DeleteSubTree", changing<[](CFG_SubTree& t) { return t.DeleteSubTree("A"); }>},
    {"DeleteValue", changing<[](CFG_SubTree& t) { return t.DeleteValue("A\\Number"); }>},
    {"MergeDeletion", changing<[](CFG_SubTree& t) {
       static CFG_SubTree named =
           tree_of("top", {{"a\\number", "-"}, {"a\\item10\\v", "-"}, {"b", "-"}});
       return !t.MergeDeletionSubTree(&named);
     }>},
    {"SetKeyName", changing<[](CFG_SubTree& t) { return t.SetKeyName("a\\item1", "renamed"); }>},
    {"Put", writing<[](CFG_SubTree& t, CFG_SubTree& g) { return t.AddOrReplaceSubTree(&g, ""); }>},
    {"PutFar",
     writing<[](CFG_SubTree& t, CFG_SubTree& g) { return t.AddOrReplaceSubTree(&g, kFar); }>},
    {"PutMerging",
     writing<[](CFG_SubTree& t, CFG_SubTree& g) { return t.AddOrReplaceSubTree(&g, "", TRUE); }>},
    {"AddMore",
     writing<[](CFG_SubTree& t, CFG_SubTree& g) { return t.AddMoreInfoToSubTree(&g, ""); }>},
    {"SetSubTree",
     writing<[](CFG_SubTree& t, CFG_SubTree& g) { return t.SetSubTree(&g, "", TRUE); }>},
    {"WriteBlob", write_blob<false>},
    {"WriteBlobAsBase64", write_blob<true>},
};
INSTANTIATE_TEST_SUITE_P(SubTreeChanges, OutOfMemory, testing::ValuesIn(changes),
                         OutOfMemory::NameOf);

// What an answer says; an answer that is owned goes.
std::string text_of(int answer) { return std::to_string(answer); }
std::string text_of(double answer) { return std::to_string(answer); }
std::string text_of(const RWCString& answer) { return answer.str(); }
template <class T>
std::string text_of(T* given) {
  const std::unique_ptr<T> answer(given);
  if (!answer) return "NULL";
  if constexpr (std::is_same_v<T, CFG_SubTree>) return shown(*answer->GetData());
  if constexpr (std::is_arithmetic_v<T>) return std::to_string(*answer);
  if constexpr (std::is_same_v<T, Tree_ValueAndPath>) return answer->GetValue();
  if constexpr (std::is_same_v<T, Tree_PathAndValueArray>) return std::to_string(answer->m_count);
  if constexpr (std::is_same_v<T, String_Arr>) {
    std::string all;
    for (int i = 0; i < answer->GetArrLen(); ++i) all.append(answer->GetStr(i)) += ' ';
    return all;
  }
}

// The right answer, or the empty one and a line that says why.
template <auto read>
void reading(MemoryShortage& memory) {
  CFG_SubTree tree = sample();
  const std::string wanted = text_of(read(tree));
  decltype(read(tree)) answer{}, none{};
  memory.Under([&] { answer = read(tree); });
  const std::string text = text_of(answer);
  if (text != wanted) {
    EXPECT_EQ(text, text_of(none)) << "neither the answer nor none";
    EXPECT_TRUE(memory.HasStruck() && memory.IsExplained());
  }
  EXPECT_EQ(shown(tree), shown(*sample().GetData()));
}

const char* rule[] = {"nowhere\\but\\in\\a\\place\\far\\away", "a"};
// What the first place has is in the second, too, which must not pass for the answer.
const char* both[] = {"first\\place\\with\\a\\name\\that\\takes\\a\\block", "a"};

template <class Iterator>
int entries(CFG_SubTree& tree) {
  const SubTreePtr list(tree.GetSubTree("a"));
  if (!list) return 0;
  Iterator each(list.get(), "Item");
  return each.is_valid() ? static_cast<int>(each.entries()) : 0;
}

const OutOfMemoryCase reads[] = {
    {"GetValue", reading<[](CFG_SubTree& t) { return t.GetValue("A\\item1\\v"); }>},
    {"GetValueFarAway", reading<[](CFG_SubTree& t) { return t.GetValue(kFar); }>},
    {"GetValueAt", reading<[](CFG_SubTree& t) { return t.GetValue("A", 0); }>},
    {"GetValueByRule", reading<[](CFG_SubTree& t) { return t.GetValue("number", rule, 2); }>},
    {"GetInteger", reading<[](CFG_SubTree& t) { return t.GetIntegerValue("a\\number"); }>},
    {"GetBoolean", reading<[](CFG_SubTree& t) { return t.GetBooleanValue("a\\flag"); }>},
    {"GetDouble", reading<[](CFG_SubTree& t) { return t.GetDoubleValueWrapper("a\\number", 0); }>},
    {"GetPath", reading<[](CFG_SubTree& t) { return t.GetPath(); }>},
    {"GetKeyName", reading<[](CFG_SubTree& t) { return t.GetKeyName(); }>},
    {"GetSubTree", reading<[](CFG_SubTree& t) { return t.GetSubTree("A\\Item1"); }>},
    {"GetValueFirstOfBoth", reading<[](CFG_SubTree& t) { return t.GetValue("number", both, 2); }>},
    {"GetSubTreeFirstOfBoth",
     reading<[](CFG_SubTree& t) { return t.GetSubTree("item1", both, 2); }>},
    {"MergeBoth", reading<[](CFG_SubTree& t) { return t.GetSubTree("item1", both, TRUE, 2); }>},
    {"GetSubTreeAt", reading<[](CFG_SubTree& t) { return t.GetSubTree("a", 1); }>},
    {"GetSubTreeByRule", reading<[](CFG_SubTree& t) { return t.GetSubTree("item1", rule, 2); }>},
    {"MergeByRule", reading<[](CFG_SubTree& t) { return t.GetSubTree("item1", rule, TRUE, 2); }>},
    {"GetSubTreePaths", reading<[](CFG_SubTree& t) { return t.GetSubTreePaths("a"); }>},
    {"GetSubTreeValues", reading<[](CFG_SubTree& t) { return t.GetSubTreeValues("a"); }>},
    {"CountEntries", reading<[](CFG_SubTree& t) { return t.GetSubTreeEntriesCount("a"); }>},
    {"Search", reading<[](CFG_SubTree& t) { return t.Search("v", "a"); }>},
    {"IterateKeys", reading<[](CFG_SubTree& t) { return entries<CFG_IteratorTree>(t); }>},
    {"IterateValues", reading<[](CFG_SubTree& t) { return entries<CFG_IteratorValue>(t); }>},
    {"MakeACopy", reading<[](CFG_SubTree& t) {
       CFG_SubTree* source = &t;
       return CFG_Utils::MakeACopy(source);
     }>},
    {"MergeTrees", reading<[](CFG_SubTree& t) {
       CFG_SubTree *one = &t, *other = &t;
       return CFG_Utils::MergeTrees(one, other);
     }>},
};
INSTANTIATE_TEST_SUITE_P(SubTreeReads, OutOfMemory, testing::ValuesIn(reads), OutOfMemory::NameOf);

// --- what is not one answer ---------------------------------------------------------------------

// Each node is in one of the trees at any time, and the next try goes on.
void merge_moving(MemoryShortage& memory) {
  CFG_SubTree tree = sample(), wanted = sample();
  const auto more = [] {
    return tree_of("top", {{"a\\x", kLong.data()}, {"b", "new"}, {"c\\d", "1"}});
  };
  CFG_SubTree given = more(), again = more();
  wanted.MergeSubTree(&again, "");
  int answer = 0;
  memory.Under([&] { answer = tree.MergeSubTree(&given, ""); });
  EXPECT_TRUE(answer == 0 || (answer == -1 && memory.HasStruck() && memory.IsExplained()));
  EXPECT_EQ(answer == 0, shown(tree) == shown(wanted));
  tree.MergeSubTree(&given, "");
  EXPECT_EQ(tree.GetValue("a\\x"), kLong);
  EXPECT_EQ(tree.GetValue("b"), "new");
  EXPECT_EQ(tree.GetData()->GetNodeNum(), wanted.GetData()->GetNodeNum());
}

void read_blob(MemoryShortage& memory) {
  CFG_SubTree tree = sample();
  std::string bytes(1200, 'x');
  for (const bool base64 : {false, true}) {
    tree.WriteBlobFromBuffer("a\\blob", bytes.data(), 1200, base64, "plain");
    char* buffer = nullptr;
    int length = 0;
    bool is_read = false;
    memory.Under([&] { is_read = tree.ReadBlobToBuffer("a\\blob", &buffer, length, nullptr); });
    const std::unique_ptr<char[]> owned(buffer);
    EXPECT_TRUE(is_read || memory.HasStruck());
    if (is_read) {
      EXPECT_EQ(std::string(buffer, static_cast<size_t>(length)), bytes);
    }
  }
}

void byte_array(MemoryShortage& memory) {
  CFG_SubTree tree = sample();
  int length = 0;
  std::unique_ptr<char[]> bytes;
  memory.Under([&] { bytes.reset(CFG_SubTree::SerializeSubTree(&tree, length)); });
  EXPECT_TRUE(bytes || (memory.HasStruck() && memory.IsExplained()));
  if (!bytes) bytes.reset(CFG_SubTree::SerializeSubTree(&tree, length));
  for (const char* sub_path : {"", "top\\a\\item1"}) {
    SubTreePtr read;
    memory.Under([&] {
      read.reset(CFG_RepositoryServices::CreateSubTreeFromByteArray(bytes.get(), length, false,
                                                                    sub_path, *sub_path != 0));
    });
    EXPECT_TRUE(read || (memory.HasStruck() && memory.IsExplained()));
    if (read && !*sub_path) {
      EXPECT_EQ(shown(read), shown(tree));
    }
  }
}

// The list is as before, or shorter by what was to go, or its numbers are exchanged.
void utilities(MemoryShortage& memory) {
  CFG_SubTree tree = sample();
  const SubTreePtr list(tree.GetSubTree("a"));
  CFG_Utils utils(list.get());
  RWCString text;
  memory.Under([&] { text = utils.GetValueCompatible("none", "number", ""); });
  EXPECT_TRUE(text == "42" || memory.HasStruck());
  memory.Under([&] { utils.DeleteAllValues(); });
  memory.Under([&] { utils.DeleteAllSubTrees(); });
  EXPECT_TRUE(memory.HasStruck() || list->IsEmpty());
}

// In a short list and in a long one.
void exchange(MemoryShortage& memory) {
  for (const int more : {0, 20}) {
    CFG_SubTree tree = sample();
    for (int i = 20; i < 20 + more; ++i) tree.SetValue(RWCString("a\\x" + std::to_string(i)), "x");
    const SubTreePtr list(tree.GetSubTree("a"));
    const std::string before = shown(list);
    memory.Under([&] { CFG_Utils(list.get()).SwapKeysByOrdinal("item", 1, 10); });
    const bool is_done = shown(list) != before;
    EXPECT_TRUE(is_done || memory.HasStruck());
    EXPECT_EQ(list->GetValue("item1\\v"), is_done ? "10" : kLong);
    EXPECT_EQ(list->GetValue("item10\\v"), is_done ? kLong : "10");
  }
}

const OutOfMemoryCase others[] = {
    {"MergeMoving", merge_moving}, {"Exchange", exchange},   {"ReadBlob", read_blob},
    {"ByteArray", byte_array},     {"Utilities", utilities},
};
INSTANTIATE_TEST_SUITE_P(SubTree, OutOfMemory, testing::ValuesIn(others), OutOfMemory::NameOf);

}  // namespace
