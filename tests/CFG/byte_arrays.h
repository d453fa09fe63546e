// Byte arrays for tests, put together from records, and what is read from them.
#pragma once

#include <climits>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include <logging/Log_Capture.h>
#include <tree/Tree_Node.h>
#include <tree/Tree_Walk.h>
#include "test_trees.h"

struct ArrayRecord {
  int id;
  int parent;
  std::string name;
  std::string value = "";
  int is_change = 0;
};
using ArrayRecords = std::vector<ArrayRecord>;

inline std::string big_endian(int value) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift);
  return bytes;
}
inline std::string counted(const std::string& text) {
  return big_endian(static_cast<int>(text.size())) + text;
}
inline std::string array_of(const ArrayRecord& r) {
  const std::string key = big_endian(r.id) + big_endian(r.parent) + counted(r.name);
  return key + counted(r.value) + (r.value.empty() ? "" : big_endian(r.is_change));
}
inline std::string array_of(const ArrayRecords& records) {
  std::string bytes;
  for (const ArrayRecord& r : records) bytes += array_of(r);
  return bytes;
}

// The array is copied to the end of a block of its own size, so that a sanitizer sees a read
// beyond it.
inline SubTreePtr read_array(const std::string& bytes, bool with_header = false,
                             const char* sub_path = "", bool skips = false) {
  const std::vector<char> exact(bytes.begin(), bytes.end());
  return SubTreePtr(CFG_RepositoryServices::CreateSubTreeFromByteArray(
      exact.empty() ? "" : exact.data(), static_cast<int>(exact.size()), with_header, sub_path,
      skips));
}

inline std::string taken(char* bytes, int length) {
  const std::unique_ptr<char[]> owned(bytes);
  return bytes ? std::string(bytes, static_cast<size_t>(length)) : "NULL";
}
inline std::string written_array(const Tree_NodePtr& tree, bool with_header,
                                 const char* skip_path = "") {
  int length = -1;
  char* bytes = Tree_Node::GetSerializedTreeNodeSkipPath(tree, length, with_header, skip_path);
  return taken(bytes, length);
}

// Everything that makes trees equal: the path above, then a line for each node, in order.
inline std::string listed(const Tree_NodePtr& top) {
  if (!top) return "NULL";
  std::string text = top->GetVirtualParentPath().str() + "\n";
  for (Tree_Walk walk(top.get()); walk; walk.Next()) {
    text += std::to_string(walk.Depth()).append(" ").append(walk->NameView());
    if (walk->IsLeaf()) text.append("=").append(walk->GetText());
    if (walk->IsLeaf() && walk->GetTreeValue()->IsChange()) text += " changed";
    text += '\n';
  }
  return text;
}
inline std::string listed(const SubTreePtr& tree) {
  return tree ? listed(tree->GetData()) : "NULL";
}
