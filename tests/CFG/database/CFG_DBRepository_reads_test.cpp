// How a database is searched, and how trees are read from it.
#include <gtest/gtest.h>

#include <database/CFGDB_Conn.h>
#include <logging/Log_Capture.h>
#include "../database_fixture.h"

namespace {

class DatabaseReads : public Database {};

std::string taken(String_Arr* names) {
  const std::unique_ptr<String_Arr> owned(names);
  if (!owned) return "NULL";
  std::string text;
  for (int i = 0; i < owned->GetArrLen(); ++i) text.append(i ? "," : "").append(owned->GetStr(i));
  return text;
}

// --- finding -------------------------------------------------------------------------------------

TEST_P(DatabaseReads, FindsAddressesHoweverTheyAreWritten) {
  write(tree_of("halvoria", {{"n\\a\\p\\inet_address", "10.0.0.1"},
                             {"n\\b\\p\\inet_address_optional", "10.0.0.2"},
                             {"n\\c\\p\\additional_inet_address_7", "10.0.0.3"},
                             {"n\\d\\p\\inet_address", "::ffff:10.0.0.4"},
                             {"n\\e\\p\\inet_address", "fe80::1"},
                             {"n\\f\\p\\additional_inet_address_1", "::ffff:10.0.0.5"},
                             {"n\\g\\p\\v", "[x]"}}));
  const struct {
    const char* name;
    const char* address;
    const char* node;
  } cases[] = {
      {"inet_address", "10.0.0.1", "a"},
      {"inet_address", "::FFFF:10.0.0.1", "a"},
      {"inet_address", "[::ffff:10.0.0.1]", "a"},
      {"inet_address", "10.0.0.2", "b"},
      {"inet_address%", "10.0.0.2", "b"},
      {"INET_ADDRESS", "10.0.0.3", "c"},
      {"inet_address", "::ffff:10.0.0.4", "d"},
      {"inet_address", "[fe80::1]", "e"},
      {"inet_address", "::ffff:10.0.0.5", "f"},
      {"inet_address", "10.0.0.6", ""},
      {"v", "[x]", "g"},
      {"v", "x", ""},
  };
  for (const auto& c : cases) {
    const RWCString expected = *c.node ? RWCString("halvoria\\n\\") + c.node + "\\p" : RWCString();
    EXPECT_EQ(m_repository->FillPath("halvoria\\n\\%\\p", c.name, c.address), expected)
        << c.address;
  }
}

TEST(DBRepository, KnowsTheLocalHostWithoutAConnection) {
  CFG_DBRepository repository;
  EXPECT_EQ(repository.GetNodeNameByIp("127.0.0.1"), "");
  repository.SetProperty("current_node", "THIS-Host");
  EXPECT_EQ(repository.GetNodeNameByIp("127.0.0.1"), "this-host");
  repository.SetProperty("CurrMachine", "Server");
  EXPECT_EQ(repository.GetServerNodeName(), "Server");
  EXPECT_EQ(repository.GetMutexForSVCFGStartQuery(), nullptr);
}

TEST_P(DatabaseReads, FillsPathsByOneToTenRules) {
  write(tree_of("halvoria", {{"h\\a\\p\\os", "Linux"},
                             {"h\\a\\p\\role", "Core"},
                             {"h\\b\\p\\os", "Linux"},
                             {"h\\b\\p\\role", "edge"},
                             {"h\\c\\p\\os", "other"}}));
  const struct {
    std::vector<std::pair<const char*, const char*>> rules;
    bool is_case_sensitive, is_and;
    const char* expected;
  } cases[] = {
      {{{"p\\os", "Linux"}}, true, true, "halvoria\\h\\a,halvoria\\h\\b"},
      {{{"P\\OS", "linux"}}, true, true, "NULL"},
      {{{"P\\OS", "linux"}}, false, true, "halvoria\\h\\a,halvoria\\h\\b"},
      {{{"p\\os", "Linux"}, {"p\\role", "<test_role>"}}, false, true, "halvoria\\h\\a"},
      {{{"p\\os", "other"}, {"p\\role", "Core"}}, true, true, "NULL"},
      {{{"p\\os", "other"}, {"p\\role", "Core"}}, true, false, "halvoria\\h\\a,halvoria\\h\\c"},
      {std::vector<std::pair<const char*, const char*>>(10, {"p\\os", "other"}), true, true,
       "halvoria\\h\\c"},
      {std::vector<std::pair<const char*, const char*>>(11, {"p\\os", "other"}), true, true,
       "NULL"},
      {{}, true, true, "NULL"},
  };
  m_repository->SetProperty("test_role", "CORE");
  for (const auto& c : cases) {
    const int count = static_cast<int>(c.rules.size());
    Tree_PathAndValueArray rules(count);
    for (int i = 0; i < count; ++i) rules.SetPV(i, c.rules[i].first, c.rules[i].second);
    Log_Capture capture;
    EXPECT_EQ(taken(m_repository->FillPathWithRuleList("halvoria\\h\\%", &rules,
                                                       c.is_case_sensitive, c.is_and)),
              c.expected)
        << &c - cases;
    const bool is_refused = count < 1 || count > 10;
    EXPECT_EQ(capture.has("to many rules (" + std::to_string(count) + ") in call to  FillPathWith"),
              is_refused);
  }
  Tree_PathAndValueArray rules(1);
  EXPECT_EQ(taken(m_repository->FillPathWithRuleList("", &rules, TRUE, TRUE)), "NULL");
  EXPECT_EQ(taken(m_repository->FillPathWithRuleList("halvoria\\h\\%", nullptr, TRUE, TRUE)),
            "NULL");
}

TEST_P(DatabaseReads, SearchesKeysNamesAndTexts) {
  write(tree_of(
      "halvoria",
      {{"s\\core_node\\v", "x"}, {"s\\n\\core", "y"}, {"s\\n\\w", "The Core."}, {"t\\core", "z"}}));
  const struct {
    const char* pattern;
    bool key, name, data, is_case_sensitive, whole_word;
    const char* expected;
  } cases[] = {
      {"Core", true, true, true, false, false,
       "halvoria\\s\\core_node,halvoria\\s\\n\\core,halvoria\\s\\n\\w"},
      {"core", true, false, false, false, false, "halvoria\\s\\core_node"},
      {"core", false, true, false, false, false, "halvoria\\s\\n\\core"},
      {"core", false, false, true, false, false, "halvoria\\s\\n\\w"},
      {"core", false, false, true, true, false, "NULL"},
      {"Core", false, false, true, true, true, "halvoria\\s\\n\\w"},
      {"core", true, true, true, false, true, "halvoria\\s\\n\\core,halvoria\\s\\n\\w"},
      {"none", true, true, true, false, false, "NULL"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(taken(m_repository->SearchPatternExtended(c.pattern, "Halvoria\\s", c.key, c.name,
                                                        c.data, c.is_case_sensitive, c.whole_word)),
              c.expected)
        << &c - cases;
  }
}

// --- trees ---------------------------------------------------------------------------------------

// What does not fit a Tree_ValueAndPath goes through every read of a tree whole.
TEST_P(DatabaseReads, CutsNeitherLongValuesNorLongPathsInTrees) {
  const RWCString name(std::string(700, 'n')), text(std::string(100000, 'x') + "end");
  const RWCString key = "halvoria\\k\\" + name;
  EXPECT_TRUE(m_repository->SetValue(key + "\\" + name + "\\v", text));
  EXPECT_EQ(m_repository->GetValue(key + "\\" + name + "\\v"), text);
  RWCString none;
  const SubTreePtr trees[] = {
      SubTreePtr(m_repository->GetSubTree("halvoria\\k")),
      SubTreePtr(m_repository->GetSubTree("halvoria", 0)),
      SubTreePtr(m_repository->GetSubTreeOnlyWithValues("halvoria\\k")),
      SubTreePtr(m_repository->GetSubTreeOnlyWithValuesLong("halvoria\\k")),
      SubTreePtr(m_repository->GetSubTreeWithLongValues("halvoria\\k")),
      SubTreePtr(m_repository->GetSubTreeBySeqNumber("halvoria\\k", none)),
      SubTreePtr(m_repository->GetSubTreeWithPrecentAndWildcard("halvoria\\k\\%\\" + name)),
      SubTreePtr(
          m_repository->GetSubTreeOnlyWithValuesWithPrecentAndWildcard("halvoria\\k\\%\\" + name)),
  };
  for (const SubTreePtr& tree : trees) {
    ASSERT_TRUE(tree) << &tree - trees;
    EXPECT_EQ(tree->GetPath(), "halvoria\\k") << &tree - trees;
    EXPECT_EQ(tree->GetValue(name + "\\" + name + "\\v"), text) << &tree - trees;
  }
  CFG_SubTree copy(*trees[0]);
  EXPECT_TRUE(m_repository->AddOrReplaceSubTree(&copy, "halvoria\\copy"));
  EXPECT_EQ(m_repository->GetValue("halvoria\\copy\\k\\" + name + "\\" + name + "\\v"), text);
}

TEST_P(DatabaseReads, WildcardTreesHoldWhatMatchesAndTheKeysLeadingThere) {
  write(tree_of("halvoria", {{"n\\a\\p\\v", "1"},
                             {"n\\a\\q\\v", "2"},
                             {"n\\b\\p\\w", "3"},
                             {"n\\c\\p\\empty", ""},
                             {"n\\d", "4"}}));
  const struct {
    const char* path;
    const char* all;
    const char* with_values;
  } cases[] = {
      {"halvoria\\n\\%\\p", "n{a{p{v=1}} b{p{w=3}} c{p{empty{}}}}", "n{a{p{v=1}} b{p{w=3}}}"},
      {"halvoria\\n\\%\\%\\v", "n{a{p{v=1} q{v=2}}}", "n{a{p{v=1} q{v=2}}}"},
      {"halvoria\\n\\b", "b{p{w=3}}", "b{p{w=3}}"},
      {"halvoria\\none\\%", "NULL", "NULL"},
      {"halvoria\\n\\%\\none", "NULL", "NULL"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(shown(SubTreePtr(m_repository->GetSubTreeWithPrecentAndWildcard(c.path))), c.all);
    EXPECT_EQ(
        shown(SubTreePtr(m_repository->GetSubTreeOnlyWithValuesWithPrecentAndWildcard(c.path))),
        c.with_values);
  }
}

TEST_P(DatabaseReads, StreamsTheRecordsOfATree) {
  write(tree_of("halvoria", {{"k\\a\\v", "1"}, {"k\\b", "2"}, {"empty", ""}}));
  const auto streamed = [&](RWCString path, bool copies) {
    EXPECT_NE(m_repository->StartTreeQuery(path, false, nullptr, false), -1);
    std::string text =
        m_repository->QueryHasTree() ? m_repository->GetQueryRootPath().str() : "none";
    std::string_view name, value;
    while (!copies && m_repository->NextFromQuery(name, value)) {
      text.append(" ").append(name).append("=").append(value);
    }
    while (copies) {
      const std::unique_ptr<Tree_NodeInfo> record(m_repository->GetNextFromQuery());
      if (!record) break;
      text.append(" ").append(record->PathView()).append("=").append(record->ValueView());
    }
    EXPECT_FALSE(m_repository->IsQueryFailed());
    m_repository->CloseTreeQuery();
    return text;
  };
  for (const bool copies : {false, true}) {
    EXPECT_EQ(streamed("Halvoria\\k", copies), "halvoria\\k a= a\\v=1 b=2");
    EXPECT_EQ(streamed("halvoria\\empty", copies), "halvoria\\empty");
    EXPECT_EQ(streamed("halvoria\\k\\b", copies), "none");
    EXPECT_EQ(streamed("halvoria\\none", copies), "none");
  }
}

TEST_P(DatabaseReads, ReportsThePerformanceOfTreeReadsAndChanges) {
  CFGDB_Conn connection(true);  // the first change of a repository asks for the switch
  EXPECT_TRUE(connection.Init(m_connection, "", false));
  const RWCString path = "halvoria\\system\\applications\\events\\activation\\cfgperformance";
  EXPECT_EQ(connection.InsertLine(Tree_NodeInfo(path, "true"), 1, true), CFGDB_Conn::OK);
  write(tree_of("halvoria", {{"k\\v", "1"}}));
  CFG_SubTree tree = tree_of("t", {{"a", "1"}});
  CFG_DBRepository& r = *m_repository;
  Log_Capture capture;
  delete r.GetSubTree("halvoria\\K");
  EXPECT_TRUE(r.SetValue("halvoria\\x", "1") && r.DeleteValue("halvoria\\x"));
  EXPECT_TRUE(r.AddOrReplaceSubTree(&tree, "halvoria") && r.DeleteSubTree("halvoria\\t"));
  r.GetValue("halvoria\\k\\v");
  const std::string text = capture.text();
  size_t at = 0;
  for (const char* event :
       {"\"number\":261,\"path\":\"halvoria\\\\k\",\"source\":\"DB\",\"operation\":\"GetSubTree\"",
        "\"count\":1}", "\"number\":262,\"path\":\"halvoria\\\\x\"",
        "\"number\":264,\"path\":\"halvoria\\\\x\"", "\"number\":263,\"path\":\"halvoria\"",
        "\"number\":265,\"path\":\"halvoria\\\\t\""}) {
    at = text.find(event, at);
    EXPECT_NE(at, text.npos) << event;
  }
  EXPECT_EQ(text.find("\"number\":260"), text.npos);
}

OVER_EVERY_DATABASE(DatabaseReads);

}  // namespace
