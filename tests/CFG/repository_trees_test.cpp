// Trees as every way to read them gives them, over each kind of repository: with texts that fit
// no record of fixed size, found by two rules, and by what changed in them.
#include <gtest/gtest.h>

#include <tree/Tree_Node.h>
#include "repository_worlds.h"

namespace {

using Repository = CFG_RepositoryServicesImp;
using Read = CFG_SubTree* (*)(Repository& repository, const RWCString& path);

const auto repositories = available({MEMORY, XML_FILE, DB_SQLITE, DB_POSTGRES, REMOTE_SQLITE,
                                     REMOTE_POSTGRES, CACHED_XML, CACHED_SQLITE, CACHED_REMOTE});

// A rule that finds nothing stands before the one that finds the key `k` below the root.
const char* rule[] = {"halvoria\\none", "halvoria"};

const struct {
  const char* name;
  Read read;
} tree_reads[] = {
    {"GetSubTree", [](Repository& r, const RWCString& path) { return r.GetSubTree(path); }},
    {"GetSubTree by position",
     [](Repository& r, const RWCString&) { return r.GetSubTree("halvoria", 0); }},
    {"GetSubTree by rule",
     [](Repository& r, const RWCString&) { return r.GetSubTree("k", rule, FALSE, 2); }},
    {"GetSubTree merged",
     [](Repository& r, const RWCString&) { return r.GetSubTree("k", rule, TRUE, 2); }},
    {"GetSubTreeOnlyWithValues",
     [](Repository& r, const RWCString& path) { return r.GetSubTreeOnlyWithValues(path); }},
    {"GetSubTreeOnlyWithValues by rule",
     [](Repository& r, const RWCString&) {
       return r.GetSubTreeOnlyWithValues("k", rule, FALSE, 2);
     }},
    {"GetSubTreeOnlyWithValues merged",
     [](Repository& r, const RWCString&) {
       return r.GetSubTreeOnlyWithValues("k", rule, TRUE, 2);
     }},
    {"GetSubTreeOnlyWithValuesMergeOneLevel",
     [](Repository& r, const RWCString&) {
       return r.GetSubTreeOnlyWithValuesMergeOneLevel("k", rule, 2);
     }},
    {"GetSubTreeOnlyWithValuesLong",
     [](Repository& r, const RWCString& path) { return r.GetSubTreeOnlyWithValuesLong(path); }},
    {"GetSubTreeWithLongValues",
     [](Repository& r, const RWCString& path) { return r.GetSubTreeWithLongValues(path); }},
    {"GetSubTreeWithPrecentAndWildcard",
     [](Repository& r, const RWCString& path) { return r.GetSubTreeWithPrecentAndWildcard(path); }},
    {"GetSubTreeOnlyWithValuesWithPrecentAndWildcard",
     [](Repository& r, const RWCString& path) {
       return r.GetSubTreeOnlyWithValuesWithPrecentAndWildcard(path);
     }},
};

TEST(RepositoryTrees, EveryReadTakesTextsOfAnyLength) {
  std::string value, deep = "k";
  while (value.size() < 100000) value += std::to_string(value.size()) + " ";
  for (int i = 0; i < 40; ++i) deep += "\\component_of_a_path_" + std::to_string(i);
  CFG_SubTree tree =
      tree_of("halvoria", {{(deep + "\\v").c_str(), value.c_str()}, {"k\\w", value.c_str()}});
  const std::string content = shown(*tree.GetData()->Child("k"));
  for (const WorldKind kind : repositories) {
    World world(kind, tree);
    Repository& repository = world.repository();
    for (const auto& [name, read] : tree_reads) {
      const SubTreePtr found(read(repository, "halvoria\\k"));
      EXPECT_TRUE(shown(found) == content) << name << ", kind " << kind << ": " << shown(found);
    }
    const RWCString key("halvoria\\" + deep);
    EXPECT_EQ(repository.GetValue(key + "\\v"), value) << kind;
    EXPECT_EQ(repository.GetValue(key, 0), value) << kind;
    EXPECT_EQ(SubTreePtr(repository.GetSubTree(key))->GetPath(), key) << kind;
    EXPECT_EQ(SubTreePtr(repository.GetSubTreeWithLongValues(key))->GetValue("v"), value) << kind;
    const std::unique_ptr<Tree_PathAndValueArray> records(repository.GetSubTreeValues(key));
    EXPECT_EQ(records->GetPV(0)->GetValue(), value.substr(0, 3071)) << "of fixed size, " << kind;
  }
}

// Of three rules the first two count.
TEST(RepositoryTrees, TwoRulesFindTheFirstKeyOrMergeBoth) {
  const CFG_SubTree tree = tree_of("halvoria", {{"a\\k\\x", "1"},
                                                {"a\\k\\y", "1"},
                                                {"b\\k\\empty", ""},
                                                {"b\\k\\y", "2"},
                                                {"b\\k\\z", "2"},
                                                {"c\\k\\third", "3"}});
  const struct {
    int merge;
    const char* rule[3];
    const char* key;
    const char* values_only;
  } cases[] = {
      {FALSE, {"halvoria\\a", "halvoria\\b", "halvoria\\c"}, "k{x=1 y=1}", "k{x=1 y=1}"},
      {FALSE, {"halvoria\\b", "halvoria\\a", "halvoria\\c"}, "k{empty{} y=2 z=2}", "k{y=2 z=2}"},
      {FALSE, {"halvoria\\d", "halvoria\\b", "halvoria\\c"}, "k{empty{} y=2 z=2}", "k{y=2 z=2}"},
      {TRUE,
       {"halvoria\\a", "halvoria\\b", "halvoria\\c"},
       "k{empty{} y=1 z=2 x=1}",
       "k{y=1 z=2 x=1}"},
      {TRUE,
       {"halvoria\\b", "halvoria\\a", "halvoria\\c"},
       "k{x=1 y=2 empty{} z=2}",
       "k{x=1 y=2 z=2}"},
      {TRUE, {"halvoria\\d", "halvoria\\b", "halvoria\\c"}, "k{empty{} y=2 z=2}", "k{y=2 z=2}"},
  };
  for (const WorldKind kind : repositories) {
    World world(kind, tree);
    Repository& repository = world.repository();
    for (auto c : cases) {
      const auto where = testing::Message()
                         << "merge " << c.merge << ", " << c.rule[0] << ", " << kind;
      EXPECT_EQ(shown(SubTreePtr(repository.GetSubTree("k", c.rule, c.merge, 2))), c.key) << where;
      EXPECT_EQ(shown(SubTreePtr(repository.GetSubTreeOnlyWithValues("k", c.rule, c.merge, 2))),
                kind == MEMORY ? c.key : c.values_only)
          << where;
    }
  }
}

// What a client that keeps a copy asks for.
TEST(RepositoryTrees, WhatChangedAndWhatWasDeletedAfterANumber) {
  for (const WorldKind kind : available({DB_SQLITE, DB_POSTGRES, REMOTE_SQLITE, REMOTE_POSTGRES})) {
    World world(kind, tree_of("halvoria", {{"a\\v", "1"}, {"b\\v", "2"}, {"c\\d\\v", "3"}}));
    Repository& r = world.repository();
    const auto changed = [&](RWCString number) {
      return shown(SubTreePtr(r.GetSubTreeBySeqNumber("halvoria", number)));
    };
    const auto deleted = [&](const char* path, RWCString number) {
      return shown(SubTreePtr(r.GetSubTreeOnlyDeletedNodes(path, number, false)));
    };
    const RWCString before = r.GetMaxSeqNumber();
    EXPECT_EQ(changed(before) + deleted("halvoria", before), "NULLNULL") << kind;
    EXPECT_TRUE(r.SetValue("halvoria\\b\\v", "changed"));
    EXPECT_TRUE(r.SetValue("halvoria\\n\\v", "new"));
    EXPECT_TRUE(r.DeleteSubTree("halvoria\\c\\d"));
    EXPECT_EQ(changed(before), "halvoria{b{v=changed} n{v=new}}") << kind;
    EXPECT_EQ(deleted("halvoria", before), "halvoria{c{d{v{}}}}") << kind;
    EXPECT_EQ(deleted("halvoria\\c", before), "c{d{v{}}}") << kind;
    EXPECT_EQ(changed(r.GetMaxSeqNumber()), "NULL") << kind;
    EXPECT_EQ(changed(""), world.content()) << kind;
    EXPECT_GT(std::stoi(r.GetMaxSeqNumber().str()),
              std::stoi(r.GetMaxSeqNumber("halvoria\\b").str()))
        << kind;
    EXPECT_LE(std::stoi(r.GetMinSeqNumberOfDeletedEntry().str()), std::stoi(before.str())) << kind;
    EXPECT_FALSE(r.GetServerSyncID().isNull()) << kind;
  }
}

}  // namespace
