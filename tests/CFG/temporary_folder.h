// Files of trees for tests.
#pragma once

#include <gtest/gtest.h>

#include <CFG/CFG_MemoryRepository.h>
#include <CFG/CFG_SubTree.h>
#include <support/temporary_folder.h>

inline void write_tree(CFG_SubTree& tree, const RWWString& file) {
  CFG_MemoryRepository writer(&tree);
  ASSERT_TRUE(writer.ExportSubTreeToFile(&tree, file, tree.GetPath()));
}
