// A database of one kind, and a repository on it.
#pragma once

#include <gtest/gtest.h>

#include "repository_worlds.h"

class Database : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    m_connection = "sqlite:" + (m_folder / "tree.db").string();
    if (GetParam() == std::string("PostgreSQL")) {
      if (!Test_Postgres::IsInstalled()) GTEST_SKIP() << "no PostgreSQL server is installed";
      m_server = std::make_unique<Test_Postgres>();
      ASSERT_TRUE(m_server->is_running()) << m_server->problem();
      m_connection = m_server->connection();
    }
    m_repository = another();
  }

  void write(const CFG_SubTree& tree) {
    CFG_SubTree copy(tree);
    EXPECT_TRUE(m_repository->AddOrReplaceSubTree(&copy, ""));
  }
  std::unique_ptr<CFG_DBRepository> another() {
    auto repository = std::make_unique<CFG_DBRepository>(m_connection, "");
    EXPECT_TRUE(repository->Connect());
    return repository;
  }
  std::string content() { return shown(SubTreePtr(m_repository->GetSubTree("halvoria"))); }

  TemporaryFolder m_folder;
  std::unique_ptr<Test_Postgres> m_server;
  RWCString m_connection;
  std::unique_ptr<CFG_DBRepository> m_repository;
};

#define OVER_EVERY_DATABASE(fixture)                                                 \
  INSTANTIATE_TEST_SUITE_P(Stores, fixture, testing::Values("SQLite", "PostgreSQL"), \
                           [](const auto& kind) { return std::string(kind.param); })
