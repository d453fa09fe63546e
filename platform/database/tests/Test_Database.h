// What the tests of the database share: a case runs over every kind of store.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <database/CFGDB_Conn.h>
#include <logging/Log_Capture.h>
#include <servers/Test_Postgres.h>
#include <support/temporary_folder.h>

// An empty store of one kind, and connections to it.
class Database : public ::testing::TestWithParam<const char*> {
 protected:
  void SetUp() override;

  std::unique_ptr<CFGDB_Conn> connect();
  int set(CFGDB_Conn& conn, const std::string& path, const std::string& value);
  // As the repository does: in four steps of one transaction.
  int set(const std::string& path, const std::string& value) { return set(*m_conn, path, value); }
  int write(const std::vector<std::pair<std::string, std::string>>& rows);
  // "path=value" of all rows below a path; a key without the "=".
  std::vector<std::string> rows(const std::string& path = "t");
  std::vector<std::string> query(const std::string& path, bool wildcard = false,
                                 const char* sequence = nullptr, bool deleted = false,
                                 bool all_deleted = false);
  // From now on the store fails where a row of that name is written, or kept as a deleted one.
  void fail_at(const std::string& name);
  int number() { return std::atoi(m_conn->GetMaxSeqNumber().data()); }

  TemporaryFolder m_folder;
  std::unique_ptr<Test_Postgres> m_server;
  std::string m_connection;
  Log_Capture m_log;
  std::unique_ptr<CFGDB_Conn> m_conn;
};

// Writes 20 keys of 100 values and removes some; the paths of all values.
std::vector<std::string> FillStore(const std::string& connection);
// What a store answers: its trees, numbers, and some of the values. Each is empty when the store
// says that it cannot.
std::vector<std::string> AnswersOf(const std::string& connection,
                                   const std::vector<std::string>& paths);

// Every case of a fixture over each store.
#define OVER_EVERY_STORE(fixture)                                                      \
  INSTANTIATE_TEST_SUITE_P(Stores, fixture, ::testing::Values("sqlite", "postgresql"), \
                           [](const auto& kind) { return std::string(kind.param); })
