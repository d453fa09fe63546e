// Files for tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include <CFG/CFG_MemoryRepository.h>
#include <CFG/CFG_SubTree.h>

// A folder that goes with this object.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "cfg_test_XXXXXX").string();
    m_path = mkdtemp(name.data());
  }
  ~TemporaryFolder() { std::filesystem::remove_all(m_path); }

  std::filesystem::path operator/(const char* name) const { return m_path / name; }
  RWWString file(const char* name) const { return RWWString::fromUTF8((m_path / name).string()); }

 private:
  std::filesystem::path m_path;
};

inline void write_tree(CFG_SubTree& tree, const RWWString& file) {
  CFG_MemoryRepository writer(&tree);
  ASSERT_TRUE(writer.ExportSubTreeToFile(&tree, file, tree.GetPath()));
}
