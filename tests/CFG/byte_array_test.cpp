#include <gtest/gtest.h>

#include <random>

#include <CFG/CFG_RepositoryServicesImp.h>
#include "byte_arrays.h"
#include "xml/xml_documents.h"

namespace {

constexpr char reader[] = "CreateSubTreeFromByteArray(char* byteArray,int length)";
constexpr char builder[] = "CreateTreeFromNodeIdVec(RWTPtrOrderedVector<Tree_IdNodeInfo> * vec)";
constexpr char malformed[] = "Error in CreateSubTreeFromByteArray - returning NULL\n";
const std::string no_tree =
    reader + std::string(" : fail to create Tree_NodePtr from vector, return NULL\n");

const std::string sample = get_file(HALVORIA_SOURCE_DIR "/tests/data/nodes.bytes");

const ArrayRecord top{0, -1, "t"};

// What was said but for the course of things.
std::string said(const Log_Capture& capture) {
  std::string text;
  for (const Log_Capture::Line& line : capture.lines()) {
    if (line.level < LOG_LEVEL_TRACE) text += line.text;
  }
  return text;
}

TEST(ByteArray, StoredSampleIsReadAndWrittenBackByteForByte) {
  const SubTreePtr tree = read_array(sample, true);
  EXPECT_EQ(listed(tree),
            "halvoria\\system\n"
            "0 nodes\n1 alpha\n2 properties\n3 inet_address=10.0.0.1 changed\n"
            "3 comment=  two lines,\r\nblanks at both ends  \n\n2 gr\u00F6\u00DFe=42\n1 beta\n"
            "1 default node=alpha changed\n");
  EXPECT_EQ(tree->GetPath(), "halvoria\\system\\nodes");
  EXPECT_TRUE(written_array(tree->GetData(), true) == sample);

  const std::string records = sample.substr(4 + std::string("halvoria\\system").size());
  int length = -1;
  char* const bytes = CFG_SubTree::SerializeSubTree(tree.get(), length);
  EXPECT_TRUE(taken(bytes, length) == records);
  const SubTreePtr plain(CFG_RepositoryServices::CreateSubTreeFromByteArray(
      records.data(), static_cast<int>(records.size())));
  EXPECT_EQ(plain->GetPath(), "nodes");
  EXPECT_TRUE(written_array(plain->GetData(), false) == records);
}

TEST(ByteArray, DefectsEndTheReadWithTheirMessages) {
  const std::string t = array_of(top), k = t + array_of({1, 0, "k"});
  const std::string in_t = t + big_endian(1) + big_endian(0),
                    in_k = k + big_endian(2) + big_endian(1);
  const std::string bad = big_endian(-100), minus = big_endian(-7), too_long = big_endian(3001);
  const struct {
    bool has_header;
    std::string bytes;
    std::string message;
  } cases[] = {
      {false, bad, "fail to get id from byteArray parameter, return NULL"},
      {false, minus, "id <-7> less than zero, return NULL"},
      {false, t + minus.substr(0, 3) + "\x9C",
       "fail to get id from byteArray parameter, return NULL"},
      {false, k + big_endian(2) + bad,
       "fail to get parent id from byteArray parameter, return NULL"},
      {false, k + big_endian(2) + minus, "parent id <-7> less than zero, return NULL"},
      {false, in_k + bad, "fail to get path len from byteArray parameter. Parent: t\\k"},
      {false, in_k + minus, "path len less or equal to zero. Parent: t\\k"},
      {false, in_k + too_long + std::string(4000, 'n'), "path len too long <3001>. Parent: t\\k"},
      {false, in_k + counted("v") + bad,
       "fail to get value len from byteArray parameter, parent='t\\k'"},
      {false, in_k + counted("v") + minus, "val len less then zero, parent='t\\k'"},
      {false, in_k + counted("v") + counted("text") + bad,
       "fail to get is change info from byteArray parameter, return NULL"},
      {true, minus, "virtual path len less than zero, return NULL"},
      // lengths that the array does not have
      {false, in_t.substr(0, 23), "the parent id of 4 bytes at offset 21 | 23"},
      {false, in_t + big_endian(2) + "n", "the path of 2 bytes at offset 29 | 30"},
      {false, in_t + counted("n") + big_endian(INT_MAX) + "text",
       "the value of 2147483647 bytes at offset 34 | 38"},
      {false, in_t + counted("n") + counted("text"), "is change of 4 bytes at offset 38 | 38"},
      {true, "abc", "the virtual path len of 4 bytes at offset 0 | 3"},
      {true, big_endian(9) + "halvoria", "the virtual path of 9 bytes at offset 4 | 12"},
  };
  for (const auto& c : cases) {
    std::string message = c.message;
    if (const size_t cut = message.find(" | "); cut != message.npos) {
      message.replace(cut, 3, " runs past the end of the array of ");
      message += " bytes, return NULL";
    }
    Log_Capture capture;
    EXPECT_EQ(listed(read_array(c.bytes, c.has_header)), "NULL") << message;
    EXPECT_EQ(said(capture), reader + (" : " + message + "\n") + malformed);
  }
}

TEST(ByteArray, HeadersMayBeEmptyAndRecordsMayNot) {
  EXPECT_EQ(listed(read_array(counted("") + array_of(top), true)), "\n0 t\n");
  const SubTreePtr below(read_array(counted("h\\t") + array_of(top), true));
  EXPECT_EQ(below->GetData()->GetFullPath(), "h\\t\\t");
  Log_Capture capture;
  EXPECT_EQ(listed(read_array(counted("halvoria"), true)), "NULL");
  EXPECT_EQ(listed(read_array(big_endian(-100), true)), "NULL");
  const std::string r = reader + std::string(" : ");
  EXPECT_EQ(said(capture),
            builder +
                (" : vec parameter is null or empty , return NULL_TREE_NODE_PTR\n" + no_tree) + r +
                "fail to get virtual path len from byteArray parameter, return NULL\n" + r +
                "virtual path len less than zero, return NULL\n" + malformed);
}

TEST(ByteArray, CallersMistakesAreAnsweredWithNull) {
  Log_Capture capture;
  EXPECT_EQ(CFG_RepositoryServices::CreateSubTreeFromByteArray(nullptr, 1), nullptr);
  EXPECT_EQ(capture.lines().back().level, LOG_LEVEL_INFORMATION);
  EXPECT_EQ(CFG_RepositoryServices::CreateSubTreeFromByteArray("x", 0), nullptr);
  EXPECT_EQ(CFG_RepositoryServices::CreateSubTreeFromByteArray("x", -1), nullptr);
  int length = 5;
  EXPECT_EQ(CFG_SubTree::SerializeSubTree(nullptr, length), nullptr);
  EXPECT_EQ(length, 0);
  CFG_SubTree no_data{Tree_NodePtr()};
  EXPECT_EQ(CFG_SubTree::SerializeSubTree(&no_data, length), nullptr);
  const std::string r = reader, s = "SerializeSubTree(CFG_SubTree* sub,int & buffer_length)",
                    g = "GetSerializedTreeNode(Tree_NodePtr & node,int & length,bool)";
  EXPECT_EQ(said(capture), r + " : byteArray parameter is NULL, return NULL\n" + r +
                               " : length parameter less than zero, return NULL\n" + s +
                               " : sub parameter is null, return NULL\n" + g +
                               " : node is null, return NULL\n" + s +
                               " : Fail to write subtree, return NULL\n");
  // Each line names the class that says it.
  std::vector<std::string> sources;
  for (const Log_Capture::Line& line : capture.lines()) {
    if (line.level < LOG_LEVEL_TRACE) sources.push_back(line.file);
  }
  EXPECT_EQ(sources, (std::vector<std::string>{
                         "src/CFG/CFG_RepositoryServicesImp", "src/CFG/CFG_RepositoryServicesImp",
                         "src/CFG/CFG_SubTree", "platform/tree/Tree_Node", "src/CFG/CFG_SubTree"}));
}

TEST(ByteArray, RecordsFindTheirPlaceOrThereIsNoTree) {
  const std::string b = builder;
  const std::string lost =
      b + " : Fail to get parent in tree building , return NULL_TREE_NODE_PTR\n";
  const std::string at_root = "first_parent->GetParent() return null, return NULL_TREE_NODE_PTR\n";
  const std::string no_ancestor = "Tree parameter parent is null, return NULL_TREE_NODE_PTR\n";
  const auto refused = [&](const char* name, const char* key, const char* why) {
    return b + " : <" + name + "> can not be added to <" + key + ">: " + why +
           ", return NULL_TREE_NODE_PTR\n";
  };
  const struct {
    ArrayRecords records;
    const char* tree;
    std::string message;
  } cases[] = {
      {{top, {1, 0, "a"}, {2, 1, "b"}, {3, 2, "v", "x", 1}, {4, 1, "c"}, {5, 0, "d", "y"}},
       "t{a{b{v=x} c{}} d=y}",
       ""},
      // the value of the top record does not count; ids need not be in order, the top's not 0
      {{{9, -1, "t", "text", 1}, {3, 9, "a"}, {7, 3, "b"}, {4, 3, "c", "v"}}, "t{a{b{} c=v}}", ""},
      {{top, {INT_MAX, 0, "a"}, {1, INT_MAX, "b"}}, "t{a{b{}}}", ""},
      // the same id twice: the nearest one
      {{top, {1, 0, "a"}, {1, 0, "b"}, {2, 1, "c"}}, "t{a{} b{c{}}}", ""},
      {{top, {1, 7, "a"}}, "NULL", no_ancestor + lost},
      {{top, {1, 0, "a"}, {2, 1, "b"}, {3, 7, "c"}}, "NULL", at_root + lost},
      {{top, {1, -1, "u"}}, "NULL", no_ancestor + lost},
      {{top, {1, 0, "a"}, {2, 0, "b"}, {3, 1, "late"}}, "NULL", no_ancestor + lost},
      {{{5, -1, "t"}, {1, 5, "a"}, {2, 1, "b"}, {3, 5, "c"}}, "NULL", at_root + lost},
      {{top, {1, 0, "v", "x"}, {2, 1, "b"}}, "NULL", refused("b", "t\\v", "it is a value")},
      {{top, {1, 0, "a"}, {2, 0, "a", "x"}},
       "NULL",
       refused("a", "t", "it has a child of that name already")},
  };
  for (const auto& c : cases) {
    Log_Capture capture;
    EXPECT_EQ(shown(read_array(array_of(c.records))), c.tree) << array_of(c.records);
    EXPECT_EQ(said(capture), c.message.empty() ? "" : c.message + no_tree);
  }
}

TEST(ByteArray, NodesKeepTheIdsOfTheirRecords) {
  const SubTreePtr tree = read_array(array_of({top, {70000, 0, "k"}, {INT_MAX, 70000, "v", "x"}}));
  EXPECT_EQ(tree->GetData()->Find("k")->GetNodeId(), 70000);
  const Tree_NodePtr value = tree->GetData()->Find("k\\v");
  EXPECT_EQ(value->GetNodeId(), INT_MAX);
  value->GetTreeValue()->SetValue("a text that takes a block of its own");
  EXPECT_EQ(value->GetNodeId(), INT_MAX);
  EXPECT_EQ(Tree_NodePtr(new Tree_Node("fresh", new Tree_Value("text", 1)))->GetNodeId(), -1);
}

TEST(ByteArray, NamesAndTextsSurviveButForNulBytesAtTheirEnds) {
  const std::string nuls(3, '\0'), name_3000(3000, 'n'), inside = "a" + nuls + "b";
  const SubTreePtr tree =
      read_array(array_of({top,
                           {1, 0, name_3000},
                           {2, 0, nuls + inside + nuls, nuls + inside + "\n", 7},
                           {3, 0, " A\\b ", " ", -1},
                           {4, 0, "k", nuls}}));
  EXPECT_EQ(listed(tree), "\n0 t\n1 " + name_3000 + "\n1 " + inside + "=" + inside +
                              "\n changed\n1  A\\b = \n1 k\n");
  EXPECT_EQ(listed(read_array(written_array(tree->GetData(), true), true)), listed(tree));

  Log_Capture capture;
  EXPECT_EQ(shown(read_array(array_of({top, {1, 0, "k"}, {2, 1, ""}, {3, 0, nuls, "x"}}))),
            "t{k{ERRONEOUS_EMPTY_PATH{}} ERRONEOUS_EMPTY_PATH=x}");
  // Of several below one key the first stays, and nothing else is lost.
  EXPECT_EQ(shown(read_array(array_of({top,
                                       {1, 0, "k"},
                                       {2, 1, "", "x"},
                                       {3, 1, ""},
                                       {4, 3, "below"},
                                       {5, 4, "deep", "y"},
                                       {6, 1, "a", "z"},
                                       {7, 0, "b"}}))),
            "t{k{ERRONEOUS_EMPTY_PATH=x a=z} b{}}");
  EXPECT_EQ(shown(read_array(array_of(ArrayRecord{0, -1, ""}))), "ERRONEOUS_EMPTY_PATH{}");
  std::string expected;
  for (const char* parent : {"t\\k", "t", "t\\k", "t\\k", ""}) {
    if (!*parent)
      expected +=
          builder + std::string(" : 3 records of further keys with length 0 are left out\n");
    expected += std::string("The parent '") + parent +
                "' has a key with length 0. Fix this with the configuration editor\n";
  }
  EXPECT_EQ(said(capture), expected);
  EXPECT_EQ(capture.lines()[0].level, LOG_LEVEL_WARNING);
}

TEST(ByteArray, FiltersKeepOrDropOneSubtree) {
  const std::string bytes = array_of({top,
                                      {1, 0, "a"},
                                      {2, 1, "b"},
                                      {3, 2, "x", "1"},
                                      {4, 2, "b"},
                                      {5, 4, "y", "2"},
                                      {6, 1, "c"},
                                      {7, 6, "b"},
                                      {8, 0, "v", "3"}});
  const struct {
    const char *path, *kept, *rest;
  } cases[] = {
      {"t\\a\\b", "t{a{b{x=1 b{y=2}}}}", "t{a{c{b{}}} v=3}"},
      {"t\\a\\b\\b", "t{a{b{b{y=2}}}}", "t{a{b{x=1} c{b{}}} v=3}"},
      {"\\t\\\\a\\", "t{a{b{x=1 b{y=2}} c{b{}}}}", "t{v=3}"},
      {"t\\v", "t{v=3}", "t{a{b{x=1 b{y=2}} c{b{}}}}"},
      {"t", "t{a{b{x=1 b{y=2}} c{b{}}} v=3}", "NULL"},
      // what is not there: the keys as far as the path leads
      {"t\\a\\z", "t{a{}}", "t{a{b{x=1 b{y=2}} c{b{}}} v=3}"},
      {"a\\b", "NULL", "t{a{b{x=1 b{y=2}} c{b{}}} v=3}"},
      {"", "t{a{b{x=1 b{y=2}} c{b{}}} v=3}", "t{a{b{x=1 b{y=2}} c{b{}}} v=3}"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(shown(read_array(bytes, false, c.path, false)), c.kept) << c.path;
    EXPECT_EQ(shown(read_array(bytes, false, c.path, true)), c.rest) << c.path;
  }
  // The whole array is read, whatever is kept of it.
  EXPECT_EQ(shown(read_array(bytes + big_endian(9) + big_endian(-100), false, "t\\a")), "NULL");
  // Ids of any size, and no second top in place of one that is dropped.
  EXPECT_EQ(shown(read_array(array_of({top, {INT_MAX, 0, "a"}, {INT_MAX - 1, INT_MAX, "b"}}), false,
                             "t\\a", true)),
            "t{}");
  EXPECT_EQ(shown(read_array(array_of({top, {1, -1, "u"}}), false, "t", true)), "NULL");
}

// The format has no count: an array cut between two records, or up to three bytes behind one,
// is the array of the records before the cut. Any other cut is a defect.
TEST(ByteArray, CutAnywhereItGivesTheRecordsBeforeTheCutOrNothing) {
  const ArrayRecords records{top, {1, 0, "k"}, {2, 1, "v", "some text", 1}, {3, 0, "w", "x"}};
  const std::string header = counted("up\\here"), bytes = header + array_of(records);
  std::vector<size_t> ends{header.size()};
  std::vector<std::string> trees{"NULL"};
  for (size_t n = 1; n <= records.size(); ++n) {
    const ArrayRecords first(records.begin(), records.begin() + static_cast<long>(n));
    ends.push_back(header.size() + array_of(first).size());
    trees.push_back(listed(read_array(header + array_of(first), true)));
  }
  EXPECT_EQ(trees.back(), "up\\here\n0 t\n1 k\n2 v=some text changed\n1 w=x\n");
  for (size_t length = 0; length <= bytes.size(); ++length) {
    std::string expected = "NULL";
    for (size_t n = 0; n < ends.size(); ++n) {
      if (length >= ends[n] && length < ends[n] + 4) expected = trees[n];
    }
    EXPECT_EQ(listed(read_array(bytes.substr(0, length), true)), expected) << length;
  }
}

// A length with one bit changed may make a longer text that ends where a later record did: that
// is an array like any other, since the format has no sum to hold it against.
TEST(ByteArray, AFlippedByteNeverGivesPartOfTheTree) {
  size_t read = 0;
  for (size_t at = 0; at < sample.size(); ++at) {
    for (const int change : {0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80, 0xFF}) {
      std::string bytes = sample;
      bytes[at] = static_cast<char>(bytes[at] ^ change);
      const SubTreePtr tree = read_array(bytes, true);
      if (!tree) continue;
      ++read;
      EXPECT_TRUE(change != 0xFF || tree->GetData()->GetNodeNum() == 8) << at;
      EXPECT_EQ(listed(read_array(written_array(tree->GetData(), true), true)), listed(tree));
    }
  }
  EXPECT_GT(read, sample.size());  // letters may change
}

TEST(ByteArray, StaticHelpersFindParentsAndIntegers) {
  const std::string bytes = big_endian(-2) + big_endian(0x01020304);
  int offset = 0;
  EXPECT_EQ(CFG_RepositoryServicesImp::GetIntFromChar(bytes.data(), offset), -2);
  EXPECT_EQ(CFG_RepositoryServicesImp::GetIntFromChar(bytes.data(), offset), 0x01020304);
  EXPECT_EQ(offset, 8);

  const SubTreePtr tree = read_array(array_of({top, {1, 0, "a"}, {2, 1, "b"}, {3, 2, "c"}}));
  Tree_Node* const c = tree->GetData()->Find("a\\b\\c");
  Tree_IdNodeInfo record;
  const auto parent = [&](Tree_Node* current, int id) {
    record.SetParentId(id);
    return CFG_RepositoryServicesImp::GetParent(current, &record);
  };
  EXPECT_EQ(parent(c, 3), c);
  EXPECT_EQ(parent(c, 1), tree->GetData()->Find("a"));
  EXPECT_EQ(parent(c, 0), nullptr);
  EXPECT_EQ(parent(tree->GetData().get(), 0), tree->GetData().get());
  EXPECT_EQ(parent(nullptr, 0), nullptr);
}

// The records as the vector form takes them.
std::vector<Tree_IdNodeInfo> infos_of(const ArrayRecords& records) {
  std::vector<Tree_IdNodeInfo> infos;
  for (const ArrayRecord& r : records) {
    Tree_IdNodeInfo& info = infos.emplace_back();
    info.SetId(r.id);
    info.SetParentId(r.parent);
    info.SetPath(r.name.data(), static_cast<int>(r.name.size()));
    info.StripPath();
    info.SetValue(r.value.data(), static_cast<int>(r.value.size()));
    info.StripValue();
    info.SetIsChange(r.is_change);
  }
  return infos;
}

TEST(ByteArray, ArrayAndRecordListGiveTheSameTrees) {
  std::mt19937 random(11);
  int trees = 0;
  for (int round = 0; round < 4000; ++round) {
    ArrayRecords records{top};
    std::vector<int> way{0};  // ids of open keys
    const int count = static_cast<int>(random() % 12);
    for (int id = 1; id <= count; ++id) {
      way.resize(1 + random() % way.size());
      const bool is_key = random() % 2;
      records.push_back({id, way.back(), std::string(1, static_cast<char>('a' + random() % 20)),
                         is_key ? "" : "x", static_cast<int>(random() % 3)});
      if (is_key) way.push_back(id);
    }
    if (random() % 4 == 0) std::swap(records[random() % records.size()], records.back());
    if (random() % 4 == 0)
      records[random() % records.size()].parent = static_cast<int>(random() % 8);
    if (random() % 4 == 0) records[random() % records.size()].id = static_cast<int>(random() % 8);
    const std::string fast = listed(read_array(array_of(records)));
    EXPECT_EQ(listed(CFG_RepositoryServicesImp::CreateTreeFromNodeIdVec(infos_of(records), false)),
              fast);
    trees += fast != "NULL";
  }
  EXPECT_GT(trees, 1000);
  EXPECT_LT(trees, 3500);
}

void check_round_trip(const Tree_NodePtr& tree, const char* skipped) {
  tree->SetPathAbove("above\\it");  // a document leaves the path of the top itself there
  const std::string bytes = written_array(tree, true);
  const SubTreePtr again = read_array(bytes, true);
  ASSERT_TRUE(listed(again) == listed(tree));
  EXPECT_TRUE(written_array(again->GetData(), true) == bytes);

  // What the writer leaves out and what the reader leaves out.
  const std::string path = tree->GetKeyName().str() + "\\" + skipped;
  const SubTreePtr without = read_array(written_array(tree, true, skipped), true);
  EXPECT_TRUE(listed(read_array(bytes, true, path.c_str(), true)) == listed(without));
  const SubTreePtr only = read_array(bytes, true, path.c_str(), false);
  ASSERT_TRUE(only && only->GetData()->Find(skipped));
  EXPECT_EQ(without->GetData()->Find(skipped), nullptr);
  EXPECT_EQ(without->GetData()->GetNodeNum() + only->GetData()->Find(skipped)->GetNodeNum(),
            tree->GetNodeNum());
}

TEST(ByteArray, TreesOfEveryShapeComeBackEqual) {
  const SubTreePtr small =
      import_buffer(get_file(HALVORIA_SOURCE_DIR "/tests/data/small_tree.xml"));
  check_round_trip(small->GetData(), "system\\applications");

  Tree_NodePtr wide = new Tree_Node("wide");
  for (int i = 0; i < 100000; ++i) {
    wide->Add(new Tree_Node("name of " + std::to_string(i), std::to_string(i), i % 2));
  }
  check_round_trip(wide, "name of 77");

  Tree_NodePtr deep = new Tree_Node("deep");
  Tree_Node* end = deep.get();
  for (int i = 0; i < 100000; ++i) {
    end->Add(new Tree_Node("k"));
    end = end->Child("k");
  }
  check_round_trip(deep, "k\\k\\k");
}

TEST(ByteArray, RealTreeComesBackEqual) {
  const char* packed = HALVORIA_SOURCE_DIR "/../shared/data/packages.xml.gz";
  if (!std::filesystem::exists(packed)) GTEST_SKIP() << "no " << packed;
  const SubTreePtr tree = import_buffer(unpacked(packed));
  ASSERT_TRUE(tree);
  const std::string child = tree->GetData()->GetChildAt(0)->GetKeyName().str();
  check_round_trip(tree->GetData(), child.c_str());
}

TEST(ByteArray, HostileArraysCostNoMoreThanTheirSize) {
  // A chain of keys without names: each warning names a path as long as the array.
  ArrayRecords chain{top};
  for (int id = 1; id <= 150; ++id) chain.push_back({id, id - 1, ""});
  Log_Capture capture;
  const SubTreePtr tree = read_array(array_of(chain));
  EXPECT_EQ(tree->GetData()->GetNodeNum(), 151);
  EXPECT_EQ(capture.lines().size(), 101u);
  EXPECT_EQ(capture.last(), std::string(reader) + " : 50 more keys with length 0\n");
}

}  // namespace
