#include <CFG/remote/tree_parts.h>
#include <tree/Tree_Node.h>

#include <gtest/gtest.h>

#include <CFG/CFG_MemoryRepository.h>
#include "../test_trees.h"

namespace {

// Branches of branches, with values of `value_size` bytes.
CFG_SubTree grown_tree(int branches, int depth, size_t value_size) {
  CFG_SubTree tree("top");
  for (int i = 0; i < branches; ++i) {
    RWCString path;
    for (int level = 0; level < depth; ++level) {
      path += "b" + std::to_string((i + level) % (2 + level)) + "\\";
      tree.SetValue(path + "v" + RWCString(std::to_string(i)), std::string(value_size, 'x'));
    }
  }
  return tree;
}

TEST(TreeParts, MakeUpTheTreeWhereverItIsCut) {
  const CFG_SubTree trees[] = {CFG_SubTree("top"), grown_tree(20, 1, 10), grown_tree(40, 6, 30),
                               grown_tree(3, 300, 5)};
  for (CFG_SubTree tree : trees) {
    const Tree_NodePtr top = tree.GetData();
    int length = 0;
    delete[] CFG_SubTree::SerializeSubTree(&tree, length);
    EXPECT_EQ(cfg::byte_array_size(*top), static_cast<uint64_t>(length));
    for (const uint64_t limit : {uint64_t{1}, uint64_t{500}, uint64_t{4000}, uint64_t(length)}) {
      const auto parts = cfg::tree_parts(top, "halvoria\\a", limit);
      if (limit >= static_cast<uint64_t>(length)) {
        ASSERT_EQ(parts.size(), 1u);
        EXPECT_EQ(parts[0].tree, top) << "not a copy";
      }
      CFG_SubTree written("halvoria");
      written.GetData()->AddKey("a");
      CFG_MemoryRepository repository(&written);
      for (const auto& part : parts) {
        CFG_SubTree handle(part.tree);
        EXPECT_TRUE(repository.AddOrReplaceSubTree(&handle, part.parent_path));
        const bool has_keys = part.tree->Children()->count(Tree_ChildList::KEYS) > 0;
        EXPECT_TRUE(!has_keys || cfg::byte_array_size(*part.tree) <= limit);
      }
      CFG_SubTree other("a");
      other.GetData()->Add(top->DuplicateFromHereDown(true));
      const SubTreePtr result(written.GetSubTree("a"));
      const auto records = [](CFG_SubTree& of) {  // in order of path: parts come in another one
        Tmr_PtrSortedVector<Tree_NodeInfo> sorted;
        Tree_Node::ConvertTreeNodeToVec(of.GetData(), "", &sorted);
        std::string text;
        for (size_t i = 0; i < sorted.entries(); ++i) {
          text += sorted[i]->GetPath().str() + "=" + sorted[i]->GetValue().str() + "\n";
        }
        return text;
      };
      EXPECT_EQ(records(*result), records(other));
    }
  }
}

}  // namespace
