#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <thread>

#include <CFG/CFG_FileRepository.h>
#include <CFG/CFG_MemoryRepository.h>
#include <CFG/CFG_RepositoryServices.h>
#include <logging/Log_Capture.h>
#include <tree/Tree_Node.h>
#include "test_trees.h"

// What callers write has to reach the operation that they mean, on every class.
template <class Services>
void read_with_literals(Services& services) {
  const char* rule[] = {"a", "b"};
  const RWCString constant("path");
  RWCString variable("path");
  static_assert(std::is_same_v<decltype(services.GetValue("x", rule, 2)), Tree_ValueAndPath*>);
  services.GetValue("x");
  services.GetValue(constant, 0);
  services.GetSubTree(variable);
  services.GetSubTree("x", rule, 1, 2);
  services.GetSubTreeNum("");
  services.AddOrReplaceSubTree(nullptr, "x");
}
template void read_with_literals(CFG_Services&);
template void read_with_literals(CFG_RepositoryServices&);

namespace {

TEST(Services, LiteralsReachTheOperationThatIsMeant) {
  CFG_SubTree tree = tree_of("t", {{"x", "text"}, {"k\\v", "1"}});
  CFG_Services& services = tree;
  RWCString variable("");
  EXPECT_EQ(services.GetValue("", 0), "text");
  EXPECT_EQ(tree.GetValue("", 0), "text");
  EXPECT_EQ(tree.GetValue(variable, 0), "text");
  EXPECT_EQ(tree.GetValue("none", "default"), "default");
  EXPECT_EQ(tree.GetValue("none", RWCString("default")), "default");
  EXPECT_EQ(SubTreePtr(tree.GetSubTree("", 0))->GetKeyName(), "k");
  EXPECT_EQ(tree.GetValueName("", 0), "x");
  EXPECT_EQ(tree.GetValueNum("") + tree.GetSubTreeNum(variable), 2);
}

// --- paths -----------------------------------------------------------------------------------

struct PathCase {
  const char* path;
  int expected;
  const char* message;  // part of the last one; "" for none
};
const PathCase path_cases[] = {
    {"", TRUE, ""},
    {"system\\nodes", TRUE, ""},
    {"two words\\a b", TRUE, ""},
    {"M\xC3\xBCnchen\\\xFF", TRUE, ""},
    {"system\\\\nodes", TRUE,
     "op using IsValidPath: \\  after \\  , bad path <system\\\\nodes>, at offset 7 - treated as "
     "warning\n"},
    {"\\system", FALSE, "op using IsValidPath: \\ char at begining bad path <\\system>\n"},
    {"\\", FALSE, "char at begining"},
    {"system\\", FALSE,
     "op using IsValidPath: white space char <0x0> after \\  , bad path <system\\>, at offset 7\n"},
    {"system\\\\", FALSE, "white space char <0x0> after \\  , bad path <system\\\\>, at offset 8"},
    {"system \\nodes", FALSE,
     "op using IsValidPath: white space char <0x20> before \\ , bad path <system \\nodes>, at "
     "offset 6\n"},
    {"system\\ nodes", FALSE,
     "white space char <0x20> after \\  , bad path <system\\ nodes>, at offset 7"},
    {"nodes ", FALSE,
     "op using IsValidPath: last char is white space char <0x20>, bad path <nodes >, at offset "
     "5\n"},
    {" nodes", FALSE,
     "op using IsValidPath: first char is white space char <0x20>, bad path < nodes>, at offset "
     "0\n"},
    {"nodes\x7F", FALSE, "last char is white space char <0x7F>"},
    {"no\x7F"
     "des",
     FALSE,
     "invalid char <0x7F>, bad path <no\x7F"
     "des>, at offset 2"},
    {"100%\\x", FALSE,
     "op using IsValidPath: invalid char <0x25>, bad path <100%\\x>, at offset 3\n"},
    {"it's", FALSE, "invalid char <0x27>"},
    {"a\tb", FALSE, "invalid char <0x9>"},
};

TEST(Paths, ValidationNamesTheOffendingByte) {
  CFG_SubTree tree("t");
  for (const PathCase& c : path_cases)
    EXPECT_EQ(tree.IsValidPath(c.path, "op"), TRUE) << "off by default";
  tree.InitValidatePathProperties();
  for (const PathCase& c : path_cases) {
    Log_Capture capture;
    EXPECT_EQ(tree.IsValidPath(c.path, "op"), c.expected) << c.path;
    EXPECT_EQ(capture.lines().empty(), *c.message == '\0') << c.path;
    EXPECT_THAT(capture.last(), testing::HasSubstr(c.message)) << c.path;
  }
  Log_Capture capture;
  EXPECT_FALSE(tree.IsValidPath(" both ends ", nullptr));
  EXPECT_EQ(capture.lines().size(), 2u);
  EXPECT_TRUE(capture.has("not specified using IsValidPath: last char"));
}

TEST(Paths, TheSettingSwitchesValidation) {
  const std::pair<const char*, int> cases[] = {{"0", TRUE},   {"FALSE", TRUE}, {"01", TRUE},
                                               {"no", FALSE}, {"1", FALSE},    {"", FALSE}};
  for (const auto& [setting, accepted] : cases) {
    CFG_SubTree tree =
        tree_of("t", {{"halvoria\\system\\applications\\central_configuration\\other", "x"}});
    tree.SetValue("halvoria\\system\\applications\\central_configuration\\validate_path", setting);
    tree.InitValidatePathProperties();
    EXPECT_EQ(tree.IsValidPath("a'b", "op"), accepted) << setting;
    EXPECT_EQ(tree.SetValue("a'b", "x"), accepted) << setting;
    EXPECT_EQ(tree.DeleteValue("a'b"), accepted) << setting;
  }
}

TEST(Paths, PlaceholdersAreReplacedUpToTheFirstThatIsNotSet) {
  CFG_SubTree tree("t");
  tree.SetProperty("a", "X");
  tree.SetProperty("Node", "Alpha\\Beta");
  tree.SetProperty("self", "<self>");
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},
      {"p\\<a>\\<b>\\<a>", "p\\x\\<b>\\<a>"},
      {"<Node>", "alpha\\beta"},
      {"<node>\\<a>", "<node>\\<a>"},
      {"<self>\\<a>", "<self>\\x"},
      {"<a", "<a"},
      {"a>b<a>", "a>bx"},
      {"<>\\<a>", "<>\\<a>"},
      {"\xC3\x84"
       "B<a>",
       "\xC3\xA4"
       "bx"},
      {std::string(300, 'Q') + "<a>", std::string(300, 'q') + "x"},
  };
  for (const auto& [path, expected] : cases) {
    EXPECT_EQ(tree.change_string_with_properties(path).str(), expected);
  }
  tree.SetValue("alpha\\beta\\v", "found");
  EXPECT_EQ(tree.GetValue("<Node>\\V"), "found");
}

TEST(Paths, LowerCasingReachesLettersBeyondAscii) {
  const std::pair<const char*, const char*> cases[] = {{"ABC-xyz[]", "abc-xyz[]"},
                                                       {"\xC3\x96"
                                                        "L",
                                                        "\xC3\xB6l"},
                                                       {"A\xFF", "a\xFF"}};
  for (const auto& [text, expected] : cases) {
    RWCString lowered(text);
    CFG_ServicesImp::tolower(lowered);
    EXPECT_EQ(lowered, expected);
  }
}

// --- properties --------------------------------------------------------------------------------

TEST(Properties, AreSharedByAllServicesAndNeverCleared) {
  CFG_SubTree one("one"), other("other");
  EXPECT_FALSE(one.SetProperty("", "x"));
  EXPECT_FALSE(one.SetProperty("p", ""));
  for (const char* text : {"first", "first", "second", "first"}) {
    EXPECT_TRUE(one.SetProperty("p", text));
    EXPECT_EQ(other.GetProperty("p"), text);
  }
  EXPECT_EQ(one.GetProperty("P"), "") << "names are case-sensitive";
  EXPECT_EQ(one.GetProperty(""), "");
}

TEST(Properties, DescribeTheProcess) {
  CFG_SubTree tree("t");
  EXPECT_TRUE(tree.IsMappingExist());
  EXPECT_FALSE(tree.IsItServer());
  tree.SetProperty("mapping", "Exist");
  tree.SetProperty("client_or_server", "SERVER");
  EXPECT_TRUE(tree.IsMappingExist() && tree.IsItServer());
  tree.SetProperty("mapping", "none");
  EXPECT_FALSE(tree.IsMappingExist());
}

TEST(Properties, ReadersSeeWholeTextsWhileTheyAreReplaced) {
  CFG_SubTree tree("t");
  const std::string texts[] = {std::string(100, 'a'), std::string(60, 'b')};
  tree.SetProperty("p", texts[0]);
  std::atomic<bool> stop{false};
  std::thread writer([&] {
    CFG_SubTree own("w");
    for (int i = 0; i < 5000; ++i) {
      own.SetProperty("p", texts[i % 2]);
      own.SetProperty("new" + RWCString(std::to_string(i)), "x");
    }
    stop = true;
  });
  int torn = 0;
  while (!stop) {
    const RWCString text = tree.change_string_with_properties("<p>");
    torn += text != texts[0].c_str() && text != texts[1].c_str();
  }
  writer.join();
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(tree.GetProperty("new4999"), "x");
}

// --- typed values ------------------------------------------------------------------------------

TEST(TypedValues, IntegersAreReadFromTheFrontOfTheText) {
  const std::pair<const char*, int> numbers[] = {{"0", 0},
                                                 {"12abc", 12},
                                                 {"-5", -5},
                                                 {" \t+7", 7},
                                                 {"2147483647", 2147483647},
                                                 {"-2147483648", std::numeric_limits<int>::min()}};
  CFG_SubTree tree("t");
  for (const auto& [text, number] : numbers) {
    tree.SetValue("n", text);
    const std::unique_ptr<int> read(tree.GetIntegerValue("n"));
    ASSERT_TRUE(read) << text;
    EXPECT_EQ(*read, number);
  }
  for (const char* text :
       {"abc", "00", "-0", "+-3", " ", "-", "2147483648", "99999999999999999999"}) {
    tree.SetValue("n", text);
    Log_Capture capture;
    EXPECT_EQ(tree.GetIntegerValue("n"), nullptr) << text;
    EXPECT_EQ(
        capture.last(),
        "GetIntegerValue(const RWCString path) : path n does not represent an int, return NULL\n");
    EXPECT_EQ(tree.GetIntegerValueWrapper("n", 3), 3);
  }
  EXPECT_EQ(tree.GetIntegerValue("missing"), nullptr);
  EXPECT_EQ(*std::unique_ptr<int>(tree.GetIntegerValue("missing", 8)), 8);
  EXPECT_TRUE(tree.SetIntegerValue("m", -40));
  EXPECT_EQ(tree.GetValue("m"), "-40");
}

TEST(TypedValues, OnlyTrueIsTrueAndMissingDoublesAreZero) {
  CFG_SubTree tree = tree_of("t", {{"t", "TrUe"}, {"one", "1"}, {"yes", "yes"}, {"x", "1.25"}});
  EXPECT_EQ(*std::unique_ptr<int>(tree.GetBooleanValue("t")), 1);
  EXPECT_EQ(*std::unique_ptr<int>(tree.GetBooleanValue("yes")), 0);
  EXPECT_EQ(tree.GetBooleanValue("none"), nullptr);
  EXPECT_FALSE(tree.GetBooleanValueWrapper("one", true));
  EXPECT_TRUE(tree.GetBooleanValueWrapper("none", true));
  EXPECT_EQ(*std::unique_ptr<double>(tree.GetDoubleValue("x")), 1.25);
  EXPECT_EQ(*std::unique_ptr<double>(tree.GetDoubleValue("none")), 0.0);
  EXPECT_EQ(tree.GetDoubleValueWrapper("none", 2.5), 2.5);
  EXPECT_TRUE(tree.SetDoubleValue("d", 1.0 / 3));
  EXPECT_EQ(tree.GetValue("d"), "0.333");
}

// The library's own trees in memory are read without GetValue, which must not show.
template <class Store>
struct SevenEverywhere : Store {
  using Store::GetValue;
  using Store::Store;
  RWCString GetValue(const RWCString&) override { return "7"; }
};

TEST(TypedValues, ComeFromWhatAStoreAnswersItself) {
  CFG_SubTree tree = tree_of("t", {{"n", "1"}});
  SevenEverywhere<CFG_SubTree> handle(tree.GetData());
  SevenEverywhere<CFG_MemoryRepository> memory(&tree);
  SevenEverywhere<CFG_FileRepository> file(RWWString::fromUTF8("none.xml"));
  for (CFG_ServicesImp* store : std::initializer_list<CFG_ServicesImp*>{&handle, &memory, &file}) {
    EXPECT_EQ(store->GetIntegerValueWrapper("t\\n", 0), 7);
    EXPECT_EQ(store->GetDoubleValueWrapper("t\\n", 0), 7.0);
    EXPECT_FALSE(store->GetBooleanValueWrapper("t\\n", true));
  }
  EXPECT_EQ(CFG_FileRepository(RWWString::fromUTF8("none.xml")).GetIntegerValueWrapper("t\\n", 5),
            5);
}

// --- search rules ------------------------------------------------------------------------------

TEST(SearchRules, CandidatesAreTriedInOrder) {
  CFG_SubTree tree = tree_of("t", {{"s2\\n", "from s2"},
                                   {"s1\\k\\x", "1"},
                                   {"k\\y", "2"},
                                   {"s2\\k\\x", "3"},
                                   {"s2\\k\\z", "4"}});
  const char* rule[] = {"s1", "", "s2"};
  const std::unique_ptr<Tree_ValueAndPath> value(tree.GetValue("n", rule, 3));
  ASSERT_TRUE(value);
  EXPECT_STREQ(value->GetPath(), "s2");
  EXPECT_STREQ(value->GetValue(), "from s2");
  tree.SetValue("n", "alone");
  EXPECT_STREQ(std::unique_ptr<Tree_ValueAndPath>(tree.GetValue("n", rule, 3))->GetPath(), "");

  EXPECT_EQ(shown(SubTreePtr(tree.GetSubTree("k", rule, 3))), "k{x=1}");
  EXPECT_EQ(shown(SubTreePtr(tree.GetSubTree("k", rule, FALSE, 3))), "k{x=1}");
  EXPECT_EQ(shown(SubTreePtr(tree.GetSubTree("k", rule, TRUE, 3))), "k{x=1 z=4 y=2}");
  EXPECT_EQ(shown(SubTreePtr(tree.GetSubTree("", rule + 2, TRUE, 1))), "s2{n=from s2 k{x=3 z=4}}");
  EXPECT_EQ(tree.GetSubTree("n", rule, TRUE, 3), nullptr) << "values are no subtrees";
}

TEST(SearchRules, BadRulesAreRefusedWithAMessage) {
  CFG_SubTree tree("t");
  const char* rule[] = {nullptr};
  Log_Capture capture;
  EXPECT_EQ(tree.GetValue("n", rule, 0), nullptr);
  EXPECT_TRUE(capture.has(" for path <n>: search_num must be more then 0 , return NULL\n"));
  EXPECT_EQ(tree.GetSubTree("n", nullptr, 2), nullptr);
  EXPECT_TRUE(capture.has(" for path <n>: search_rule is NULL , return NULL\n"));
  EXPECT_EQ(tree.GetValue("", rule, 1), nullptr);
  EXPECT_TRUE(capture.has(" : value_name is an empty string , return NULL\n"));
  EXPECT_EQ(tree.GetSubTree("n", rule, TRUE, 1), nullptr);
  EXPECT_TRUE(capture.has(" : sub tree not found , return NULL\n"));
}

// --- subtree writes ----------------------------------------------------------------------------

TEST(SubtreeWrites, MergeAsTheOperationSays) {
  using Write = int (*)(CFG_SubTree&, CFG_SubTree*);
  const struct {
    const char* name;
    Write write;
    const char* expected;
  } cases[] = {
      {"replace", [](CFG_SubTree& t, CFG_SubTree* s) { return t.AddOrReplaceSubTree(s, "P"); },
       "t{p{k{a=new c{d=new}}}}"},
      {"replace, by flag",
       [](CFG_SubTree& t, CFG_SubTree* s) { return t.AddOrReplaceSubTree(s, "P", FALSE); },
       "t{p{k{a=new c{d=new}}}}"},
      {"overlay",
       [](CFG_SubTree& t, CFG_SubTree* s) { return t.AddOrReplaceSubTree(s, "P", TRUE); },
       "t{p{k{a=new b=old c{e=old d=new}}}}"},
      {"add what is missing",
       [](CFG_SubTree& t, CFG_SubTree* s) { return t.AddMoreInfoToSubTree(s, "P"); },
       "t{p{k{a=old c{d=new e=old} b=old}}}"},
      {"changed values", [](CFG_SubTree& t, CFG_SubTree* s) { return t.SetSubTree(s, "P"); },
       "t{p{k{c{d=new}}}}"},
      {"changed values, overlaid",
       [](CFG_SubTree& t, CFG_SubTree* s) { return t.SetSubTree(s, "P", TRUE); },
       "t{p{k{a=old b=old c{e=old d=new}}}}"},
  };
  for (const auto& c : cases) {
    CFG_SubTree tree =
        tree_of("t", {{"p\\k\\a", "old"}, {"p\\k\\b", "old"}, {"p\\k\\c\\e", "old"}});
    CFG_SubTree given = tree_of("k", {{"a", "new"}, {"c\\d", "new"}});
    given.GetData()->Find("a")->GetTreeValue()->SetIsChange(0);
    EXPECT_TRUE(c.write(tree, &given)) << c.name;
    EXPECT_EQ(shown(tree), c.expected) << c.name;
    EXPECT_EQ(shown(given), "k{a=new c{d=new}}") << "the caller's subtree stays as it was";
  }
}

TEST(SubtreeWrites, WithoutChangesThePlainFormDeletesAndTheMergingFormDoesNothing) {
  CFG_SubTree tree = tree_of("t", {{"p\\k\\a", "old"}});
  CFG_SubTree unchanged("k");
  EXPECT_TRUE(tree.SetSubTree(&unchanged, "p", TRUE));
  EXPECT_EQ(shown(tree), "t{p{k{a=old}}}");
  EXPECT_FALSE(tree.SetSubTree(&unchanged, "p"));
  EXPECT_EQ(shown(tree), "t{p{}}");
}

TEST(SubtreeWrites, RefuseWhatCanNotBeWritten) {
  CFG_SubTree tree("t"), unnamed("");
  CFG_SubTree empty{Tree_NodePtr()};
  Log_Capture capture;
  EXPECT_FALSE(tree.AddOrReplaceSubTree(nullptr, "p", TRUE));
  EXPECT_EQ(capture.last(),
            "AddOrReplaceSubTree with merge  for path <p>: sub_tree is NULL, return FALSE\n");
  EXPECT_FALSE(tree.SetSubTree(&empty, "p", TRUE));
  EXPECT_TRUE(capture.has("  for path <p>, sub_tree data is null, return FALSE\n"));
  EXPECT_FALSE(tree.AddMoreInfoToSubTree(&unnamed, "p"));
  EXPECT_TRUE(capture.has(" : sub_tree key name is null, return FALSE\n"));
  EXPECT_EQ(shown(tree), "t{}");
}

// --- network addresses -------------------------------------------------------------------------

TEST(Addresses, BracesAndMappedPrefixAreTakenAway) {
  const std::string long_text(100, 'x');
  const struct {
    std::string given, without_braces;
    bool had_braces;
  } braces[] = {{"[::1]", "::1", true},  {"[::1", "::1", true},
                {"::1]", "::1]", false}, {"[", "", true},
                {"", "", false},         {"[" + long_text + "]", "[" + long_text + "]", false}};
  for (const auto& c : braces) {
    RWCString text(c.given);
    EXPECT_EQ(CFG_ServicesImp::RemoveIpv6Braces(text), c.had_braces) << c.given;
    EXPECT_EQ(text.str(), c.without_braces);
  }
  RWCString mapped("::FFFF:10.0.0.1"), plain("::fff:1");
  EXPECT_TRUE(CFG_ServicesImp::handle_if_ipv6_mapped(mapped));
  EXPECT_EQ(mapped, "10.0.0.1");
  EXPECT_FALSE(CFG_ServicesImp::handle_if_ipv6_mapped(plain));
}

TEST(Addresses, TheAddressFitsTheFamiliesOfThisHost) {
  const struct {
    const char *local, *first, *optional, *preferred, *expected;
  } cases[] = {
      {"ipv4", "10.0.0.1", "", "", "10.0.0.1"},
      {"IPv4", "10.0.0.1", "10.0.0.2", "", "10.0.0.1"},
      {"ipv4", "10.0.0.1", "10.0.0.2", "Optional", "10.0.0.2"},
      {"dual", "10.0.0.1", "10.0.0.2", "", "10.0.0.1"},
      {"ipv6", "10.0.0.1", "10.0.0.2", "", "10.0.0.1"},
      {"ipv4", "not an address", "10.0.0.2", "", "10.0.0.2"},
      {"ipv6", "10.0.0.1", "", "", "10.0.0.1"},
  };
  for (const auto& c : cases) {
    CFG_SubTree tree("t");
    tree.SetProperty("LocalHostListenersAF", c.local);
    const RWCString properties("halvoria\\system\\nodes\\alpha\\properties\\");
    tree.SetValue(properties + "inet_address", c.first);
    tree.SetValue(properties + "inet_address_optional", c.optional);
    tree.SetValue(properties + "preferred_address", c.preferred);
    EXPECT_EQ(tree.GetINetAddress("alpha"), c.expected) << c.local << " " << c.first;
    EXPECT_EQ(tree.GetINetAddress("beta"), "");
  }
}

TEST(Monitor, StatusIsTheModeWhileActive) {
  const std::pair<const char*, int> modes[] = {
      {"log", 1}, {"stack", 2}, {"exit", 3}, {"Log", 0}, {"", 0}};
  for (const auto& [mode, status] : modes) {
    CFG_ServicesImp::SetMonitorConnSupport(mode);
    CFG_ServicesImp::SetMonitorConnActive(false);
    EXPECT_EQ(CFG_ServicesImp::GetMonitorConnStatus(), 0);
    CFG_ServicesImp::SetMonitorConnActive(true);
    EXPECT_EQ(CFG_ServicesImp::GetMonitorConnStatus(), status);
  }
}

}  // namespace
