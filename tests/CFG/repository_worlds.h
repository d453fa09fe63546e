// The same tree behind each kind of services object, for tests that run over all of them.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include <CFG/CFG_FileRepository.h>
#include <CFG/CFG_MemoryRepository.h>
#include "test_trees.h"

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

enum WorldKind { HANDLE, MEMORY, XML_FILE };

// A services object over a tree whose root key is `halvoria`.
class World {
 public:
  World(WorldKind kind, const CFG_SubTree& tree) : m_kind(kind), m_tree(tree) {
    if (kind == MEMORY) m_repository = std::make_unique<CFG_MemoryRepository>(&m_tree);
    if (kind != XML_FILE) return;
    write_tree(m_tree, m_folder.file("tree.xml"));
    m_repository = std::make_unique<CFG_FileRepository>(m_folder.file("tree.xml"));
    EXPECT_TRUE(m_repository->Connect());
  }

  CFG_Services& services() {
    return m_repository ? *m_repository : static_cast<CFG_Services&>(m_tree);
  }
  CFG_RepositoryServicesImp& repository() { return *m_repository; }
  // How this object is asked for a path below the root key.
  RWCString at(const char* path) const {
    if (m_kind == HANDLE) return path;
    return RWCString(*path ? "halvoria\\" : "halvoria") + path;
  }
  // All that is stored, as text.
  std::string content() {
    if (m_kind != XML_FILE) return shown(m_tree);
    return shown(SubTreePtr(services().GetSubTree("halvoria")));
  }
  RWWString file() const { return m_folder.file("tree.xml"); }

 private:
  WorldKind m_kind;
  TemporaryFolder m_folder;
  CFG_SubTree m_tree;
  std::unique_ptr<CFG_RepositoryServicesImp> m_repository;
};
