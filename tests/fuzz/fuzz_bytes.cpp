// Byte arrays: any bytes are read without a fault, with every filter, with and without header. What
// is read is what a plain reader makes of the same bytes, which keeps a list of records and
// builds the tree from that. It is written to an array that gives the same tree again.
//
// The input is a line, the path of the filter, and the array behind it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <CFG/CFG_RepositoryServicesImp.h>
#include <CFG/CFG_SubTree.h>
#include <logging/Tmr_GLog.h>
#include <tree/Tree_Walk.h>

#include "reach.h"

namespace {

Reach tree_read("a byte array becomes a tree");
Reach array_refused("a byte array is refused");
Reach part_read("a part of a byte array becomes a tree");

struct form {
  bool has_header;
  std::string_view sub_path;
  bool skips;
};

void check_equal(const Tree_NodePtr& a, const Tree_NodePtr& b) {
  if (!a || !b) abort();
  if (a->GetVirtualParentPath() != b->GetVirtualParentPath()) abort();
  Tree_Walk at(a.get()), same(b.get());
  for (; at && same; at.Next(), same.Next()) {
    if (at.Depth() != same.Depth() || at->NameView() != same->NameView()) abort();
    if (at->IsLeaf() != same->IsLeaf() || at->GetText() != same->GetText()) abort();
    if (at->IsLeaf() && at->GetTreeValue()->IsChange() != same->GetTreeValue()->IsChange()) abort();
  }
  if (at || same) abort();
}

// The reader as it is described: step by step, into a list.
class plain_reader {
 public:
  plain_reader(std::string_view bytes, const form& f) : m_bytes(bytes), m_form(f) {
    Tree_PathWalk walk(f.sub_path);
    for (std::string_view name; walk.Next(name);) m_way.push_back(name);
  }

  Tree_NodePtr read() {
    RWCString virtual_path;
    if (m_form.has_header) {
      const auto length = integer();
      const auto path = length ? text(*length) : std::nullopt;
      if (!path) return nullptr;
      virtual_path = *path;
    }
    while (m_bytes.size() >= 4) {
      Tree_IdNodeInfo record;
      if (!read_record(record)) return nullptr;
      const bool is_kept = keeps(record);
      if (m_kept.empty() && !is_kept) return nullptr;
      if (is_kept) m_kept.push_back(record);
    }
    const Tree_NodePtr top =
        CFG_RepositoryServicesImp::CreateTreeFromNodeIdVec(m_kept, m_form.has_header);
    if (top) top->SetVirtualParentPath(virtual_path);
    return top;
  }

 private:
  std::optional<int> integer() {
    if (m_bytes.size() < 4) return {};
    int offset = 0;
    const int value = CFG_RepositoryServicesImp::GetIntFromChar(m_bytes.data(), offset);
    m_bytes.remove_prefix(4);
    if (value == -100) return {};
    return value;
  }
  std::optional<std::string_view> text(int length) {
    if (length < 0 || m_bytes.size() < static_cast<size_t>(length)) return {};
    const std::string_view taken = m_bytes.substr(0, static_cast<size_t>(length));
    m_bytes.remove_prefix(taken.size());
    return taken;
  }
  bool read_record(Tree_IdNodeInfo& record) {
    const auto id = integer(), parent_id = integer(), name_length = integer();
    if (!id || *id < 0 || !parent_id || *parent_id < -1) return false;
    if (!name_length || *name_length > 3000) return false;
    const auto name = text(*name_length);
    const auto value_length = integer();
    if (!name || !value_length) return false;
    const auto value = text(*value_length);
    const auto is_change = *value_length > 0 ? integer() : 0;
    if (!value || !is_change) return false;
    record.SetId(*id);
    record.SetParentId(*parent_id);
    record.SetPath(name->data(), *name_length);
    record.StripPath();
    if (record.PathView().empty()) record.SetPath("ERRONEOUS_EMPTY_PATH");
    record.SetValue(value->data(), *value_length);
    record.StripValue();
    record.SetIsChange(*is_change);
    return true;
  }
  bool keeps(const Tree_IdNodeInfo& record) {
    if (m_way.empty()) return true;
    bool is_selected = m_inside.count(record.GetParentId()) != 0;
    if (m_met < m_way.size() && record.GetParentId() == m_expected &&
        record.PathView() == m_way[m_met]) {
      m_expected = record.GetId();
      if (++m_met == m_way.size()) {
        is_selected = true;
        m_expected = -100;
      }
    }
    if (is_selected) m_inside.insert(record.GetId());
    return is_selected != m_form.skips || (!is_selected && record.GetId() == m_expected);
  }

  std::string_view m_bytes;
  const form m_form;
  std::vector<std::string_view> m_way;
  size_t m_met = 0;  // components of the way
  int m_expected = -1;
  std::set<int> m_inside;
  std::vector<Tree_IdNodeInfo> m_kept;
};

Tree_NodePtr read(std::string_view bytes, const form& f) {
  const std::unique_ptr<CFG_SubTree> tree(CFG_RepositoryServices::CreateSubTreeFromByteArray(
      bytes.data(), static_cast<int>(bytes.size()), f.has_header, RWCString(f.sub_path), f.skips));
  return tree ? tree->GetData() : Tree_NodePtr();
}

std::string written(const Tree_NodePtr& tree) {
  int length = 0;
  const std::unique_ptr<char[]> bytes(Tree_Node::GetSerializedTreeNode(tree, length, true));
  if (!bytes) abort();
  return {bytes.get(), static_cast<size_t>(length)};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  TmrGLog.SetLevel(0);
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const size_t line_end = input.find('\n');
  if (line_end == input.npos) return 0;
  const std::string_view path = input.substr(0, line_end), bytes = input.substr(line_end + 1);

  for (const bool has_header : {false, true}) {
    for (const form& f : {form{has_header, "", false}, form{has_header, path, false},
                          form{has_header, path, true}}) {
      const Tree_NodePtr tree = read(bytes, f), plain = plain_reader(bytes, f).read();
      if (!tree != !plain) abort();
      array_refused(!tree);
      if (!tree) continue;
      tree_read();
      part_read(!f.sub_path.empty());
      check_equal(tree, plain);
      const std::string array = written(tree);
      const Tree_NodePtr again = read(array, {true, "", false});
      check_equal(tree, again);
      if (written(again) != array) abort();
    }
  }
  return 0;
}
