// A database file, and a repository on it.
#pragma once

#include <gtest/gtest.h>

#include "repository_worlds.h"

class Database : public testing::Test {
 protected:
  Database() { EXPECT_TRUE(m_repository.Connect()); }

  void write(const CFG_SubTree& tree) {
    CFG_SubTree copy(tree);
    EXPECT_TRUE(m_repository.AddOrReplaceSubTree(&copy, ""));
  }
  std::unique_ptr<CFG_DBRepository> another() {
    auto repository = sqlite_repository(m_folder);
    EXPECT_TRUE(repository->Connect());
    return repository;
  }
  std::string content() { return shown(SubTreePtr(m_repository.GetSubTree("halvoria"))); }

  TemporaryFolder m_folder;
  CFG_DBRepository m_repository{"sqlite:" + (m_folder / "tree.db").string(), "test"};
};
