// What a subclass relies on that keeps its tree up to date and shares it with other threads.
#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <string>

#include <CFG/CFG_FileRepositoryBase.h>
#include <logging/Log_Capture.h>
#include "temporary_folder.h"
#include "test_trees.h"

namespace {

// Notes the hooks, and while the tree is used what another thread could do with it meanwhile.
struct Shared : TemporaryFolder, CFG_FileRepositoryBase {
  using CFG_FileRepositoryBase::GetSubTree;
  using CFG_FileRepositoryBase::GetValue;

  Shared() : CFG_FileRepositoryBase(file("tree.xml")) {
    m_sub_tree = std::make_unique<CFG_SubTree>(
        tree_of("h", {{"k\\a\\v", "1"}, {"k\\b\\w", "2"}, {"k\\x", "3"}}));
    m_tree_lock = std::make_unique<ReadMostlyLock>();
  }
  int Connect() override { return TRUE; }
  RWCString GetServerSyncID() override { return ""; }
  void before_path_used(const RWCString& path) override { hooks += path.str() + ";"; }
  void before_all_paths_used() override { hooks += "all;"; }
  RWCString RemoveRootName(const RWCString& path) override {
    use = ReadMostlyLock::IsReading() ? "read" : std::async(std::launch::async, [this] {
                                                   if (!m_tree_lock->try_lock_shared())
                                                     return "changed";
                                                   return m_tree_lock->unlock_shared(), "free";
                                                 }).get();
    return CFG_FileRepositoryBase::RemoveRootName(path);
  }

  std::string hooks;
  std::string use;
  using CFG_FileRepositoryBase::m_file;
  using CFG_FileRepositoryBase::m_tree_lock;
};

template <class Result>
void drop(Result* result) {
  delete result;
}

TEST(FileRepositoryBase, EveryOperationBringsItsPathsUpToDateAndHoldsTheTreeWhileItUsesIt) {
  const struct {
    const char* name;
    void (*run)(Shared& r);
    const char* hooks;
    const char* use = "";  // where the operation asks for the path below the root
  } rows[] = {
      {"value", [](Shared& r) { EXPECT_EQ(r.GetValue("h\\k\\x"), "3"); }, "h\\k\\x;"},
      {"value or default", [](Shared& r) { EXPECT_EQ(r.GetValue("h\\k\\y", "d"), "d"); },
       "h\\k\\y;h\\k\\y;"},
      {"by position", [](Shared& r) { drop(r.GetSubTree("h\\k", 0)); }, "h\\k;", "read"},
      {"values", [](Shared& r) { drop(r.GetSubTreeValues("h\\k")); }, "h\\k;", "read"},
      {"names", [](Shared& r) { drop(r.GetSubTreePaths("h\\k")); }, "h\\k;", "read"},
      {"copy", [](Shared& r) { drop(r.GetSubTree("h\\k")); }, "h\\k;"},
      {"export", [](Shared& r) { EXPECT_TRUE(r.ExportPath("h\\k", r.m_file)); }, "h\\k;"},
      {"save", [](Shared& r) { EXPECT_TRUE(r.UnLock()); }, ""},
      {"set", [](Shared& r) { EXPECT_TRUE(r.SetValue("h\\n", "1")); }, "h\\n;", "changed"},
      {"delete", [](Shared& r) { EXPECT_TRUE(r.DeleteSubTree("h\\k")); }, "h\\k;", "changed"},
      {"rename", [](Shared& r) { EXPECT_TRUE(r.SetKeyName("h\\k", "n")); }, "h\\k;", "changed"},
      {"write",
       [](Shared& r) {
         CFG_SubTree k("k");
         EXPECT_TRUE(r.AddOrReplaceSubTree(&k, "h"));
         EXPECT_TRUE(r.CFG_FileRepositoryBase::AddOrReplaceSubTree(&k, "h", TRUE));
       },
       "h;h;"},
      {"search", [](Shared& r) { drop(r.Search("v", "h\\k")); }, "all;h\\k;"},
      {"every path", [](Shared& r) { drop(r.FillPath("h\\k\\%\\v")); }, "all;k\\%\\v;%\\v;v;v;",
       "read"},
      {"first path", [](Shared& r) { EXPECT_EQ(r.FillPath("h\\k\\%", "w", "2"), "h\\k\\b"); },
       "all;", "read"},
      {"node", [](Shared& r) { EXPECT_EQ(r.GetNodeName("AE"), ""); }, "all;", "read"},
      {"node by address", [](Shared& r) { EXPECT_EQ(r.GetNodeNameByIp("::1"), ""); }, "all;",
       "read"},
  };
  for (const auto& row : rows) {
    Shared repository;
    row.run(repository);
    EXPECT_EQ(repository.hooks, row.hooks) << row.name;
    EXPECT_EQ(repository.use, row.use) << row.name;
    EXPECT_FALSE(ReadMostlyLock::IsReading()) << row.name << " keeps the tree";
    EXPECT_TRUE(repository.m_tree_lock->try_lock_shared()) << row.name << " keeps the tree";
    repository.m_tree_lock->unlock_shared();
  }
}

}  // namespace
