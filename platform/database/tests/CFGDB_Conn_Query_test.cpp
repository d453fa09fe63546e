#include <database/tests/Test_Database.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

std::vector<std::string> texts(const std::vector<RWCString>& found) {
  std::vector<std::string> result;
  for (const RWCString& text : found) result.push_back(text.str());
  return result;
}

}  // namespace

class DatabaseQuery : public Database {
 protected:
  void SetUp() override {
    Database::SetUp();
    if (!m_conn) return;
    for (const auto& [path, value] : std::vector<std::pair<std::string, std::string>>{
             {"properties\\inet_address", "10.0.0.1"},
             {"properties\\additional_inet_address_2", "10.0.0.9"},
             {"servers\\main\\dicom\\ae", "STORE"},
             {"servers\\main\\note", "the Main server"},
             {"servers\\main-2\\dicom\\ae", "PRINT"}}) {
      const std::string nodes = "halvoria\\system\\nodes\\";
      set(nodes + "n1\\" + path, value);
      set(nodes + "n1-b\\" + path, value + "b");
    }
    set("halvoria\\system\\nodes\\leaf", "no node");
    m_conn->CreatePath("halvoria\\system\\nodes\\n2\\empty", 1, true);
  }

  std::vector<std::string> search(const char* pattern, bool key, bool name, bool data,
                                  bool exact = false, bool whole = false) {
    return texts(m_conn->SearchPatternExtended(pattern, "halvoria\\system\\nodes\\n1", key, name,
                                               data, exact, whole));
  }
};

TEST_P(DatabaseQuery, ReadsTheLevelBelowAKey) {
  const RWCString nodes("halvoria\\system\\nodes");
  std::vector<RWCString> names;
  EXPECT_TRUE(m_conn->GetSubTreePathes(nodes, names));
  EXPECT_THAT(texts(names), ElementsAre("n1", "n1-b", "n2"));
  EXPECT_TRUE(m_conn->GetSubTreePathes("halvoria\\system\\nodes\\n2\\empty", names));
  EXPECT_THAT(names, IsEmpty());
  EXPECT_FALSE(m_conn->GetSubTreePathes("halvoria\\none", names));
  EXPECT_FALSE(m_conn->GetSubTreePathes("halvoria\\system\\nodes\\leaf", names));
  EXPECT_EQ(m_conn->GetSubTreeNum(nodes), 3);
  EXPECT_EQ(m_conn->GetValueNum(nodes), 1);
  EXPECT_EQ(m_conn->GetSubTreeEntriesCount(nodes), 27);

  const RWCString properties("halvoria\\system\\nodes\\n1\\properties");
  EXPECT_STREQ(m_conn->GetValue(properties, 1).data(), "10.0.0.1");
  EXPECT_STREQ(m_conn->GetValueName(properties, 0).data(), "additional_inet_address_2");
  EXPECT_STREQ(m_conn->GetValueName(properties, 2).data(), "");
  EXPECT_STREQ(m_conn->GetValue(properties, -1).data(), "");
  const std::unique_ptr<Tmr_PtrSortedVector<Tree_NodeInfo>> values(
      m_conn->GetSubTreeValues(properties));
  ASSERT_TRUE(values);
  ASSERT_EQ(values->entries(), 2U);
  EXPECT_EQ((*values)[1]->PathView(), "inet_address");
  EXPECT_EQ(m_conn->GetSubTreeValues("halvoria\\none"), nullptr);
}

// Branches of every size among the children, so that they are stepped through and jumped over.
TEST_P(DatabaseQuery, PassesOverBranches) {
  std::vector<std::pair<std::string, std::string>> tree = {{"w", ""}};
  std::vector<std::string> keys, values;
  for (int i = 10; i < 60; ++i) {
    const std::string name = std::to_string(i), key = "w\\" + name;
    tree.insert(tree.end(), {{key, ""}, {key + "-", "v"}});
    keys.push_back(name);
    values.push_back(name + "-");
    for (int j = 0; j < i % 23; ++j) tree.push_back({key + "\\" + std::to_string(j), "v"});
  }
  ASSERT_EQ(write(tree), CFGDB_Conn::OK);
  std::vector<RWCString> names;
  ASSERT_TRUE(m_conn->GetSubTreePathes("w", names));
  EXPECT_EQ(texts(names), keys);
  EXPECT_EQ(m_conn->GetValueNum("w"), 50);
  EXPECT_EQ(m_conn->GetValueName("w", 49).str(), values.back());
}

TEST_P(DatabaseQuery, FillsPatterns) {
  const std::string n = "halvoria\\system\\nodes\\";
  const auto fill = [this](const std::string& pattern) { return texts(m_conn->FillPath(pattern)); };
  EXPECT_THAT(fill(n + "%\\properties"), ElementsAre(n + "n1\\properties", n + "n1-b\\properties"));
  EXPECT_THAT(fill(n + "%"), ElementsAre(n + "n1", n + "n1-b", n + "n2"));
  EXPECT_THAT(
      fill(n + "n1\\servers\\%\\dicom\\ae"),
      ElementsAre(n + "n1\\servers\\main\\dicom\\ae", n + "n1\\servers\\main-2\\dicom\\ae"));
  EXPECT_THAT(fill("%"), ElementsAre("halvoria"));
  EXPECT_THAT(fill(n + "n1"), ElementsAre(n + "n1"));
  EXPECT_THAT(fill(n + "n%"), IsEmpty());
  EXPECT_THAT(fill(""), IsEmpty());
  EXPECT_THAT(fill("none\\%\\x"), IsEmpty());

  const auto find = [this](const std::string& pattern, const char* name, const char* value) {
    return m_conn->FillPath(pattern, name, value).str();
  };
  EXPECT_EQ(find(n + "%", "properties\\inet_address", "10.0.0.1b"), n + "n1-b");
  EXPECT_EQ(find(n + "%\\properties", "additional_inet_address_%", "10.0.0.9"),
            n + "n1\\properties");
  EXPECT_EQ(find(n + "%\\properties", "inet_address", "10.0.0.9"), "");
  EXPECT_EQ(find(n + "n1\\servers\\%", "dicom\\a%", "PRINT"), n + "n1\\servers\\main-2");
  EXPECT_EQ(find(n + "n1\\servers\\%", "d%", "PRINT"), "");  // an end of one name, no branch

  EXPECT_STREQ(m_conn->GetNodeName("PRINTb").data(), "n1-b");
  EXPECT_STREQ(m_conn->GetNodeName("none").data(), "");
  EXPECT_STREQ(m_conn->GetNodeNameByIp("10.0.0.1").data(), "n1");
  EXPECT_STREQ(m_conn->GetNodeNameByIp("10.0.0.9b").data(), "n1-b");
}

TEST_P(DatabaseQuery, FillsByRules) {
  const std::string n = "halvoria\\system\\nodes\\";
  const auto fill = [&](std::vector<std::pair<const char*, const char*>> list, bool exact,
                        bool all) {
    Tree_PathAndValueArray rules(static_cast<int>(list.size()));
    for (size_t i = 0; i < list.size(); ++i) {
      rules.SetPV(static_cast<int>(i), list[i].first, list[i].second);
    }
    return texts(m_conn->FillPathWithRuleList(n + "%\\servers\\%", &rules, exact, all));
  };
  EXPECT_THAT(fill({{"dicom\\ae", "STORE"}}, true, true), ElementsAre(n + "n1\\servers\\main"));
  EXPECT_THAT(fill({{"dicom\\ae", "store"}}, true, true), IsEmpty());
  EXPECT_THAT(fill({{"dicom\\ae", "store"}}, false, true), ElementsAre(n + "n1\\servers\\main"));
  EXPECT_THAT(fill({{"dicom\\ae", "PRINT"}, {"note", "the Main server"}}, true, true), IsEmpty());
  EXPECT_THAT(fill({{"dicom\\ae", "PRINT"}, {"note", "the Main server"}}, true, false),
              ElementsAre(n + "n1\\servers\\main", n + "n1\\servers\\main-2"));
  EXPECT_THAT(fill({}, true, true), IsEmpty());
}

TEST_P(DatabaseQuery, SearchesNamesAndTexts) {
  const std::string s = "halvoria\\system\\nodes\\n1\\servers";
  EXPECT_THAT(search("main", true, false, false), ElementsAre(s + "\\main", s + "\\main-2"));
  EXPECT_THAT(search("serv", true, true, true), ElementsAre(s, s + "\\main\\note"));
  EXPECT_THAT(search("not", false, true, false), ElementsAre(s + "\\main\\note"));
  EXPECT_THAT(search("main", false, false, true), ElementsAre(s + "\\main\\note"));
  EXPECT_THAT(search("main", false, false, true, true), IsEmpty());
  EXPECT_THAT(search("Main", false, false, true, true), ElementsAre(s + "\\main\\note"));
  EXPECT_THAT(search("serv", false, false, true, false, true), IsEmpty());
  EXPECT_THAT(search("server", false, false, true, false, true), ElementsAre(s + "\\main\\note"));
}

TEST_P(DatabaseQuery, StreamsTrees) {
  const std::string n = "halvoria\\system\\nodes";
  EXPECT_THAT(query(n + "\\n2"), ElementsAre("empty"));
  EXPECT_THAT(query(n + "\\n2\\empty"), IsEmpty());
  EXPECT_THAT(
      query(n + "\\%\\properties", true),
      ElementsAre("n1", "n1\\properties", "n1\\properties\\additional_inet_address_2=10.0.0.9",
                  "n1\\properties\\inet_address=10.0.0.1", "n1-b", "n1-b\\properties",
                  "n1-b\\properties\\additional_inet_address_2=10.0.0.9b",
                  "n1-b\\properties\\inet_address=10.0.0.1b"));
  EXPECT_STREQ(m_conn->GetQueryRootPath().data(), n.c_str());
  EXPECT_THAT(query(n + "\\n1\\%\\%\\dicom\\ae", true),
              ElementsAre("servers", "servers\\main", "servers\\main\\dicom",
                          "servers\\main\\dicom\\ae=STORE", "servers\\main-2",
                          "servers\\main-2\\dicom", "servers\\main-2\\dicom\\ae=PRINT"));
  EXPECT_THAT(query(n + "\\%\\none", true), IsEmpty());

  const struct {
    const char* path;
    bool has_tree;
  } tops[] = {{"halvoria\\system\\nodes\\n2\\empty", true},
              {"halvoria\\system\\nodes\\leaf", false},
              {"halvoria\\none", false}};
  for (const auto& top : tops) {
    ASSERT_NE(m_conn->StartTreeQuery(top.path, false, false, nullptr, false, false), -1);
    EXPECT_EQ(m_conn->has_tree(), top.has_tree) << top.path;
    m_conn->CloseTreeQuery(true);
  }
  std::unique_ptr<Tree_NodeInfo> record;
  ASSERT_NE(m_conn->StartTreeQuery(n, false, false, nullptr, false, false), -1);
  record.reset(m_conn->GetNextFromQuery());
  ASSERT_TRUE(record);
  EXPECT_EQ(record->PathView(), "leaf");
}

TEST_P(DatabaseQuery, TellsWhatChanged) {
  const std::string last = m_conn->GetMaxSeqNumber().str();
  const std::string n = "halvoria\\system\\nodes";
  EXPECT_THAT(query(n, false, last.c_str()), IsEmpty());
  set(n + "\\n1\\properties\\inet_address", "10.0.0.2");
  set(n + "\\n1-b\\servers\\main\\note", "new");
  m_conn->RemoveSubTree(n + "\\n2", 1, true);
  EXPECT_THAT(query(n, false, last.c_str()), ElementsAre("n1-b\\servers\\main\\note=new",
                                                         "n1\\properties\\inet_address=10.0.0.2"));
  EXPECT_THAT(query(n + "\\%\\properties", true, last.c_str()),
              ElementsAre("n1\\properties\\inet_address=10.0.0.2"));
  EXPECT_THAT(query(n, false, last.c_str(), true), ElementsAre("n2", "n2\\empty"));
  EXPECT_THAT(query(n + "\\%\\empty", true, last.c_str(), true), ElementsAre("n2", "n2\\empty"));
  EXPECT_THAT(query(n, false, "1000", true, true), ElementsAre("n2", "n2\\empty"));

  // What a bulk write brought is found as well, and the single change after it.
  const std::string before = m_conn->GetMaxSeqNumber().str();
  ASSERT_EQ(write({{"halvoria\\new", ""}, {"halvoria\\new\\a", "1"}, {"halvoria\\new\\b", "1"}}),
            CFGDB_Conn::OK);
  set("halvoria\\new\\b", "2");
  EXPECT_THAT(query("halvoria", false, before.c_str()), ElementsAre("new", "new\\a=1", "new\\b=2"));
  const std::string behind = std::to_string(std::atoi(before.c_str()) + 3);
  EXPECT_THAT(query("halvoria", false, behind.c_str()), ElementsAre("new\\b=2"));
}

OVER_EVERY_STORE(DatabaseQuery);
