// What a database adds to, and changes of, what the contract says for every repository.
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <thread>

#include <CFG/detail/path_validation.h>
#include <logging/Log_Capture.h>
#include <support/forked.h>
#include <tree/Tree_Node.h>
#include "../database_fixture.h"

namespace {

using Repository = CFG_DBRepository;

// --- messages ------------------------------------------------------------------------------------

struct Refusal {
  int (*ask)(Repository&);
  int level;
  const char* message;
};

#define SET "SetValue(const RWCString & value_path,const RWCString & value_data)"
const Refusal refusals[] = {
    {[](Repository& r) { return r.SetValue("", "v"); }, 3,
     SET "value <v> : value_path is Null,return FALSE\n"},
    {[](Repository& r) { return r.SetValue("halvoria\\x", ""); }, 3,
     SET " for path <halvoria\\x> : value_data is Null,return FALSE\n"},
    {[](Repository& r) { return r.SetValue("Halvoria", "v"); }, 3,
     SET " for path <halvoria> : Path does not start with 'halvoria\\',return FALSE\n"},
    {[](Repository& r) { return r.SetValue("x\\halvoria\\y", "v"); }, 3,
     SET " for path <x\\halvoria\\y> : Path does not start with 'halvoria\\',return FALSE\n"},
    {[](Repository& r) { return r.SetValue("halvoria\\K", "v"); }, 3,
     SET " : path <halvoria\\k> exist as sub tree ,return FALSE\n"},
    {[](Repository& r) { return r.SetValue("halvoria\\k\\v\\x\\y", "v"); }, 3,
     SET " path <halvoria\\k\\v\\x\\y>:  one of parent path <halvoria\\k\\v\\x> nodes exist as "
         "value,return FALSE\n"},
    {[](Repository& r) { return r.DeleteSubTree(""); }, 3,
     "DeleteSubTree(const RWCString & path) : path is empty string, return FALSE\n"},
    {[](Repository& r) {
       CFG_SubTree none{Tree_NodePtr()};
       return r.AddOrReplaceSubTree(&none, "halvoria");
     },
     3, "path <halvoria> sub tree data is null, return FALSE\n"},
    {[](Repository& r) {
       CFG_SubTree other("Halvorian");
       return r.AddOrReplaceSubTree(&other, "");
     },
     3, "path is empty string, key is <halvorian> return FALSE\n"},
    {[](Repository& r) { return r.SetKeyName("halvoria\\k\\v", "new"); }, 3,
     "SetOrRanameKeyName(const RWCString & path,const RWCString & key_name) : path <halvoria\\k\\v> "
     "does not exist or not represent a sub tree, return FALSE\n"},
    {[](Repository& r) { return r.SetValueName("halvoria\\k", "none", "new"); }, 3,
     "in CFG_DBRepository::SetValueName : value <halvoria\\k\\none> can not be renamed to "
     "<halvoria\\k\\new>, returning FALSE\n"},
    {[](Repository& r) { return int{r.GetSubTree("halvoria\\none") != nullptr}; }, 7,
     "GetSubTree(RWCString & path) GetTreeNode return null, return NULL: \n"},
    {[](Repository& r) { return int{r.GetSubTree("halvoria\\k", 0) != nullptr}; }, 7,
     "GetSubTree(RWCString & _path,int index) : no sub tree under _path <halvoria\\k>, return "
     "NULL\n"},
    {[](Repository& r) { return int{r.GetSubTree("halvoria", 1) != nullptr}; }, 3,
     "GetSubTree(RWCString & _path,int index) : index parameter is larger then the larger index of "
     "sub trees under _path, return NULL\b"},
    {[](Repository& r) { return int{r.GetSubTreePaths("halvoria\\k") != nullptr}; }, 7,
     "GetSubTreePaths(const RWCString & _path) : no paths found , return NULL\n"},
    {[](Repository& r) { return int{!r.FillPath("halvoria\\%", "", "v").isNull()}; }, 3,
     "FillPath(const RWCString path, const RWCString value_name, const RWCString value_data) : "
     "value_name is an empty string , return empty string\n"},
    {[](Repository& r) { return int{r.GetSubTreeWithPrecentAndWildcard("") != nullptr}; }, 7,
     "GetSubTreeWithPrecentAndWildcard(const RWCString & path) GetTreeNodeWithPrecentAndWildcard "
     "return null, return NULL: \n"},
    {[](Repository& r) { return int{r.Search("v", "") != nullptr}; }, 3,
     "name<v>: path parameter is an empty string, return NULL\n"},
    {[](Repository& r) { return int{r.Search("v", "halvoria\\none") != nullptr}; }, 3,
     "fail to get sub tree for path : <halvoria\\none>, return NULL\n"},
};
#undef SET

TEST_P(Database, RefusesAndFindsNothingWithTheMessageOfTheOperation) {
  write(tree_of("halvoria", {{"k\\v", "1"}}));
  for (const Refusal& c : refusals) {
    Log_Capture capture;
    EXPECT_FALSE(c.ask(*m_repository)) << c.message;
    int level = 0;
    for (const auto& line : capture.lines()) level = line.text == c.message ? line.level : level;
    EXPECT_EQ(level, c.level) << c.message << capture.text();
  }
  EXPECT_EQ(content(), "halvoria{k{v=1}}");
}

TEST_P(Database, SaysThatTheDatabaseFailedWhenItIsGone) {
  write(tree_of("halvoria", {{"k\\v", "1"}}));
  EXPECT_TRUE(m_repository->DisConnect());
  EXPECT_TRUE(m_repository->DisConnect());
  const struct {
    int (*ask)(Repository&);
    const char* message;
  } cases[] = {
      {[](Repository& r) { return r.SetValue("halvoria\\k\\v", "2"); },
       "<halvoria\\k\\v>: db error in create parent path <halvoria\\k> ,return FALSE\n"},
      {[](Repository& r) { return r.DeleteValue("halvoria\\k\\v"); },
       "RemoveLine return db error , return FALSE\n"},
      {[](Repository& r) { return r.DeleteSubTree("halvoria\\k"); },
       "for path <halvoria\\k> : db error, return FALSE\n"},
      {[](Repository& r) { return r.CreatePath("halvoria\\n"); },
       "CreatePath(): db error in CreatePath <halvoria\\n> ,return FALSE\n"},
      {[](Repository& r) {
         CFG_SubTree tree("t");
         return r.AddOrReplaceSubTree(&tree, "halvoria");
       },
       "path <halvoria>: sub tree <t> was not written"},
      {[](Repository& r) { return int{r.GetSubTree("halvoria") != nullptr}; },
       "open query failed \n"},
  };
  for (const auto& c : cases) {
    Log_Capture capture;
    EXPECT_FALSE(c.ask(*m_repository)) << c.message;
    EXPECT_TRUE(capture.has(c.message)) << c.message << capture.text();
  }
  EXPECT_EQ(m_repository->GetValue("halvoria\\k\\v"), "");
  EXPECT_TRUE(m_repository->Connect());
  EXPECT_EQ(m_repository->GetValue("halvoria\\k\\v"), "1");
}

// --- transactions --------------------------------------------------------------------------------

TEST_P(Database, ShowsChangesToOthersWhenTheyAreCommitted) {
  const auto other = another();
  write(tree_of("halvoria", {{"a", "1"}, {"k\\b", "1"}}));
  const auto change = [&](const char* text) {
    EXPECT_TRUE(m_repository->SetValue("halvoria\\a", text));
    EXPECT_TRUE(m_repository->DeleteSubTree("halvoria\\k"));
    EXPECT_TRUE(m_repository->HasPendingChanges());
    EXPECT_EQ(m_repository->GetValue("halvoria\\a"), text) << "seen by who made it";
    EXPECT_EQ(shown(SubTreePtr(other->GetSubTree("halvoria"))), "halvoria{a=1 k{b=1}}");
  };
  Log_Capture capture;
  EXPECT_TRUE(m_repository->Lock());
  change("2");
  EXPECT_TRUE(m_repository->Rollback());
  EXPECT_EQ(content(), "halvoria{a=1 k{b=1}}");
  EXPECT_TRUE(m_repository->UnLock());
  EXPECT_EQ(capture.last(),
            "UnLock() : Action does not done without commit, return TRUE and set auto commit to "
            "true\n");
  EXPECT_TRUE(m_repository->GetAutoCommit());

  EXPECT_TRUE(m_repository->StartTransactionUpdate());
  change("3");
  EXPECT_TRUE(m_repository->EndTransactionUpdate(true));
  EXPECT_EQ(content(), "halvoria{a=1 k{b=1}}");

  EXPECT_TRUE(m_repository->Lock());
  change("4");
  EXPECT_TRUE(m_repository->DisConnect()) << "what was pending is lost";
  EXPECT_TRUE(m_repository->Connect());
  EXPECT_TRUE(m_repository->UnLock());
  EXPECT_EQ(content(), "halvoria{a=1 k{b=1}}");

  EXPECT_TRUE(m_repository->Lock());
  change("5");
  EXPECT_TRUE(m_repository->Commit());
  EXPECT_EQ(other->GetValue("halvoria\\a"), "5");
  EXPECT_TRUE(m_repository->SetValue("halvoria\\a", "6"));
  EXPECT_TRUE(m_repository->UnLock());
  EXPECT_EQ(capture.last(), "UnLock() : Commit() OK, return TRUE and set auto commit to true\n");
  EXPECT_EQ(shown(SubTreePtr(other->GetSubTree("halvoria"))), "halvoria{a=6}");
}

TEST_P(Database, LetsOneWriterInAndRefusesWhoWaitedTooLong) {
  const auto other = another();
  write(tree_of("halvoria", {{"a", "1"}}));
  EXPECT_TRUE(m_repository->Lock());
  EXPECT_TRUE(m_repository->SetValue("halvoria\\a", "2"));
  other->SetWriteWait(20);
  EXPECT_FALSE(other->SetValue("halvoria\\b", "1"));
  EXPECT_FALSE(other->DeleteValue("halvoria\\a"));
  other->SetWriteWait(10000);
  std::thread waits([&] { EXPECT_TRUE(other->SetValue("halvoria\\b", "2")); });
  EXPECT_TRUE(m_repository->UnLock());
  waits.join();
  EXPECT_EQ(content(), "halvoria{a=2 b=2}");
}

TEST_P(Database, AnUpdateEndsWithItsThread) {
  Log_Capture log;
  std::thread([this] {
    EXPECT_TRUE(m_repository->StartTransactionUpdate());
    EXPECT_TRUE(m_repository->SetValue("halvoria\\a", "left"));
  }).join();
  EXPECT_TRUE(log.has("a thread ended within a transaction"));
  EXPECT_TRUE(m_repository->SetValue("halvoria\\b", "kept"));
  const auto other = another();
  EXPECT_TRUE(other->SetValue("halvoria\\c", "kept"));
  EXPECT_EQ(shown(SubTreePtr(other->GetSubTree("halvoria"))), "halvoria{b=kept c=kept}");
  // What another thread has ended since, or its repository has, is not its any more.
  std::barrier steps(2);
  std::thread late([&] {
    EXPECT_TRUE(m_repository->StartTransactionUpdate());
    steps.arrive_and_wait();
    steps.arrive_and_wait();
  });
  steps.arrive_and_wait();
  EXPECT_TRUE(m_repository->SetValue("halvoria\\b", "committed"));
  EXPECT_TRUE(m_repository->EndTransactionUpdate(false));
  EXPECT_TRUE(m_repository->Lock());
  EXPECT_TRUE(m_repository->SetValue("halvoria\\b", "pending"));
  steps.arrive_and_wait();
  late.join();
  EXPECT_TRUE(m_repository->HasPendingChanges());
  m_repository.reset();
  EXPECT_TRUE(log.has("what was not committed is undone in <"));
  EXPECT_EQ(other->GetValue("halvoria\\b"), "committed");
}

// A refused change of several steps leaves none of them.
TEST_P(Database, LeavesNoHalfOfAChange) {
  write(tree_of("halvoria", {{"k\\v", "1"}, {"other", "2"}, {"third", "3"}}));
  const RWCString before = m_repository->GetMaxSeqNumber();
  EXPECT_FALSE(m_repository->SetValue("halvoria\\k\\v\\x", "3"));
  for (const char* name : {"", "k", "third", "a\\b", "\\"}) {
    EXPECT_FALSE(m_repository->SetValueName("halvoria", "other", name)) << name;
  }
  EXPECT_EQ(content(), "halvoria{k{v=1} other=2 third=3}");
  EXPECT_EQ(m_repository->GetMaxSeqNumber(), before);
  EXPECT_FALSE(m_repository->HasPendingChanges());
}

// Trees come from others, too: with what no tree that is made here has.
TEST_P(Database, KeepsTreesOutThatCouldNotBeFoundOrSent) {
  write(tree_of("halvoria", {{"k\\v", "1"}}));
  const Tree_NodePtr capitals(new Tree_Node("New"));
  capitals->AddValue("Name", "x", 0);
  CFG_SubTree found(capitals);
  EXPECT_TRUE(m_repository->AddOrReplaceSubTree(&found, "Halvoria\\K"));
  EXPECT_EQ(m_repository->GetValue("halvoria\\k\\new\\name"), "x");
  EXPECT_EQ(content(), "halvoria{k{new{name=x} v=1}}");

  const Tree_NodePtr nul(new Tree_Node("nul")), chain(new Tree_Node("chain"));
  nul->AddValue("text", std::string_view("a\0b", 3), 0);
  Tree_Node* last = chain.get();
  for (int i = 0; i < 20000; ++i) last = last->AddKey("d");
  const struct {
    const Tree_NodePtr& tree;
    const char* reason;
  } cases[] = {{nul, "nul\\text>: the value holds a NUL byte"},
               {chain, "d>: the path is longer than 2600 bytes"}};
  for (const auto& c : cases) {
    const Log_Capture log;
    CFG_SubTree tree(c.tree);
    EXPECT_FALSE(m_repository->AddOrReplaceSubTree(&tree, "halvoria"));
    EXPECT_TRUE(log.has(c.reason)) << log.text();
    EXPECT_LT(log.text().size(), 10000u);
  }
  EXPECT_FALSE(m_repository->SetValue("halvoria\\n", RWCString(std::string_view("a\0b", 3))));
  EXPECT_EQ(content(), "halvoria{k{new{name=x} v=1}}");
}

TEST_P(Database, DeletesKeysThatValidationWouldNotLetInAndSaysWhatItRefuses) {
  write(tree_of("halvoria", {{"100%\\v", "1"}}));
  cfg::set_path_validation(true);
  EXPECT_TRUE(m_repository->DeleteSubTree("halvoria\\100%"));
  EXPECT_FALSE(m_repository->DeleteSubTree("halvoria\\100%"));
  cfg::set_path_validation(false);
  EXPECT_EQ(m_repository->TakeRefusal(), "path <halvoria\\100%>: path validation refuses it");
  EXPECT_EQ(content(), "halvoria{}");
  CFG_SubTree tree("k");
  EXPECT_FALSE(m_repository->AddOrReplaceSubTree(&tree, ""));
  EXPECT_EQ(m_repository->TakeRefusal(), "path <>: the root alone is written without a path");
  EXPECT_TRUE(m_repository->SetValue("halvoria\\a", "1"));
  EXPECT_EQ(m_repository->TakeRefusal(), "");
}

TEST_P(Database, ServesSeveralThreads) {
  write(tree_of("halvoria", {{"a", "1"}}));
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([this, t] {
      const RWCString key = "halvoria\\k" + std::to_string(t);
      for (int i = 0; i < 20; ++i) {
        const RWCString text = std::to_string(i), path = key + "\\v" + text;
        EXPECT_TRUE(m_repository->SetValue(path, text));
        EXPECT_EQ(m_repository->GetValue(path), text);
        EXPECT_EQ(SubTreePtr(m_repository->GetSubTree(key))->GetSubTreeEntriesCount(""), i + 1);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(m_repository->GetSubTreeEntriesCount("halvoria"), 1 + 3 * 21);
}

// --- changes by name and number ------------------------------------------------------------------

TEST_P(Database, RenamesKeysAndValues) {
  write(tree_of("halvoria", {{"k\\v", "1"}, {"k\\s\\w", "2"}, {"m\\x", "3"}}));
  EXPECT_TRUE(m_repository->SetKeyName("halvoria\\k", "New"));
  EXPECT_TRUE(m_repository->SetValueName("Halvoria\\new", "V", "renamed"));
  EXPECT_EQ(content(), "halvoria{m{x=3} new{renamed=1 s{w=2}}}");
  const RWCString number = m_repository->GetMaxSeqNumber();
  EXPECT_TRUE(m_repository->SetKeyName("halvoria\\new", "NEW"));
  EXPECT_TRUE(m_repository->SetValueName("halvoria\\m", "x", "X"));
  EXPECT_EQ(m_repository->GetMaxSeqNumber(), number) << "no change";
  EXPECT_TRUE(m_repository->CreatePath("halvoria\\p\\Q"));
  EXPECT_FALSE(m_repository->CreatePath("halvoria\\new\\renamed\\y"));
  EXPECT_EQ(content(), "halvoria{m{x=3} new{renamed=1 s{w=2}} p{q{}}}");
}

TEST_P(Database, GivesWhatChangedAndWhatWasDeletedAfterANumber) {
  write(tree_of("halvoria", {{"a\\v", "1"}, {"b\\v", "2"}, {"c\\d\\v", "3"}}));
  RWCString number = m_repository->GetMaxSeqNumber();
  EXPECT_EQ(shown(SubTreePtr(m_repository->GetSubTreeBySeqNumber("halvoria", number))), "NULL");
  EXPECT_TRUE(m_repository->SetValue("halvoria\\b\\v", "changed"));
  EXPECT_TRUE(m_repository->SetValue("halvoria\\n\\v", "new"));
  EXPECT_TRUE(m_repository->DeleteSubTree("halvoria\\c\\d"));
  const SubTreePtr changed(m_repository->GetSubTreeBySeqNumber("halvoria", number));
  EXPECT_EQ(shown(changed), "halvoria{b{v=changed} n{v=new}}");
  const SubTreePtr deleted(m_repository->GetSubTreeOnlyDeletedNodes("halvoria", number, false));
  EXPECT_EQ(shown(deleted), "halvoria{c{d{v{}}}}");
  EXPECT_EQ(
      shown(SubTreePtr(m_repository->GetSubTreeOnlyDeletedNodes("halvoria\\c", number, false))),
      "c{d{v{}}}");
  number = m_repository->GetMaxSeqNumber();
  EXPECT_GT(std::stoi(number.str()), std::stoi(m_repository->GetMaxSeqNumber("halvoria\\b").str()));
  const SubTreePtr none(m_repository->GetSubTreeOnlyDeletedNodes("halvoria", number, false));
  EXPECT_EQ(shown(none), "NULL");
  const SubTreePtr all(m_repository->GetSubTreeOnlyDeletedNodes("halvoria", number, true));
  EXPECT_EQ(shown(all), "halvoria{c{d{v{}}}}");
  number = "";
  EXPECT_EQ(shown(SubTreePtr(m_repository->GetSubTreeBySeqNumber("halvoria", number))), content());
  EXPECT_FALSE(m_repository->GetServerSyncID().isNull());
  EXPECT_EQ(another()->GetServerSyncID(), m_repository->GetServerSyncID());
}

TEST_P(Database, ForkedProcessesHaveConnectionsOfTheirOwn) {
  constexpr char path[] = "halvoria\\k\\v";
  ASSERT_TRUE(m_repository->SetValue(path, "before"));
  std::atomic<bool> is_over{false};
  std::thread busy([&] {
    while (!is_over) EXPECT_FALSE(m_repository->GetValue(path).isNull());
  });
  for (int i = 0; i < 5; ++i) {
    EXPECT_TRUE(holds_in_child([&] {
      return !m_repository->GetValue(path).isNull() && m_repository->SetValue(path, "the child's");
    }));
    EXPECT_EQ(m_repository->GetValue(path), "the child's");
    EXPECT_TRUE(m_repository->SetValue(path, "the parent's"));
  }
  is_over = true;
  busy.join();

  // What is pending is the parent's; while it is in a file, the child keeps off that.
  const bool is_file = GetParam() == std::string("SQLite");
  EXPECT_TRUE(m_repository->Lock());
  EXPECT_TRUE(m_repository->SetValue(path, "pending"));
  EXPECT_TRUE(holds_in_child(
      [&] { return m_repository->GetValue(path) == (is_file ? "" : "the parent's"); }));
  EXPECT_TRUE(m_repository->UnLock());
  EXPECT_EQ(another()->GetValue(path), "pending");
}

OVER_EVERY_DATABASE(Database);

}  // namespace
