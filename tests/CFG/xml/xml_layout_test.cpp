// The short way through documents that were exported, beside the parser's.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <system/Sys_File.h>
#include <tree/Tree_Node.h>
#include "import_outcome.h"
#include "xml_documents.h"

namespace {

constexpr uint64_t all_modes[] = {0, CFG_SAX_MULTI_BRANCH, CFG_SAX_VALUE_LIST};

std::string exported(std::vector<CFG_SubTree*> trees) {
  TemporaryFolder folder;
  CFG_MemoryRepository writer(nullptr);
  EXPECT_TRUE(writer.ExportSubTreeVectorToFile(&trees, folder.file("t.xml")));
  return get_file(folder / "t.xml");
}

std::string exported_node(const std::string& path, const std::string& value) {
  const size_t cut = path.rfind('\\');
  return "<node>\n<path_segment>" + path + "</path_segment>\n<parent_path_segment>" +
         path.substr(0, cut == path.npos ? 0 : cut) + "</parent_path_segment>\n<value>" + value +
         "</value>\n</node>\n\n";
}
std::string exported_document(const std::string& nodes) {
  return xml_prologue + "<tree>\n<branch>\n\n" + nodes + "</branch>\n</tree>\n";
}

// Results and messages, whichever way the document takes.
void check_both_ways(const std::string& document, uint64_t flags) {
  CFG_SAXImport parsed, read, read_file;
  Log_Capture capture;
  const std::string expected = outcome(parse_document(parsed, document, flags), parsed, flags);
  const std::string said = capture.text();
  capture.clear();
  EXPECT_EQ(outcome(read.InitFromBuffer(document, flags), read, flags), expected) << document;
  EXPECT_EQ(capture.text(), said);
  TemporaryFolder folder;
  put_file(folder / "t.xml", document);
  EXPECT_EQ(outcome(read_file.Init(folder.file("t.xml"), flags), read_file, flags), expected);
}

TEST(XmlLayout, ExportedDocumentsAreReadTheShortWay) {
  CFG_SubTree plain = tree_of("h", {{"z\\b", "1"}, {"z\\a-b", "2"}, {"z\\a\\x", "3"}, {"a", "4"}});
  CFG_SubTree odd = tree_of(
      "n&d",
      {{"a'b", "<\"&'\r\n\t>"}, {"sub\\x\u00C9", "\u20AC\U0001F600\x7F"}, {"e", " "}, {"k", ""}});
  CFG_SubTree capitals("H"), only_root("h");
  capitals.GetData()->Add(new Tree_Node("Name", "Text", 1));
  capitals.GetData()->Add(new Tree_Node("Other", "text", 1));
  for (CFG_SubTree* tree : {&plain, &odd, &capitals, &only_root}) {
    const std::string document = exported({tree});
    EXPECT_TRUE(is_own_layout(document, 0)) << document;
    for (const uint64_t flags : all_modes) check_both_ways(document, flags);
  }
  const std::string in_two_cases = exported_document(
      exported_node("H", "") + exported_node("H\\Name", "Text") + exported_node("H\\name", "text"));
  for (const uint64_t flags : all_modes) check_both_ways(in_two_cases, flags);
  const std::string all = exported({&plain, &odd, &only_root});
  EXPECT_TRUE(is_own_layout(all, CFG_SAX_MULTI_BRANCH));
  EXPECT_FALSE(is_own_layout(all, 0));
  for (const uint64_t flags : all_modes) check_both_ways(all, flags);
  const std::string list =
      exported_document(exported_node("h\\b", "1") + exported_node("H\\ a\\&amp;", "2"));
  EXPECT_TRUE(is_own_layout(list, CFG_SAX_VALUE_LIST));
  check_both_ways(list, CFG_SAX_VALUE_LIST);
}

// What an export would not write, or a tree cannot be.
TEST(XmlLayout, EverythingElseIsTheParsers) {
  const std::string root = exported_node("h", ""), deep = "h" + repeated("\\k", 4096);
  const auto with_value = [&](const std::string& value) {
    return exported_document(root + exported_node("h\\a", value));
  };
  const auto replaced = [](std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
  };
  const std::string good = with_value("1");
  ASSERT_TRUE(is_own_layout(good, 0));
  const std::string documents[] = {
      "",
      "<tree/>",
      xml_prologue,
      "\xEF\xBB\xBF" + good,
      "\n" + good,
      good + "\n",
      good + "<!-- -->",
      good + good,
      good + std::string(1, '\0'),
      good.substr(0, good.size() - 1),
      exported_document(""),
      exported_document(root) + "x",
      replaced(good, "xml  ver", "xml ver"),
      replaced(good, "UTF-8", "utf-8"),
      replaced(good, "UTF-8", "US-ASCII"),
      replaced(good, "(branch)+", "(branch)*"),
      replaced(good, "]>", "<!ENTITY e 'x'>]>"),
      replaced(good, "\n<node>", "<node>"),
      replaced(good, "<node>", "<node >"),
      replaced(good, "<value></value>\n", ""),
      replaced(good, "<value></value>", "<value/>"),
      replaced(good, "<value>1", "<value>1<!-- -->"),
      replaced(good, "parent_path_segment>h<", "parent_path_segment>i<"),
      replaced(good, "<parent_path_segment></parent_path_segment>\n", ""),
      replaced(good, "</branch>\n", "</branch>\n\n<branch>\n</branch>\n"),
      replaced(good, "</branch>\n", "</branch>\n<branch>\n" + root + "</branch>\n"),
      replaced(good, "</node>", "</node>\r"),
      with_value("&#x31;"),
      with_value("&#10;"),
      with_value("&amp"),
      with_value("&e;"),
      with_value("&#13"),
      with_value("<![CDATA[x]]>"),
      with_value("]]>"),
      with_value("'"),
      with_value("\r\n"),
      with_value("\x01"),
      with_value("\uFFFE"),
      with_value("\xFF"),
      with_value("\xC3"),
      with_value("\xED\xA0\x80"),
      with_value(std::string(1, '\0')),
      exported_document(root + exported_node(deep, "1")),
      exported_document(root + exported_node("i\\a", "1")),
      exported_document(exported_node("", "") + exported_node("a", "1")),
  };
  for (const std::string& document : documents) {
    for (const uint64_t flags : all_modes) {
      EXPECT_FALSE(is_own_layout(document, flags)) << document;
      check_both_ways(document, flags);
    }
  }
  // No tree comes of these, and that is found out behind the reading.
  for (const std::string& more : {exported_node("h\\a\\b", "2"), exported_node("h\\a", "")}) {
    check_both_ways(exported_document(root + exported_node("h\\a", "1") + more), 0);
  }
}

// Each byte of a document left out, doubled, and made another.
TEST(XmlLayout, WhatIsTakenTheParserTakesAlike) {
  const std::string document = exported_document(
      exported_node("h", "") + exported_node("h\\k&lt;", "") +
      exported_node("h\\k&lt;\\a", "&#13;\u00E9x") + exported_node("h\\b", "&gt;"));
  int taken = 0;
  for (size_t at = 0; at < document.size(); ++at) {
    for (const char* instead : {"", "11", "x", "Z", "\\", " ", "\n", "\r", "<", ">", "&", "'",
                                "\xC3", "\x7F", "\x1F", "h", ";"}) {
      std::string changed = document;
      changed.replace(at, 1, instead == std::string("11") ? std::string(2, document[at]) : instead);
      if (!is_own_layout(changed, 0)) continue;
      ++taken;
      CFG_SAXImport parsed, read;
      ASSERT_EQ(outcome(read.InitFromBuffer(changed, 0), read, 0),
                outcome(parse_document(parsed, changed, 0), parsed, 0))
          << changed;
    }
  }
  EXPECT_GT(taken, 50);
  EXPECT_LT(taken, 500);
}

// Files are read by windows of 256 KB, which grow up to 16 MB for a long node.
TEST(XmlLayout, WindowsEndAnywhere) {
  const std::string root = exported_node("h", "");
  const size_t window = 256 * 1024, before = exported_document(root).size() - 18;
  std::vector<std::string> documents;
  for (size_t cut = 0; cut < 130; ++cut) {  // all over the node behind the first window
    const size_t length = window - before - cut - exported_node("h\\a", "").size();
    documents.push_back(exported_document(root + exported_node("h\\a", std::string(length, 'x')) +
                                          exported_node("h\\b", "&lt;\u00E9&gt;")));
  }
  for (const size_t length : {window, 5 * window, size_t{17} << 20}) {
    documents.push_back(exported_document(root + exported_node("h\\a", std::string(length, 'x')) +
                                          exported_node("h\\b", "1")));
  }
  // Something wrong behind the first window, and the end missing there.
  documents.push_back(documents.back() + "x");
  documents.push_back(documents.front().substr(0, documents.front().size() - 8));
  TemporaryFolder folder;
  for (const std::string& document : documents) {
    put_file(folder / "t.xml", document);
    Sys_File file;
    ASSERT_TRUE(file.open(folder.file("t.xml")));
    cfg::branch_list branches(0);
    EXPECT_EQ(cfg::read_own_layout(file, branches),
              document.size() < size_t{17} << 20 && is_own_layout(document, 0));
    CFG_SAXImport read, read_file;
    EXPECT_TRUE(outcome(read_file.Init(folder.file("t.xml"), 0), read_file, 0) ==
                outcome(parse_document(read, document, 0), read, 0));
  }
}

TEST(XmlLayout, RealTreeIsTheSameBothWays) {
  const std::string packed = HALVORIA_SOURCE_DIR "/../shared/data/packages.xml.gz";
  if (!std::filesystem::exists(packed)) GTEST_SKIP() << "no " << packed;
  const std::string document = unpacked(packed);
  EXPECT_TRUE(is_own_layout(document, 0));
  CFG_SAXImport parsed, read;
  EXPECT_TRUE(outcome(read.InitFromBuffer(document, 0), read, 0) ==
              outcome(parse_document(parsed, document, 0), parsed, 0));
}

}  // namespace
