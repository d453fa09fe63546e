#include <gtest/gtest.h>

#include <random>
#include <thread>
#include <vector>

#include <CFG/detail/tree_builder.h>
#include <logging/Log_Capture.h>
#include <tree/Tree_Node.h>
#include "recording_repository.h"
#include "test_trees.h"

namespace {

// --- reads by search rule ------------------------------------------------------------------------

using Imp = CFG_RepositoryServicesImp;
using RuleRead = CFG_SubTree* (Imp::*)(const RWCString&, const char**, int);
using MergeRead = CFG_SubTree* (Imp::*)(const RWCString&, const char**, int merge, int);

CFG_SubTree ruled_tree() {
  return tree_of("h", {{"s1\\k\\x", "1"},
                       {"s1\\k\\only1", "1"},
                       {"s1\\k\\sub\\a", "1"},
                       {"s2\\k\\x", "2"},
                       {"s2\\k\\only2", "2"},
                       {"s2\\k\\sub\\b", "2"},
                       {"s2\\m\\y", "2"}});
}

TEST(SearchRules, OnlyTheWildcardReadOfValuesLetsLaterPlacesWin) {
  CFG_SubTree tree = ruled_tree();
  CFG_MemoryRepository repository(&tree);
  const char* earlier_wins = "k{x=1 only2=2 sub{b=2 a=1} only1=1}";
  const struct {
    RuleRead first;
    MergeRead merged;
    const char* k;
    const char* nothing;  // the answer when no place has the key
  } cases[] = {
      {&Imp::GetSubTreeOnlyWithValues, &Imp::GetSubTreeOnlyWithValues, earlier_wins, "NULL"},
      {&Imp::GetSubTreeOnlyWithValuesLong, &Imp::GetSubTreeOnlyWithValuesLong, earlier_wins,
       "NULL"},
      {&Imp::GetSubTreeWithPrecentAndWildcard, &Imp::GetSubTreeWithPrecentAndWildcard, earlier_wins,
       "NULL"},
      {&Imp::GetSubTreeOnlyWithValuesWithPrecentAndWildcard,
       &Imp::GetSubTreeOnlyWithValuesWithPrecentAndWildcard, "k{x=2 only1=1 sub{a=1 b=2} only2=2}",
       "{}"},
  };
  const char* rule[] = {"h\\s1", "h\\s2"};
  for (const auto& c : cases) {
    const auto read = [&](const char* path, int merge, int count) {
      return SubTreePtr((repository.*c.merged)(path, rule, merge, count));
    };
    EXPECT_EQ(shown(read("k", TRUE, 2)), c.k);
    EXPECT_EQ(read("k", TRUE, 2)->GetPath().str().substr(0, 3), "h\\s");
    EXPECT_EQ(shown(read("k", FALSE, 2)), "k{x=1 only1=1 sub{a=1}}");
    EXPECT_EQ(shown(read("m", TRUE, 2)), "m{y=2}");
    EXPECT_EQ(shown(read("m", FALSE, 2)), "m{y=2}");
    EXPECT_EQ(shown(read("none", TRUE, 2)), c.nothing);
    EXPECT_EQ(shown(read("none", FALSE, 2)), "NULL");
    EXPECT_EQ(shown(SubTreePtr((repository.*c.first)("m", rule, 2))), "m{y=2}");
    Log_Capture capture;
    for (const int merge : {TRUE, FALSE}) {
      EXPECT_EQ(shown(read("k", merge, 0)), "NULL");
      EXPECT_TRUE(capture.has(" for path <k>: search_num must be more then 0 , return NULL\n"));
      EXPECT_EQ(shown(SubTreePtr((repository.*c.merged)("k", nullptr, merge, 1))), "NULL");
    }
  }
  EXPECT_EQ(shown(tree), shown(*std::make_unique<CFG_SubTree>(ruled_tree())))
      << "a merge changed the store";
}

TEST(SearchRules, MergeOneLevelTakesEachChildWholeFromTheFirstPlaceThatHasIt) {
  CFG_SubTree tree = ruled_tree();
  CFG_MemoryRepository repository(&tree);
  const char* rule[] = {"h\\none", "h\\s1", "h\\s2"};
  EXPECT_EQ(shown(SubTreePtr(repository.GetSubTreeOnlyWithValuesMergeOneLevel("k", rule, 3))),
            "k{x=1 only2=2 only1=1 sub{a=1}}");
  EXPECT_EQ(shown(SubTreePtr(repository.GetSubTreeOnlyWithValuesMergeOneLevel("k", rule, 1))),
            "NULL");
}

// --- writes with long values ----------------------------------------------------------------

TEST(LongValues, WritesMergeInTheDirectionTheyName) {
  const struct {
    int (*write)(Imp&, CFG_SubTree*, const char* path);
    const char* path;
    int expected;
    const char* content;
  } cases[] = {
      {[](Imp& r, CFG_SubTree* k, const char* p) {
         return r.AddOrReplaceSubTreeWithLongValues(k, p, TRUE);
       },
       "h\\p", TRUE, "h{p{k{a=new old=1 b=new}}}"},
      {[](Imp& r, CFG_SubTree* k, const char* p) {
         return r.AddOrReplaceSubTreeWithLongValues(k, p, FALSE);
       },
       "h\\p", TRUE, "h{p{k{a=new b=new}}}"},
      {[](Imp& r, CFG_SubTree* k, const char* p) {
         return r.AddMoreInfoToSubTreeWithLongValues(k, p);
       },
       "h\\p", TRUE, "h{p{k{a=1 b=new old=1}}}"},
      {[](Imp& r, CFG_SubTree* k, const char* p) {
         return r.AddMoreInfoToSubTreeWithLongValues(k, p);
       },
       "h\\q", TRUE, "h{p{k{a=1 old=1}} q{k{a=new b=new}}}"},
      {[](Imp& r, CFG_SubTree* k, const char* p) {
         return r.AddOrReplaceSubTreeWithLongValues(k, p, TRUE);
       },
       "h\\'", FALSE, "h{p{k{a=1 old=1}}}"},
      {[](Imp& r, CFG_SubTree* k, const char* p) {
         return r.AddOrReplaceSubTreeWithLongValues(k, p, FALSE);
       },
       "h\\'", FALSE, "h{p{k{a=1 old=1}}}"},
  };
  for (const auto& c : cases) {
    CFG_SubTree tree = tree_of("h", {{"p\\k\\a", "1"}, {"p\\k\\old", "1"}});
    CFG_MemoryRepository repository(&tree);
    repository.InitValidatePathProperties();  // on, as nothing is stored about it
    CFG_SubTree k = tree_of("k", {{"a", "new"}, {"b", "new"}});
    EXPECT_EQ(c.write(repository, &k, c.path), c.expected);
    EXPECT_EQ(shown(tree), c.content) << "row " << &c - cases;
  }
}

// --- comparison -----------------------------------------------------------------------------

TEST(Comparison, WritesWhatIsNewOrDifferentAndDeletesNothing) {
  const std::string long_text(4000, 'x');
  const std::string other_end = long_text.substr(1) + "y";
  const struct {
    CFG_SubTree current, stored;
    const char* calls;
  } cases[] = {
      {tree_of("k", {{"a", "1"}, {"s\\b", "1"}}), tree_of("k", {{"a", "1"}, {"s\\b", "1"}}), ""},
      {tree_of("k", {{"a", "2"}, {"n", "1"}}), tree_of("k", {{"a", "1"}, {"extra", "1"}}),
       "set h\\p\\k\\a=2;set h\\p\\k\\n=1;"},
      {tree_of("k", {{"s\\b", "2"}, {"new\\x", "1"}, {"t\\u\\v", "2"}}),
       tree_of("k", {{"t\\u\\v", "1"}, {"s\\b", "1"}, {"gone\\z", "1"}}),
       "set h\\p\\k\\s\\b=2;add new to h\\p\\k;set h\\p\\k\\t\\u\\v=2;"},
      {tree_of("k", {{"a\\b", "1"}, {"c", "1"}}), tree_of("k", {{"a", "1"}, {"c\\d", "1"}}),
       "set h\\p\\k\\c=1;add a to h\\p\\k;"},
      {tree_of("k", {{"t", long_text.c_str()}}), tree_of("k", {{"t", long_text.c_str()}}), ""},
      {tree_of("k", {{"t", other_end.c_str()}}), tree_of("k", {{"t", long_text.c_str()}}),
       "set h\\p\\k\\t=...;"},
  };
  for (const auto& c : cases) {
    CFG_SubTree tree("h");
    RecordingRepository repository(&tree);
    CFG_SubTree current(c.current), stored(c.stored);
    repository.CompareSubsAndChangeRepository(&current, &stored, "h\\p");
    EXPECT_EQ(repository.calls, c.calls) << "row " << &c - cases;
    repository.calls.clear();
    repository.CompareSubsAndChangeRepository(&current, nullptr, "h\\p");
    repository.InitValidatePathProperties();
    repository.CompareSubsAndChangeRepository(&current, &stored, "h\\p ");
    EXPECT_EQ(repository.calls, "");
  }
}

TEST(Comparison, KeepsTheWholeTextOfALongValue) {
  CFG_SubTree tree("h");
  CFG_MemoryRepository repository(&tree);
  const std::string text = std::string(5000, 'x') + "end";
  CFG_SubTree current = tree_of("k", {{"long", text.c_str()}}), stored("k");
  repository.CompareSubsAndChangeRepository(&current, &stored, "h");
  EXPECT_EQ(tree.GetValue("k\\long"), text.c_str());
}

// `current` is a live part of the store and is replaced key by key while it is gone through.
TEST(Comparison, MayWriteOverTheTreeItReads) {
  CFG_SubTree tree = tree_of("h", {{"k\\a\\v", "1"}, {"k\\b\\v", "1"}, {"k\\c\\v", "1"}});
  RecordingRepository repository(&tree);
  const SubTreePtr current(repository.GetSubTree("h", 0));
  CFG_SubTree stored("k");
  repository.CompareSubsAndChangeRepository(current.get(), &stored, "h");
  EXPECT_EQ(repository.calls, "add a to h\\k;add b to h\\k;add c to h\\k;");
  EXPECT_EQ(shown(tree), "h{k{a{v=1} b{v=1} c{v=1}}}");
}

TEST(Comparison, TakesNoStackForDepth) {
  Tree_NodePtr a(new Tree_Node("k")), b(new Tree_Node("k"));
  a->Add(new Tree_Node("v", "1", 1));
  for (int i = 0; i < 100000; ++i) {  // from the bottom up
    for (Tree_NodePtr* chain : {&a, &b}) {
      Tree_NodePtr above(new Tree_Node("k"));
      above->Add(*chain);
      *chain = above;
    }
  }
  CFG_SubTree current(a), stored(b), tree("h");
  CFG_MemoryRepository repository(&tree);
  repository.CompareSubsAndChangeRepository(&current, &stored, "h");
  EXPECT_EQ(tree.GetSubTreeEntriesCount(""), 100002);
}

// --- subtrees from lists --------------------------------------------------------------------

TEST(CreateSubTree, PlacesEachPairBelowItsPath) {
  Log_Capture capture;
  const SubTreePtr made(Imp::CreateSubTree("h\\Top", {{"h\\top\\a", "1"},
                                                      {"h\\top\\k", ""},
                                                      {"h\\top\\k\\b", "2"},
                                                      {"H\\top\\k\\c", "3"},
                                                      {"h\\top\\k\\s", ""},
                                                      {"h\\top\\k\\s\\d", "4"},
                                                      {"h\\top\\x\\y\\e", "5"},
                                                      {"h\\top\\x", ""},
                                                      {"h\\top\\x\\f", "6"},
                                                      {"h\\top\\a", "changed"}}));
  EXPECT_EQ(shown(made), "top{a=changed k{b=2 c=3 s{d=4}} x{y{e=5} f=6}}");
  EXPECT_EQ(made->GetPath(), "h\\top");
  EXPECT_EQ(shown(SubTreePtr(Imp::CreateSubTree("top", {}))), "top{}");

  const SubTreePtr refused(Imp::CreateSubTree("h", {{"h\\v", "1"},
                                                    {"h\\v\\below", "2"},
                                                    {"h\\v", ""},
                                                    {"other\\w", "3"},
                                                    {"h\\k\\", "4"},
                                                    {"h\\k\\x", "5"}}));
  EXPECT_EQ(shown(refused), "h{v=1 k{x=5}}");
  for (const char* part :
       {"without a root in the vec: path_elem_parent_path\n", "path <v> is both a key and a value",
        "path <other\\w> is not below <h>", "path <k\\> has no name"}) {
    EXPECT_TRUE(capture.has(part)) << part;
  }
}

// Paths that lie beside, above and below each other in no order, some of them odd.
TEST(TreeBuilder, PlacesEveryRecordWhereAddNodeToTreeDoes) {
  std::mt19937 random(7);
  const char* const parts[] = {"a", "b", "a-b", "ab", "a\\b", "a\\\\b", "c", "d\\e\\f"};
  int refused = 0;
  for (int round = 0; round < 300; ++round) {
    cfg::tree_builder builder("h\\top");
    Tree_NodePtr root(new Tree_Node("top"));
    CFG_BuildTreeState state;
    for (int i = 0; i < 60; ++i) {
      std::string path;
      for (size_t n = random() % 6; n > 0; --n) {
        path += parts[random() % std::size(parts)];
        if (random() % 3) path += '\\';
      }
      const std::string text = random() % 3 ? "" : std::to_string(i);
      Tree_NodeInfo record{RWCString(path), RWCString(text)};
      const bool is_placed = builder.add(path, text);
      EXPECT_EQ(is_placed, Imp::AddNodeToTree(root, &record, state)) << path;
      refused += !is_placed;
    }
    ASSERT_EQ(shown(*builder.tree()), shown(*root));
  }
  EXPECT_GT(refused, 1000);

  Tree_NodePtr root(new Tree_Node("top"));
  CFG_BuildTreeState state;
  Tree_NodeInfo record{"a\\b", ""};
  for (RWCString parent : {"a\\b", "longer\\than\\it"}) {
    record.SetParentPath(parent);
    EXPECT_FALSE(Imp::AddNodeToTree(root, &record, state)) << "nothing is left for a name";
  }
}

// --- application information ----------------------------------------------------------------

TEST(ApplicationInformation, IsReadOnceItIsComplete) {
  CFG_SubTree tree("halvoria");
  CFG_MemoryRepository repository(&tree);
  const RWCString info = "halvoria\\system\\applications\\cfg\\info\\";
  const struct {
    const char* path;
    const char* text;
    const char* missing;  // what the lookup before this value is set says
  } steps[] = {
      {"x", "1", "InitAppInfoTable() : Fail to get info sub tree, return FALSE"},
      {"vendor_name", "Halvoria",
       "InitAppInfoTable() : Fail to get vendor_name from info sub tree, return FALSE"},
      {"application_names\\viewer\\x", "1",
       "InitAppInfoTable() : Fail to get application_names sub tree"},
      {"application_names\\viewer\\display_name", "The Viewer",
       "InitAppInfoTable() : display_name return null or empty for viewer"},
      {"application_names\\viewer\\name", "Viewer",
       "InitAppInfoTable() : name return null or empty for viewer"},
  };
  for (const auto& step : steps) {
    Log_Capture capture;
    EXPECT_EQ(repository.GetVendorName(), "");
    EXPECT_TRUE(capture.has(step.missing)) << capture.text();
    repository.SetValue(info + step.path, step.text);
  }
  std::vector<std::thread> threads;  // all fill the table at once
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back(
        [&] { EXPECT_EQ(repository.GetApplicationDisplayName("viewer"), "The Viewer"); });
  }
  for (std::thread& thread : threads) thread.join();
  repository.SetValue(info + "vendor_name", "Other");
  EXPECT_EQ(repository.GetVendorName(), "Halvoria");
  EXPECT_EQ(repository.GetApplicationName("viewer"), "Viewer");
  EXPECT_EQ(repository.GetApplicationName("none"), "");
}

// --- the server and this process ------------------------------------------------------------

TEST(ServerProperties, GridAndDomainStayForTheLifeOfTheProcess) {
  CFG_SubTree tree =
      tree_of("halvoria", {{"system\\nodes\\server\\properties\\current_domain", "Radiology"},
                           {"system\\nodes\\server\\properties\\zone", "A"}});
  CFG_MemoryRepository repository(&tree), other(&tree);
  repository.SetProperty("current_node", "server");
  EXPECT_EQ(repository.GetServerNodeName(), "server");
  EXPECT_EQ(repository.GetCurrentDorranceDomainName(), "radiology");
  const RWCString grid = repository.GetServerProperty("grid_name");
  EXPECT_FALSE(grid.isNull());
  repository.SetValue("halvoria\\system\\nodes\\server\\properties\\grid_name", "north");
  repository.SetValue("halvoria\\system\\nodes\\server\\properties\\current_domain", "other");
  EXPECT_EQ(other.GetServerProperty("grid_name"), grid);
  EXPECT_EQ(other.GetServerProperty("current_domain"), "radiology");
  EXPECT_EQ(repository.GetServerProperty("zone"), "A");
  repository.SetValue("halvoria\\system\\nodes\\server\\properties\\zone", "B");
  EXPECT_EQ(repository.GetServerProperty("zone"), "B")
      << "any other property is read on every call";
}

TEST(ServerProperties, TheGuidIsAskedForOnceEmptyOrNot) {
  for (const char* first : {"", "{1}"}) {
    CFG_SubTree tree("halvoria");
    CFG_MemoryRepository repository(&tree);
    const RWCString path = "halvoria\\system\\applications\\plexaris\\sync\\server_guid";
    if (*first) repository.SetValue(path, first);
    EXPECT_EQ(repository.GetServerGUID(), first);
    repository.SetValue(path, "{2}");
    EXPECT_EQ(repository.GetServerGUID(), first);
  }
}

// A store that reports its times asks for the flag in every read, the one that computes the
// flag included.
TEST(PerformanceFlag, MayBeAskedForByTheReadThatComputesIt) {
  struct Reporting : CFG_MemoryRepository {
    using CFG_MemoryRepository::CFG_MemoryRepository;
    using CFG_MemoryRepository::GetValue;
    RWCString GetValue(const RWCString& path) override {
      during = CFGPerformanceEnabled();
      return CFG_MemoryRepository::GetValue(path);
    }
    bool during = true;
  };
  CFG_SubTree tree =
      tree_of("halvoria", {{"system\\applications\\events\\activation\\cfgperformance", "True"}});
  Reporting repository(&tree);
  EXPECT_TRUE(repository.CFGPerformanceEnabled());
  EXPECT_FALSE(repository.during);
  repository.DeleteSubTree("halvoria\\system");
  EXPECT_TRUE(repository.CFGPerformanceEnabled());
}

TEST(CoreProperties, AreLookedUpUntilAHostIsFound) {
  CFG_SubTree tree = tree_of("halvoria", {{"system\\hosts\\h1\\properties\\core_enabled", "no"},
                                          {"system\\hosts\\h2\\properties\\x", "1"}});
  CFG_MemoryRepository repository(&tree);
  using Core = std::pair<RWCString, RWCString>;
  for (int i = 0; i < 2; ++i) {
    Log_Capture capture;
    EXPECT_EQ(repository.GetCoreProperties(), Core());
    EXPECT_EQ(capture.last(), "Core Configuration is missing");
  }
  repository.SetValue("halvoria\\system\\hosts\\h2\\properties\\core_enabled", "yes");
  Log_Capture capture;
  EXPECT_EQ(repository.GetCoreProperties(), Core("h2", ""));
  EXPECT_TRUE(capture.has("core_ip can't be found in configuration"));
  repository.SetProperty("core_ip", "10.0.0.2");
  EXPECT_EQ(repository.GetCoreProperties(), Core("h2", "10.0.0.2"));
}

TEST(CoreProperties, HoldTheAddressOfTheFirstHost) {
  CFG_SubTree tree =
      tree_of("halvoria", {{"system\\hosts\\h1\\properties\\core_enabled", "yes"},
                           {"system\\hosts\\h1\\properties\\inet_address", "10.0.0.1"},
                           {"system\\hosts\\h2\\properties\\core_enabled", "yes"}});
  CFG_MemoryRepository repository(&tree);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(repository.GetCoreProperties(),
              std::make_pair(RWCString("h1"), RWCString("10.0.0.1")));
  }
}

TEST(Defaults, TheBaseIsTheRepositoryAndThereIsNoSecondaryStore) {
  CFG_SubTree tree = tree_of("h", {{"k\\v", "1"}}), k = tree_of("k", {{"w", "2"}});
  CFG_MemoryRepository repository(&tree);
  Log_Capture capture;
  EXPECT_TRUE(repository.DeleteSubTreeOnlySecondaryRep("h\\k"));
  EXPECT_TRUE(repository.DeleteValueOnlySecondaryRep("h\\k\\v"));
  EXPECT_TRUE(repository.AddOrReplaceSubTreeOnlySecondaryRep(&k, "h"));
  EXPECT_EQ(capture.last(), "AddOrReplaceSubTreeOnlySecondaryRep always TRUE path: h \n");
  EXPECT_EQ(shown(tree), "h{k{v=1}}");
  EXPECT_TRUE(repository.DeleteValueOnlyBaseRep("h\\k\\v"));
  EXPECT_EQ(shown(tree), "h{k{}}");
  EXPECT_TRUE(repository.AddOrReplaceSubTreeOnlyBaseRep(&k, "h"));
  EXPECT_EQ(shown(tree), "h{k{w=2}}");
  EXPECT_TRUE(repository.DeleteSubTreeOnlyBaseRep("h\\k"));
  EXPECT_EQ(shown(tree), "h{}");
}

}  // namespace
