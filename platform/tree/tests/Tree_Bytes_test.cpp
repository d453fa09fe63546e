#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <string>

#include <logging/Log_Capture.h>
#include <tree/Tree_IdNodeInfo.h>
#include <tree/Tree_Node.h>

namespace {

using namespace std::string_literals;

// "NULL", or the bytes.
std::string written(const Tree_NodePtr& node, bool with_header, const char* skip_path = "") {
  int length = -1;
  const std::unique_ptr<char[]> bytes(
      Tree_Node::GetSerializedTreeNodeSkipPath(node, length, with_header, skip_path));
  EXPECT_EQ(length == 0, !bytes);
  return bytes ? std::string(bytes.get(), static_cast<size_t>(length)) : "NULL";
}

Tree_NodePtr small_tree() {
  Tree_NodePtr top = new Tree_Node("t");
  top->GetOrCreateRelativeNode(Tree_Path("a\\b"), top)->Add(new Tree_Node("v", "xyz", 1));
  top->Add(new Tree_Node("w", "1", 0));
  return top;
}

TEST(TreeBytes, RecordsStandInTreeOrder) {
  const Tree_NodePtr top = small_tree();
  const std::string t = "\0\0\0\0\xFF\xFF\xFF\xFF\0\0\0\1t\0\0\0\0"s;
  const std::string a = "\0\0\0\1\0\0\0\0\0\0\0\1a\0\0\0\0"s;
  const std::string b = "\0\0\0\2\0\0\0\1\0\0\0\1b\0\0\0\0"s;
  const std::string v = "\0\0\0\3\0\0\0\2\0\0\0\1v\0\0\0\3xyz\0\0\0\1"s;
  const auto w = [](char id) {
    return "\0\0\0"s + id + "\0\0\0\0\0\0\0\1w\0\0\0\1"s + "1\0\0\0\0"s;
  };
  EXPECT_EQ(written(top, false), t + a + b + v + w(4));
  EXPECT_EQ(written(top, true), "\0\0\0\0"s + t + a + b + v + w(4));
  top->SetVirtualParentPath("h\\t");  // its own, as it is on the tree of a document
  EXPECT_EQ(written(top, true), "\0\0\0\1h"s + t + a + b + v + w(4));
  top->SetPathAbove("h\\t");
  EXPECT_EQ(written(top, true), "\0\0\0\3h\\t"s + t + a + b + v + w(4));
  top->SetVirtualParentPath("h\\s");
  EXPECT_EQ(written(top, true), "\0\0\0\3h\\s"s + t + a + b + v + w(4));
  // a part of a tree hangs under the path of its parent
  EXPECT_EQ(written(Tree_NodePtr(top->Find("a\\b")), true).substr(0, 11), "\0\0\0\7h\\s\\t\\a"s);

  EXPECT_EQ(written(top, false, "\\a\\\\b"), t + a + w(2));
  EXPECT_EQ(written(top, false, "a"), t + w(1));
  EXPECT_EQ(written(top, false, "w"), t + a + b + v);
  for (const char* nothing : {"", "\\", "t", "a\\c"}) {
    EXPECT_EQ(written(top, false, nothing), t + a + b + v + w(4)) << nothing;
  }
}

TEST(TreeBytes, WhatNoArrayHoldsIsRefusedWithItsPath) {
  const std::string op = "GetSerializedTreeNode(Tree_NodePtr & node,int & length,bool) : ";
  const std::string too_long(3001, 'n');
  const auto with = [](Tree_Node* child) {
    const Tree_NodePtr top = small_tree();
    EXPECT_TRUE(Tree_NodePtr(top->Find("a\\b"))->Add(child));
    return top;
  };
  const auto refused = [&](const std::string& name, const char* why) {
    return op + "<t\\a\\b\\" + name + "> cannot be written: " + why + ", return NULL\n";
  };
  const struct {
    Tree_NodePtr tree;
    std::string message;
  } cases[] = {
      {nullptr, op + "node is null, return NULL\n"},
      {new Tree_Node("v", "text", 0), op + "<v> is a value and not a key, return NULL\n"},
      {new Tree_Node(""), op + "<> cannot be written: its name is empty, return NULL\n"},
      {with(new Tree_Node("x", "", 0)), refused("x", "it is a value without text")},
      {with(new Tree_Node(too_long)), refused(too_long, "its name is too long")},
      {with(new Tree_Node("n\0"s)), refused("n\0"s, "its name begins or ends with a NUL byte")},
      {with(new Tree_Node("x", "\0y"s, 0)),
       refused("x", "its text begins or ends with a NUL byte")},
  };
  for (const auto& c : cases) {
    Log_Capture capture;
    EXPECT_EQ(written(c.tree, true), "NULL");
    EXPECT_EQ(capture.text(), c.message);
  }
  const std::string limit(3000, 'n');
  EXPECT_NE(written(with(new Tree_Node(limit)), false), "NULL");
  // what is left out may be anything
  EXPECT_NE(written(with(new Tree_Node("x", "", 0)), false, "a\\b"), "NULL");
}

TEST(TreeBytes, RecordsTrimNulBytesAndNothingElse) {
  Tree_IdNodeInfo record;
  EXPECT_STREQ(record.GetPath(), "");
  EXPECT_STREQ(record.GetValue(), "");
  const struct {
    std::string bytes, stripped;
  } cases[] = {{"\0\0 a\0b \r\n\0"s, " a\0b \r\n"s}, {"\0\0"s, ""}, {"plain", "plain"}};
  for (const auto& c : cases) {
    record.SetPath(c.bytes.data(), static_cast<int>(c.bytes.size()));
    record.SetValue(c.bytes.data(), static_cast<int>(c.bytes.size()));
    EXPECT_EQ(record.PathView(), c.bytes);
    record.StripPath();
    record.StripValue();
    EXPECT_EQ(record.PathView(), c.stripped);
    EXPECT_EQ(Tree_IdNodeInfo(record).ValueView(), c.stripped);
  }
  record.SetPath(nullptr, 3);
  record.SetValue("text", -1);
  EXPECT_STREQ(record.GetPath(), "");
  EXPECT_STREQ(record.GetValue(), "");
}

}  // namespace
