#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <random>

#include <CFG/CFG_SAXImport.h>
#include <CFG/xml/branch_nodes.h>
#include <CFG/xml/utf8_text.h>
#include <system/Sys_File.h>
#include <tree/Tree_Node.h>
#include <xercesc/framework/MemBufInputSource.hpp>
#include "xml_documents.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr char parser_fail[] = "Parser Fail, return NULL\n";

TEST(XmlImport, DocumentsBecomeTrees) {
  const std::string body =
      "<tree><branch>" + xml_node("h") + xml_node("h\\a", "1") + xml_node("h\\k");
  const struct {
    std::string document;
    const char* tree;
  } cases[] = {
      {xml_tree(xml_branch({{"h", ""}, {"h\\a", "1"}, {"h\\k\\b", " x\n y\t"}, {"h\\k\\c", ""}})),
       "h{a=1 k{b= x\n y\t c{}}}"},
      // the root's own value, other elements' text and what stands in between do not count
      {xml_tree("<branch>" + xml_node("sys\\nodes", "root") + "<!-- c --><?pi x?>" +
                "<node><path_segment>sys\\nodes\\v</path_segment><parent_path_segment>wrong\\place"
                "</parent_path_segment><value>1</value></node></branch>"),
       "nodes{v=1}"},
      {xml_tree(xml_branch({{"h", ""}})), "h{}"},
      {xml_tree(xml_branch({{"h", ""}, {"h", "again"}, {"h\\a", "1"}})), "h{a=1}"},
      // no DTD, then white space is text to the parser; a node needs no value
      {body + "\n <node>\n  <path_segment>h\\k\\z</path_segment>\n </node>\n</branch>\n</tree>",
       "h{a=1 k{z{}}}"},
      {"\xEF\xBB\xBF" + body + "</branch></tree>", "h{a=1 k{}}"},
      {"<?xml version='1.0' encoding='ISO-8859-1'?>\r\n<tree><branch>" + xml_node("h") +
           xml_node("h\\caf\xE9", "\xE9t\xE9\r\nx") + "</branch></tree>",
       "h{caf\u00E9=\u00E9t\u00E9\nx}"},
      // entities, references, sections; a value of more than one piece
      {xml_tree(xml_branch(
           {{"h", ""}, {"h\\a&amp;b", "&lt;&gt;&quot;&apos;&amp;&#13;&#x1F600;<![CDATA[<&]]>!"}})),
       "h{a&b=<>\"'&\r\U0001F600<&!}"},
      // siblings stand in order of their names, also where the order of paths differs
      {xml_tree(xml_branch({{"h", ""},
                            {"h\\b", ""},
                            {"h\\b\\1", "x"},
                            {"h\\b-c", "y"},
                            {"h\\a", ""},
                            {"h\\a\\2", "z"}})),
       "h{a{2=z} b{1=x} b-c=y}"},
      // keys that are not said, children before parents, a value said twice
      {xml_tree(xml_branch(
           {{"h", ""}, {"h\\p\\q\\r", "1"}, {"h\\p", ""}, {"h\\p\\a", "2"}, {"h\\p\\a", "3"}})),
       "h{p{a=3 q{r=1}}}"},
  };
  for (const auto& c : cases) EXPECT_EQ(shown(import_buffer(c.document)), c.tree) << c.document;

  Log_Capture capture;
  const SubTreePtr only_root = import_buffer(xml_tree(xml_branch({{"sys\\nodes", ""}})));
  EXPECT_EQ(last_said(capture), "empty subtree found \n");
  EXPECT_EQ(only_root->GetData()->GetVirtualParentPath(), "sys\\nodes");
}

TEST(XmlImport, PathsAreNormalized) {
  const struct {
    const char *written, *path;
  } cases[] = {
      {"h\\Alpha\\BETA", "alpha\\beta"},
      {" h \\\\ a\t\\ \\b \\", "a\\b"},
      {"\\h\\a b\\c'%d", "a b\\c'%d"},
      {"h\\\x7F"
       "a\x7F\\&#10;b",
       "a\\b"},
      {"H\\\u00C4\u00D6\\\u0130", "\u00E4\u00F6\\i\u0307"},
  };
  for (const auto& c : cases) {
    const SubTreePtr tree = import_buffer(xml_tree(xml_branch({{"H ", ""}, {c.written, "v"}})));
    ASSERT_TRUE(tree) << c.written;
    EXPECT_EQ(tree->GetValue(RWCString(c.path)), "v") << c.written;
  }
}

TEST(XmlImport, AnyErrorDiscardsTheDocument) {
  const std::string root = xml_node("h"), key = "<tree><branch>" + root;
  const struct {
    std::string document;
    const char* message;  // the first
    const char* last = parser_fail;
  } cases[] = {
      {"", "Error in parsing. Line: 1 culumn: 1  info invalid document structure\n"},
      {std::string("\x7F"
                   "ELF\0\1\2",
                   7),
       "invalid document structure"},
      {"<tree><branch>" + root, "Error in parsing. Line: 2"},
      {xml_tree(xml_branch({{"h", ""}, {"h\\a", "\xFF\xFE"}})), "invalid byte"},
      {"<?xml version='1.1'?>" + key + "</branch></tree>", "only 1.0"},
      {"<tree/>", "Fail to get file info from parser, return NULL\n",
       "Fail to get file info from parser, return NULL\n"},
      // out of shape, with the DTD and without
      {xml_tree("<branch></branch>"), "Error in parsing. Line: 11"},
      {xml_tree("<branch>" + root + "<other/></branch>"), "'other'"},
      {key + "<other/></branch></tree>", "The element <other> is not expected here"},
      {key + "<node><vlaue>1</vlaue></node></branch></tree>", "The element <vlaue>"},
      {key + "<node/></branch></tree>", "The node has no path_segment"},
      {key + "<node><value>1</value><path_segment>h\\a</path_segment></node></branch></tree>",
       "The element <value>"},
      {key + "<node><path_segment>h<value>1</value></path_segment></node></branch></tree>",
       "The element <value>"},
      {key + "<node><path_segment>h</path_segment><path_segment/></node></branch></tree>",
       "The element <path_segment>"},
      {"<tree>" + root + "</tree>", "The element <node>"},
      // paths
      {xml_tree(xml_branch({{"h\\n", ""}, {"h\\nodes", "1"}})),
       "path h\\nodes is not in root  change to error state\n"},
      {xml_tree(xml_branch({{"h\\n", ""}, {"h", "1"}})), "path h is not in root"},
      {xml_tree(xml_branch({{"\\ \\", ""}})), "Fail to get root path from parser, return NULL\n",
       "Fail to get root path from parser, return NULL\n"},
      {xml_tree(xml_branch({{" ", ""}, {"a", "1"}})), "path a is not in root"},
      {xml_tree(xml_branch({{" ", ""}, {"\\a", "1"}})), "path a is not in root"},
      {xml_tree(xml_branch({{"h", ""}, {"h\\a", "1"}, {"h\\a\\b", "2"}})),
       "BuildSubTree return null, return NULL\n", "BuildSubTree return null, return NULL\n"},
      {xml_tree(xml_branch({{"h", ""}, {"h\\a", "1"}, {"h\\a", ""}})),
       "BuildSubTree return null, return NULL\n", "BuildSubTree return null, return NULL\n"},
      {xml_tree(xml_branch({{"h", ""}}) + xml_branch({{"i", ""}})),
       "Error multiple subtree not supported\n"},
  };
  for (const auto& c : cases) {
    Log_Capture capture;
    EXPECT_EQ(import_buffer(c.document), nullptr) << c.document;
    const auto lines = capture.lines();
    const auto first =
        std::find_if(lines.begin(), lines.end(), [](auto& l) { return l.level < 6; });
    ASSERT_NE(first, lines.end()) << c.document;
    EXPECT_THAT(first->text, HasSubstr(c.message));
    EXPECT_EQ(last_said(capture), c.last) << c.document;
  }
  Log_Capture capture;
  import_buffer(xml_tree(xml_branch({{"h", ""}, {"h\\k", ""}, {"h\\k\\a", "1"}, {"x", ""}})));
  EXPECT_TRUE(capture.has("error in import XML last line path is k\\a\n"));
  import_buffer("<tree><branch/><node/></tree>");
  EXPECT_TRUE(capture.has("error in import XML failed at first lines (may be <branch>"));
}

TEST(XmlImport, FirstErrorIsFoundByLineAndColumn) {
  CFG_SAXImport::InitXercescPlatformUtils();
  const std::string list = "<tree>\n<branch>\n" + xml_node("a\\b", "1") + xml_node("a\\c") +
                           xml_node("a\\d") + "</branch>\n</tree>\n<oops>";
  const struct {
    std::string document;
    uint64_t flags;
    int line, column;
    const char* text;
  } cases[] = {
      {"<tree>\n<branch>\n</tree>", 0, 3, 3, "branch"},
      {list, CFG_SAX_VALUE_LIST, 4, 61, "value is NULL for path a\\c"},
      {"<tree>\n <x/></tree>", 0, 2, 6, "The element <x> is not expected here"},
  };
  for (const auto& c : cases) {
    const xercesc::MemBufInputSource source(reinterpret_cast<const XMLByte*>(c.document.data()),
                                            c.document.size(), "test");
    CFG_SAXImport import;
    EXPECT_EQ(import.Init(source, c.flags), 4);
    EXPECT_GT(import.GetErrorCount(), 0);
    EXPECT_EQ(import.GetErrorLine(), c.line) << c.document;
    EXPECT_EQ(import.GetErrorColumn(), c.column) << c.document;
    EXPECT_THAT(import.GetErrorMessage().str(), HasSubstr(c.text));
    EXPECT_EQ(import.GetNumOfVectors(), 0);
    EXPECT_EQ(import.GetNodesVecIndex(0), nullptr);
  }
  CFG_SAXImport import;
  EXPECT_EQ(import.Init(L"/nowhere/at/all.xml", 0), 4);
  EXPECT_EQ(import.GetErrorCount(), 1);
  EXPECT_EQ(import.GetErrorLine(), 0);
  EXPECT_THAT(import.GetErrorMessage().str(), HasSubstr("</nowhere/at/all.xml>"));
}

TEST(XmlImport, HostileDeclarationsAreStopped) {
  TemporaryFolder folder;
  put_file(folder / "secret", "whispered");
  const std::string secret = (folder / "secret").string();
  std::string parameter_bomb = "<!ENTITY % x0 '<!-- -->'>", laughs = "<!ENTITY x0 'lol'>";
  for (int i = 1; i < 40; ++i) {
    const std::string to = "x" + std::to_string(i), from = "x" + std::to_string(i - 1) + ";";
    parameter_bomb += "<!ENTITY % " + to + " '&#37;" + from + "&#37;" + from + "'>";
    laughs += "<!ENTITY " + to + " '&" + from + "&" + from + "'>";
  }
  const struct {
    std::string declarations, value;
    const char* message;
  } cases[] = {
      {laughs, "&x39;", "more than '50000' entity expansions"},
      {parameter_bomb + "%x39;", "", "The parameter entity <x0> is not supported"},
      {"<!ENTITY x '" + std::string(5000, 'x') + "'>", "&x;", "The entity <x> has more than 4096"},
      {"<!ENTITY x SYSTEM '" + secret + "'>", "&x;", "is not opened"},
      {"<!ENTITY % x SYSTEM '" + secret + "'>%x;", "", "The parameter entity <x>"},
      {"<!ATTLIST node a CDATA 'default'>", "", "has a default value"},
      {"<!ELEMENT x ((a|b)*,a" + repeated(",(a|b)", 40) + ")>", "", "more than 32 names"},
      {"<!ELEMENT x (a" + repeated("|b", 300000) + ")>", "", "The DTD has more than 8192 bytes"},
      {"<!ELEMENT x " + repeated("(", 300000), "", "The DTD has more than 8192 bytes"},
  };
  for (const auto& c : cases) {
    std::string document = xml_tree(xml_branch({{"h", ""}, {"h\\a", "V"}}));
    document.insert(document.find("]>"), c.declarations);
    document.replace(document.rfind('V'), 1, c.value);
    Log_Capture capture;
    EXPECT_EQ(import_buffer(document), nullptr) << c.message;
    EXPECT_TRUE(capture.has(c.message)) << capture.text().substr(0, 1000);
    EXPECT_FALSE(capture.has("whispered"));
  }
  for (const std::string& document :
       {"<!DOCTYPE tree SYSTEM '" + secret + "'><tree/>", repeated("<tree>", 1000000),
        "<tree><branch>" + repeated("<x/>", 100000) + "</branch></tree>"}) {
    Log_Capture capture;
    EXPECT_EQ(import_buffer(document), nullptr);
    EXPECT_LE(capture.lines().size(), 1010u);
  }
  // What is declared and harmless.
  std::string document = xml_tree(xml_branch({{"h", ""}, {"h\\a", "&v; &v;"}}));
  document.insert(document.find("]>"), "<!ENTITY v 'x'><!ATTLIST node id CDATA #IMPLIED>");
  EXPECT_EQ(shown(import_buffer(document)), "h{a=x x}");
  // Predefined entities are no expansions.
  document = xml_tree(xml_branch({{"h", ""}, {"h\\a", "V"}}));
  document.replace(document.rfind('V'), 1, repeated("&amp;", 60000));
  EXPECT_EQ(import_buffer(document)->GetValue("a").length(), 60000u);
}

TEST(XmlImport, PathsAreReadDownToTheDepthThatIsWritten) {
  for (const size_t below : {4095, 4096}) {
    Log_Capture capture;
    const std::string path = "h" + repeated("\\k", below);
    const SubTreePtr tree = import_buffer(xml_tree(xml_branch({{"h", ""}, {path.c_str(), "1"}})));
    EXPECT_EQ(tree != nullptr, below == 4095);
    EXPECT_EQ(capture.has("The path has more than 4096 levels"), below == 4096);
  }
}

TEST(XmlImport, BranchesBecomeSubtreesUpToTheLimit) {
  TemporaryFolder folder;
  CFG_MemoryRepository reader(nullptr);
  const auto import = [&](const std::string& document) {
    put_file(folder / "b.xml", document);
    std::unique_ptr<std::vector<CFG_SubTree*>> read(
        reader.ImportXmlFileAsSubTreeVector(folder.file("b.xml")));
    std::vector<SubTreePtr> sub_trees;
    if (read) sub_trees = std::vector<SubTreePtr>(read->begin(), read->end());
    return sub_trees;
  };
  Log_Capture capture;
  const auto two =
      import(xml_tree(xml_branch({{"h\\b", ""}, {"h\\b\\x", "1"}}) + xml_branch({{"a", ""}})));
  ASSERT_EQ(two.size(), 2u);
  EXPECT_EQ(shown(two[0]), "b{x=1}");
  EXPECT_EQ(shown(two[1]), "a{}");
  EXPECT_EQ(last_said(capture), "empty sub tree with root only\n");

  const std::string branch = xml_branch({{"h", ""}, {"h\\v", "1"}});
  EXPECT_EQ(import(xml_tree(repeated(branch, 1024))).size(), 1024u);
  EXPECT_TRUE(import(xml_tree(repeated(branch, 1025))).empty());
  EXPECT_TRUE(capture.has("error in import, Reached branch list limit of 1024"));

  // One that is wrong takes the others along.
  EXPECT_TRUE(import(xml_tree(branch + xml_branch({{"h", ""}, {"i", ""}}))).empty());
  EXPECT_TRUE(
      import(xml_tree(branch + xml_branch({{"h", ""}, {"h\\a", "1"}, {"h\\a\\b", "1"}}))).empty());
  EXPECT_THAT(last_said(capture), StartsWith("BuildSubTree return null, for "));
  EXPECT_TRUE(import("<tree>" + branch + "<branch/></tree>").empty());
  EXPECT_EQ(last_said(capture), "Fail to get root path from parser, return NULL\n");
}

TEST(XmlImport, ValueListsHoldFullPathsInOrder) {
  TemporaryFolder folder;
  CFG_MemoryRepository reader(nullptr);
  const auto import = [&](const std::string& document) {
    put_file(folder / "v.xml", document);
    std::unique_ptr<Tmr_PtrSortedVector<Tree_NodeInfo>> records(
        reader.ImportXMLValueListAsVector(folder.file("v.xml")));
    std::string text = records ? "" : "NULL";
    for (size_t i = 0; records && i < records->entries(); ++i) {
      const Tree_NodeInfo& record = *(*records)[i];
      text += record.GetPath().str() + "=" + record.GetValue().str() + " " +
              std::to_string(record.GetParentPathLength()) + ";";
    }
    return text;
  };
  EXPECT_EQ(import(xml_tree(xml_branch({{"H\\b", "2"}, {"h\\a\\x", "1"}}))),
            "h\\a\\x=1 3;h\\b=2 1;");
  EXPECT_EQ(import(xml_tree(xml_branch({{"b", "2"}, {"b", "3"}}) + xml_branch({{"a", "1"}}))),
            "a=1 0;b=2 0;b=3 0;");
  Log_Capture capture;
  EXPECT_EQ(import(xml_tree(xml_branch({{"h\\a", "1"}, {"h\\b", ""}, {"h\\c", ""}}))), "NULL");
  EXPECT_TRUE(capture.has("Error in import value-list: value is NULL for path h\\b\n"));
  EXPECT_FALSE(capture.has("h\\c"));
  EXPECT_EQ(import(xml_tree(xml_branch({{"\\", "1"}}))), "NULL");
  EXPECT_EQ(import(xml_tree(repeated(xml_branch({{"h\\a", "1"}}), 1025))), "NULL");
  EXPECT_TRUE(capture.has("Reached branch list limit of 1024"));
}

TEST(XmlImport, FilesThatCannotBeReadAreNamed) {
  TemporaryFolder folder;
  CFG_MemoryRepository reader(nullptr);
  std::filesystem::create_directory(folder / "dir.xml");
  put_file(folder / "huge.xml", xml_tree(xml_branch({{"h", ""}})));
  std::filesystem::resize_file(folder / "huge.xml", uint64_t{1} << 31);
  for (const char* name : {"none.xml", "dir.xml", "huge.xml"}) {
    Log_Capture capture;
    EXPECT_EQ(reader.ImportXmlFileAsCfgSubTree(folder.file(name)), nullptr);
    EXPECT_EQ(reader.ImportXmlFileAsSubTreeVector(folder.file(name)), nullptr);
    EXPECT_EQ(reader.ImportXMLValueListAsVector(folder.file(name)), nullptr);
    EXPECT_TRUE(capture.has(name)) << capture.text();
    const bool is_huge = name == std::string("huge.xml");
    EXPECT_EQ(capture.has("is too long: 2147483648 bytes"), is_huge);
    EXPECT_EQ(capture.has("Fail to open xml file <" + (folder / name).string() +
                          "> for reading , return NULL\n"),
              !is_huge);
    EXPECT_EQ(last_said(capture), is_huge ? parser_fail
                                          : "xml file does not exist : <" +
                                                (folder / name).string() + ">, return NULL\n");
  }
  Log_Capture capture;
  EXPECT_EQ(reader.ImportXmlFileAsCfgSubTree(L"none.xml"), nullptr);
  EXPECT_TRUE(
      capture.has("<" + (std::filesystem::current_path() / "none.xml").string() + ">, ret"));
  EXPECT_EQ(reader.ImportXmlBufferAsCfgSubTree(nullptr, 5), nullptr);
}

// The parser cuts long texts where its buffers end, also inside a character.
TEST(XmlImport, LongTextsArriveWhole) {
  const std::string big(10000000, 'x'), wide = "a" + repeated("\U0001F600\u00E9\u20AC", 100000);
  const SubTreePtr tree = import_buffer(
      xml_tree(xml_branch({{"h", ""}, {"h\\big", big.c_str()}, {"h\\wide", wide.c_str()}})));
  ASSERT_TRUE(tree);
  EXPECT_EQ(tree->GetValue("big"), big.c_str());
  EXPECT_EQ(tree->GetValue("wide"), wide.c_str());

  const char16_t units[] =
      u"abcdefghij\xD83D\xDE00"
      u"kl\u00E9\u20ACmnopqrstuvwxyz0123\xD83D\xDE00";
  const size_t count = std::size(units) - 1;
  for (size_t cut = 0; cut <= count; ++cut) {
    cfg::utf8_text text;
    text.append(units, cut);
    text.append(units + cut, count - cut);
    EXPECT_EQ(text.view(), "abcdefghij\U0001F600kl\u00E9\u20ACmnopqrstuvwxyz0123\U0001F600");
  }
}

// The tree that is built on the way, and the one that is built of ordered records.
TEST(XmlImport, BothWaysToTheTreeAgree) {
  std::mt19937 random(1);
  const auto pick = [&](size_t n) { return random() % n; };
  const auto listed = [](const cfg::branch_nodes::Records& records) {
    std::string text;
    for (size_t i = 0; i < records.entries(); ++i) {
      text += records[i]->GetPath().str() + "=" + records[i]->GetValue().str() + ";";
    }
    return text;
  };
  for (int round = 0; round < 3000; ++round) {
    std::vector<std::string> paths;
    for (size_t i = 0, count = pick(12); i < count; ++i) {
      std::string path = paths.empty() || pick(3) == 0 ? "" : paths[pick(paths.size())] + "\\";
      for (size_t depth = pick(10) == 0 ? 2 : 1; depth > 0; --depth) {
        path += std::string(1, "ab-z"[pick(4)]) + (pick(2) ? "" : "-long-name") +
                (pick(4) ? "" : "2") + (depth > 1 ? "\\" : "");
      }
      paths.push_back(path);
    }
    if (pick(2)) std::sort(paths.begin(), paths.end());
    cfg::branch_nodes nodes("h\\r");
    cfg::branch_nodes::Records records;
    for (const std::string& path : paths) {
      const std::string value = pick(3) ? "v" + std::string(pick(2) * 20, 'x') + path : "";
      nodes.append("h\\r\\" + path, value);
      records.append(new Tree_NodeInfo(RWCString(path), RWCString(value)));
      ASSERT_EQ(nodes.path_of_last(), path);
    }
    records.sort();
    ASSERT_EQ(listed(*nodes.records()), listed(records));
    const Tree_NodePtr scratch = new Tree_Node("tmp");
    const Tree_NodePtr expected = scratch->BuildSubTree(&records, "h\\r");
    const Tree_NodePtr built = nodes.take_tree();
    ASSERT_EQ(built ? shown(*built) : "NULL", expected ? shown(*expected) : "NULL");
    EXPECT_TRUE(!built || built->GetVirtualParentPath() == "h\\r");
  }
}

}  // namespace
