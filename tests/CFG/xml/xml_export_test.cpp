#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>

#include <CFG/CFG_FileRepository.h>
#include <CFG/xml/xml_writer.h>
#include <tree/Tree_Node.h>
#include "../recording_repository.h"
#include "xml_documents.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

std::string written_node(const std::string& path, const std::string& parent,
                         const std::string& value) {
  return "<node>\n<path_segment>" + path + "</path_segment>\n<parent_path_segment>" + parent +
         "</parent_path_segment>\n<value>" + value + "</value>\n</node>\n\n";
}

struct XmlExport : testing::Test {
  std::string exported(CFG_SubTree& tree, const char* root_path = "") {
    EXPECT_TRUE(writer.ExportSubTreeToFile(&tree, folder.file("t.xml"), root_path));
    return get_file(folder / "t.xml");
  }
  std::string exported(std::vector<CFG_SubTree*> trees) {
    EXPECT_TRUE(writer.ExportSubTreeVectorToFile(&trees, folder.file("t.xml")));
    return get_file(folder / "t.xml");
  }
  SubTreePtr imported() {
    return SubTreePtr(writer.ImportXmlFileAsCfgSubTree(folder.file("t.xml")));
  }

  TemporaryFolder folder;
  CFG_MemoryRepository writer{nullptr};
};

TEST_F(XmlExport, DocumentsAreWrittenByteForByte) {
  CFG_SubTree tree = tree_of("n&d", {{"a'b", "<\"&'\r\n\t>"}, {"sub\\x", "\u00E9"}});
  const std::string expected =
      xml_prologue + "<tree>\n<branch>\n\n" + written_node("h\\i\\n&amp;d", "h\\i", "") +
      written_node("h\\i\\n&amp;d\\a&apos;b", "h\\i\\n&amp;d",
                   "&lt;&quot;&amp;&apos;&#13;\n\t&gt;") +
      written_node("h\\i\\n&amp;d\\sub", "h\\i\\n&amp;d", "") +
      written_node("h\\i\\n&amp;d\\sub\\x", "h\\i\\n&amp;d\\sub", "\u00E9") +
      "</branch>\n</tree>\n";
  for (const char* root_path : {"h\\i\\n&d", "\\h\\\\i\\n&d\\"}) {
    EXPECT_EQ(exported(tree, root_path), expected);
  }
  EXPECT_EQ(shown(imported()), shown(tree));

  CFG_SubTree one("one"), two("two");
  EXPECT_EQ(exported({&one, &two}), xml_prologue + "<tree>\n<branch>\n\n" +
                                        written_node("one", "", "") + "</branch>\n\n<branch>\n" +
                                        written_node("two", "", "") + "</branch>\n</tree>\n");
}

// A subtree knows the path of its parent, or its own when it was imported, or hangs in a tree.
TEST_F(XmlExport, ListsOfSubtreesKeepTheirPlaces) {
  CFG_SubTree tree = tree_of("h", {{"sys\\nodes\\a", "1"}, {"sys\\nodes\\nodes\\b", "2"}});
  CFG_MemoryRepository repository(&tree);
  const SubTreePtr copy(repository.GetSubTree("h\\sys\\nodes"));
  const SubTreePtr inside(repository.GetSubTree("h\\sys", 0));
  const SubTreePtr imported_one = import_buffer(xml_tree(xml_branch({{"h\\sys\\nodes", ""}})));
  for (CFG_SubTree* sub_tree : {copy.get(), inside.get(), imported_one.get()}) {
    EXPECT_THAT(exported({sub_tree}), HasSubstr(written_node("h\\sys\\nodes", "h\\sys", "")));
    EXPECT_THAT(exported({&tree, sub_tree}),
                HasSubstr(written_node("h\\sys\\nodes", "h\\sys", "")));
  }
  const SubTreePtr of_that_name(repository.GetSubTree("h\\sys\\nodes\\nodes"));
  const SubTreePtr imported_two =
      import_buffer(xml_tree(xml_branch({{"h\\sys\\nodes", ""}, {"h\\sys\\nodes\\nodes", ""}})));
  const SubTreePtr below(imported_two->GetSubTree("", 0));
  for (CFG_SubTree* sub_tree : {of_that_name.get(), below.get()}) {
    EXPECT_THAT(exported({sub_tree}),
                HasSubstr(written_node("h\\sys\\nodes\\nodes", "h\\sys\\nodes", "")));
  }
}

TEST_F(XmlExport, TextsOfAllLengthsSurvive) {
  CFG_SubTree tree("h");
  std::string text;
  // Each special byte at each place of a block, then texts around the size of a buffer.
  for (int i = 0; i < 40; ++i) {
    for (const char* odd :
         {"&", "<", ">", "\"", "'", "\r", "\n", "\t", "\x7F", "\u0085", "\uFFFD"}) {
      text = std::string(static_cast<size_t>(i), 'x') + odd + "tail of some length";
      tree.SetValue("v" + RWCString(std::to_string(tree.GetValueNum(RWCString()))), text);
    }
  }
  Log_Capture capture;
  for (const size_t size : {8190, 8191, 8192, 65536, 262143, 10000000}) {
    text = std::string(size, '&') + "\U0001F600" + std::string(size, 'x') + "\u20AC";
    tree.SetValue("big" + RWCString(std::to_string(size)), text);
  }
  exported(tree);
  EXPECT_TRUE(capture.has("Bigoffset 60000"));
  for (const Log_Capture::Line& line : capture.lines()) {
    const bool is_trace = line.level >= LOG_LEVEL_TRACE;
    EXPECT_TRUE(is_trace || line.file == "src/CFG/CFG_RepositoryServicesImp") << line.text;
  }
  const SubTreePtr read = imported();
  EXPECT_EQ(tree.GetSubTreeEntriesCount(""), 446);
  // Siblings come back in order of their names.
  for (int i = 0; i < tree.GetValueNum(RWCString()); ++i) {
    const RWCString name = tree.GetValueName(RWCString(), i);
    EXPECT_EQ(read->GetValue(name), tree.GetValue(name)) << name;
  }
}

TEST_F(XmlExport, WhatWouldNotBeReadBackIsRefused) {
  const std::string long_text(20000, 'x'), deep = "h" + repeated("\\k", 4095);
  const struct {
    const char *root, *path;
    std::string value;
    const char* message;  // null when it is written
  } cases[] = {
      {"h", "v", std::string("ab\0c", 4),
       "value <h\\v> cannot be written as XML: byte <0x0> at offset 2"},
      {"h", "v", long_text + "\x1F",
       "value <h\\v> cannot be written as XML: byte <0x1F> at offset 20000"},
      {"h", "v", long_text + "\xE2\x82", "byte <0xE2> at offset 20000"},
      {"h", "v", "\u20AC\xC0\x80", "byte <0xC0> at offset 3"},
      {"h", "v", "\xED\xA0\x80", "byte <0xED> at offset 0"},
      {"h", "v", "\xF4\x90\x80\x80", "byte <0xF4> at offset 0"},
      {"h", "v", "a\uFFFE", "byte <0xEF> at offset 1"},
      {"h", "v", "\uFFFC\uFFFF", "byte <0xEF> at offset 3"},
      {"h", "k\\v\x01", "1", "path <h\\k\\v\x01> cannot be written as XML: byte <0x1> at offset 5"},
      {"h", "k \\v", "1", "path <h\\k > would not be read as it is: byte <0x20> at offset 3"},
      {"h", "\tv", "1", "path <h\\\tv> would not be read as it is: byte <0x9> at offset 2"},
      {"a\\b", "v", "1", "path <a\\b> would not be read as it is: byte <0x5C> at offset 1"},
      {"", "v", "1", "path <> has a key without a name"},
      {"h", "v w\nx", "\x7F \u0080\uFFFD", nullptr},
      {"h", deep.c_str(), "1", "has more than 4096 levels"},
      {"h", deep.c_str() + 4, "1", nullptr},
  };
  put_file(folder / "t.xml", "old");
  for (const auto& c : cases) {
    CFG_SubTree tree("h");
    tree.SetValue(c.path, c.value);
    tree.GetData()->SetKeyName(c.root);
    Log_Capture capture;
    EXPECT_EQ(writer.ExportSubTreeToFile(&tree, folder.file("t.xml")), c.message == nullptr);
    if (c.message) {
      EXPECT_THAT(last_said(capture), HasSubstr(c.message));
      EXPECT_EQ(get_file(folder / "t.xml"), "old");
    } else {
      EXPECT_EQ(shown(imported()), shown(tree));
      put_file(folder / "t.xml", "old");
    }
  }
}

// A reader puts names in lower case.
TEST_F(XmlExport, NamesThatDifferInCaseAloneAreRefused) {
  const struct {
    std::vector<const char*> values;
    const char* message;  // null when it is written
  } cases[] = {
      {{"A", "b"}, nullptr},
      {{"k\\A", "l\\a", "A\\k"}, nullptr},
      {{"A", "a"}, "path <h\\A> would not be read as it is: it differs from another in case alone"},
      {{"k\\aB", "k\\Ab"}, "path <h\\k\\Ab> would not be read as it is"},
      {{"K\\v", "k"}, "path <h\\K> would not be read as it is"},
      {{"\u00C4", "\u00E4"}, "path <h\\\u00C4> would not be read as it is"},
  };
  for (const auto& c : cases) {
    const Tree_NodePtr top(new Tree_Node("h"));
    for (const std::string_view path : c.values) {
      const size_t cut = path.rfind('\\') + 1;  // npos + 1 is 0
      EXPECT_TRUE(top->Put(path.substr(0, cut), new Tree_Node(path.substr(cut), "1", 0)));
    }
    CFG_SubTree tree(top);
    std::vector<CFG_SubTree*> twice{&tree, &tree};
    Log_Capture capture;
    EXPECT_EQ(writer.ExportSubTreeVectorToFile(&twice, folder.file("t.xml")), c.message == nullptr);
    EXPECT_THAT(c.message ? last_said(capture) : "", HasSubstr(c.message ? c.message : ""));
  }
}

TEST_F(XmlExport, FailuresSayWhyAndLeaveTheOldFile) {
  CFG_SubTree tree = tree_of("h", {{"k\\v", "1"}}), no_data{Tree_NodePtr()};
  CFG_MemoryRepository repository(&tree);
  put_file(folder / "read-only.xml", "old");
  std::filesystem::permissions(folder / "read-only.xml", std::filesystem::perms::owner_read);
  CFG_SubTree value(Tree_NodePtr(tree.GetData()->Find("k\\v")));
  const RWWString good = folder.file("t.xml"), none;
  std::vector<CFG_SubTree*> list{&tree}, empty, broken{&tree, nullptr};
  const struct {
    std::function<int()> call;
    const char* last;
  } cases[] = {
      {[&] { return repository.ExportPath("", good); },
       "ExportPath : _path parameter is empty string, return FALSE\n"},
      {[&] { return repository.ExportPath("h", none); },
       "ExportPath : _file parameter is empty string, return FALSE\n"},
      {[&] { return repository.ExportPath("h\\none", good); },
       "ExportPath : sub tree at path <h\\none> does not exist, return FALSE\n"},
      {[&] { return repository.ExportSubTreeToFile(nullptr, L"f"); },
       "sub parameter is NULL, will not export to  f , return FALSE\n"},
      {[&] { return repository.ExportSubTreeToFile(&tree, none); },
       "file parameter is empty string, for sub tree h return FALSE\n"},
      {[&] { return repository.ExportSubTreeToFile(&no_data, good); },
       "fail to create sub tree vec, return FALSE\n"},
      {[&] { return repository.ExportSubTreeToFile(&value, good); },
       "<h\\k\\v> is a value and not a key, return FALSE\n"},
      {[&] { return repository.ExportSubTreeVectorToFile(nullptr, L"f"); },
       "Subtree list to export to  f is null\n"},
      {[&] { return repository.ExportSubTreeVectorToFile(&empty, L"f"); },
       "Subtree list to export to  f is empty\n"},
      {[&] { return repository.ExportSubTreeVectorToFile(&list, none); },
       "file parameter is empty string return FALSE\n"},
      {[&] { return repository.ExportSubTreeVectorToFile(&broken, good); },
       "fail to create sub tree vec, return FALSE\n"},
      {[&] { return repository.ExportPath("h", L"/nowhere/t.xml"); },
       " failed to create export file </nowhere/t.xml>, return FALSE\n"},
      {[&] { return repository.ExportPath("h", folder.file("read-only.xml")); },
       " failed to create export file <"},
      {[&] { return repository.ExportPath("h", L"/dev/full"); },
       "failed to write export file </dev/full>: cannot write </dev/full>: No space left"},
  };
  for (const auto& c : cases) {
    Log_Capture capture;
    EXPECT_FALSE(c.call());
    EXPECT_THAT(last_said(capture), StartsWith(c.last));
  }
  EXPECT_FALSE(std::filesystem::exists(folder / "t.xml"));
  EXPECT_EQ(get_file(folder / "read-only.xml"), "old");
}

TEST(XmlWriter, AsksAnOutputThatRefusedNothingMore) {
  const CFG_SubTree tree = tree_of("h", {{"v", std::string(1000000, 'x').c_str()}, {"w", "1"}});
  int calls = 0;
  cfg::xml_writer writer([&](std::string_view) { return ++calls < 2; });
  EXPECT_FALSE(writer.write_branch(*CFG_SubTree(tree).GetData(), ""));
  EXPECT_FALSE(writer.finish());
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(writer.fault(), "");
}

// --- import into a repository
// ----------------------------------------------------------------------

struct XmlImportInto : testing::Test {
  RWWString file(const std::string& document) {
    put_file(folder / "i.xml", document);
    return folder.file("i.xml");
  }
  TemporaryFolder folder;
};

TEST_F(XmlImportInto, ExportedPathsAreRestored) {
  CFG_SubTree tree =
      tree_of("h", {{"sys\\nodes\\a", "1"}, {"sys\\nodes\\k\\b", "2"}, {"sys\\x", "3"}});
  CFG_MemoryRepository repository(&tree);
  ASSERT_TRUE(repository.ExportPath("h\\sys\\nodes", folder.file("n.xml")));
  ASSERT_TRUE(repository.ExportPath("h", folder.file("h.xml")));
  const std::string before = shown(tree);
  repository.SetValue("h\\sys\\nodes\\a", "changed");
  repository.SetValue("h\\sys\\nodes\\new", "4");
  EXPECT_TRUE(repository.ImportXmlFile(folder.file("n.xml"), FALSE));
  EXPECT_EQ(repository.GetValue(RWCString("h\\sys\\nodes\\a")), "changed");
  for (const char* name : {"n.xml", "h.xml"}) {
    EXPECT_TRUE(repository.ImportXmlFile(folder.file(name), TRUE)) << name;
    EXPECT_EQ(repository.GetValue(RWCString("h\\sys\\nodes\\a")), "1") << name;
    EXPECT_EQ(repository.GetValue(RWCString("h\\sys\\nodes\\new")), "4") << name;
    repository.SetValue("h\\sys\\nodes\\a", "changed");
  }
  EXPECT_TRUE(repository.ImportXmlFileWithType(folder.file("n.xml"),
                                               CFG_RepositoryServices::CFG_XML_IMPORT_REPLACE));
  EXPECT_EQ(shown(SubTreePtr(repository.GetSubTree("h\\sys\\nodes"))), "nodes{a=1 k{b=2}}");
  EXPECT_EQ(tree.GetSubTreeEntriesCount(""), 6);
}

TEST_F(XmlImportInto, TypesSayWhatHappensToWhatIsStored) {
  const std::string document = xml_tree(xml_branch({{"h\\a", ""},
                                                    {"h\\a\\b", ""},
                                                    {"h\\a\\b\\c", ""},
                                                    {"h\\a\\b\\c\\v", "new"},
                                                    {"h\\a\\b\\c\\w", "new"}}));
  const struct {
    int type, answer;
    const char *tree, *calls;
  } cases[] = {
      {1, TRUE, "h{x=1 a{b{c{v=new w=new}}}}", "lock;add a to h;unlock;"},
      {2, TRUE, "h{a{s=1 b{t=1 c{v=new u=1 w=new}}} x=1}", "lock;unlock;"},
      {3, TRUE, "h{a{s=1 b{t=1 c{v=old w=new u=1}}} x=1}", "lock;unlock;"},
      {0, FALSE, nullptr, ""},
      {4, FALSE, nullptr, ""},
  };
  for (const auto& c : cases) {
    CFG_SubTree tree = tree_of(
        "h",
        {{"a\\s", "1"}, {"a\\b\\t", "1"}, {"a\\b\\c\\v", "old"}, {"a\\b\\c\\u", "1"}, {"x", "1"}});
    const std::string before = shown(tree);
    RecordingRepository repository(&tree);
    Log_Capture capture;
    EXPECT_EQ(repository.ImportXmlFileWithType(
                  file(document), static_cast<CFG_RepositoryServices::CFG_XML_IMPORT_TYPE>(c.type)),
              c.answer);
    EXPECT_EQ(shown(tree), c.tree ? c.tree : before);
    EXPECT_EQ(repository.calls, c.calls);
    EXPECT_EQ(capture.has("import type " + std::to_string(c.type) + " unknown,  file "), !c.answer);
    EXPECT_TRUE(capture.has("import type " + std::to_string(c.type) + " ,  file "));
  }
}

TEST_F(XmlImportInto, WritesOfAFailedImportAreRolledBack) {
  CFG_SubTree tree = tree_of("h", {{"v", "1"}, {"c\\d", "1"}});
  struct Refusing : RecordingRepository {
    using RecordingRepository::AddOrReplaceSubTree;
    using RecordingRepository::RecordingRepository;
    int SetValue(const RWCString& path, const RWCString& value) override {
      const int written = RecordingRepository::SetValue(path, value);
      return path == "h\\c" ? FALSE : written;
    }
    int AddOrReplaceSubTree(CFG_SubTree* sub_tree, const RWCString& path) override {
      const int written = RecordingRepository::AddOrReplaceSubTree(sub_tree, path);
      return sub_tree->GetKeyName() == "b" ? FALSE : written;
    }
    int StartTransactionUpdate() override {
      return starts && RecordingRepository::StartTransactionUpdate();
    }
    int EndTransactionUpdate(bool failed) override {
      return RecordingRepository::EndTransactionUpdate(failed) && ends;
    }
    bool starts = true, ends = true;
  } repository(&tree);
  const RWWString values =
      file(xml_tree(xml_branch({{"h\\d", "4"}, {"h\\c", "3"}, {"h\\b", "2"}, {"h\\a", "1"}})));
  Log_Capture capture;
  EXPECT_FALSE(repository.ImportXMLValueList(values, TRUE));
  EXPECT_EQ(repository.calls, "lock;set h\\a=1;set h\\b=2;set h\\c=3;rollback;unlock;");
  EXPECT_EQ(last_said(capture), "ImportXMLValueList:  failed Importing file <" +
                                    (folder / "i.xml").string() +
                                    "> override 1 at item h\\c  with value 3\n");

  const RWWString trees = file(xml_tree(xml_branch({{"h\\a", ""}}) + xml_branch({{"h\\b", ""}}) +
                                        xml_branch({{"h\\c", ""}})));
  repository.calls.clear();
  EXPECT_FALSE(repository.ImportXmlFileWithType(trees, Refusing::CFG_XML_IMPORT_REPLACE));
  EXPECT_EQ(repository.calls, "lock;add a to h;add b to h;rollback;unlock;");

  // An update that does not begin writes nothing; one that does not end has failed.
  for (const bool starts : {false, true}) {
    repository.starts = starts;
    repository.ends = false;
    repository.calls.clear();
    const RWWString one = file(xml_tree(xml_branch({{"h\\z", "1"}})));
    EXPECT_FALSE(repository.ImportXMLValueList(one, TRUE));
    EXPECT_FALSE(repository.ImportXmlFileWithType(one, Refusing::CFG_XML_IMPORT_REPLACE));
    EXPECT_EQ(repository.calls, starts ? "lock;set h\\z=1;unlock;lock;add z to h;unlock;" : "");
  }
}

TEST_F(XmlImportInto, ValueListsFillInOrReplace) {
  const std::string list = xml_tree(xml_branch({{"h\\v", "new"}, {"h\\k\\w", "new"}}));
  for (const int override_values : {FALSE, TRUE}) {
    CFG_SubTree tree = tree_of("h", {{"v", "old"}});
    RecordingRepository repository(&tree);
    Log_Capture capture;
    EXPECT_TRUE(repository.ImportXMLValueList(file(list), override_values));
    EXPECT_EQ(shown(tree), override_values ? "h{v=new k{w=new}}" : "h{v=old k{w=new}}");
    EXPECT_EQ(last_said(capture), "ImportXMLValueList:  finished Importing file <" +
                                      (folder / "i.xml").string() +
                                      (override_values ? "> override 1 item# 2 updated 2 \n"
                                                       : "> override 0 item# 2 updated 1 \n"));
  }
  // A whole subtree is no value list.
  CFG_SubTree tree = tree_of("h", {{"v", "old"}});
  RecordingRepository repository(&tree);
  ASSERT_TRUE(repository.ExportPath("h", folder.file("h.xml")));
  Log_Capture capture;
  EXPECT_FALSE(repository.ImportXMLValueList(folder.file("h.xml"), TRUE));
  EXPECT_TRUE(capture.has("Error in import value-list: value is NULL for path h\n"));
  EXPECT_EQ(last_said(capture), "ImportXMLValueList:  failed Importing file <" +
                                    (folder / "h.xml").string() + "> override 1\n");
  EXPECT_EQ(repository.calls, "");
}

// --- whole trees
// -----------------------------------------------------------------------------------

void check_round_trip(const std::string& document, int entries) {
  TemporaryFolder folder;
  put_file(folder / "in.xml", document);
  CFG_FileRepository repository(folder.file("in.xml"));
  ASSERT_TRUE(repository.Connect());
  EXPECT_EQ(repository.GetSubTreeEntriesCount("halvoria"), entries);
  ASSERT_TRUE(repository.ExportPath("halvoria", folder.file("out.xml")));
  EXPECT_TRUE(get_file(folder / "out.xml") == document);
  ASSERT_TRUE(repository.UnLock());
  EXPECT_TRUE(get_file(folder / "in.xml") == document);
}

TEST(XmlRoundTrip, SmallTreeKeepsItsBytes) {
  check_round_trip(get_file(HALVORIA_SOURCE_DIR "/tests/data/small_tree.xml"), 430);
}

TEST(XmlRoundTrip, RealTreeKeepsItsBytes) {
  const char* packed = HALVORIA_SOURCE_DIR "/../shared/data/packages.xml.gz";
  if (!std::filesystem::exists(packed)) GTEST_SKIP() << "no " << packed;
  check_round_trip(unpacked(packed), 156302);
}

}  // namespace
