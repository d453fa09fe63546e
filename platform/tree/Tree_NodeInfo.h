// A flat record of one node.
#pragma once

#include <string_view>

#include <strings/Export.h>
#include <strings/RWCString.h>

// The path of the one record that stands for a tree without children where a tree travels as
// records. No key can have it: a name holds no backslash, and none stands at either end of a path.
constexpr char Tree_EmptySubTree_DummyName[] = "\\EMPTY_SUB_TREE\\";

// Trees are flattened to such records and built from them. An empty value marks a
// key, a non-empty one a value node. Records sort by the bytes of their path, so that
// a parent comes before its children.
class Tree_NodeInfo {
 public:
  Tree_NodeInfo() = default;
  Tree_NodeInfo(RWCString path, RWCString value, int is_change = 0)
      : m_path(std::move(path)), m_value(std::move(value)), m_is_change(is_change) {
    cut_at_last_backslash();
  }

  RWCString GetPath() const { return m_path; }
  RWCString GetParentPath() const {
    return PathView().substr(0, static_cast<size_t>(m_parent_length));
  }
  RWCString GetValue() const { return m_value; }
  int IsChange() const { return m_is_change; }
  int GetParentPathLength() const { return m_parent_length; }

  // The same texts without a copy, valid until the record is changed.
  std::string_view PathView() const { return m_path.view(); }
  std::string_view ValueView() const { return m_value.view(); }

  // Sets the parent's part of the path, too: what stands before the last backslash.
  void SetPath(RWCString& path) {
    m_path = path;
    cut_at_last_backslash();
  }
  void SetParentPath(RWCString& parent) { m_parent_length = static_cast<int>(parent.length()); }
  void SetValue(RWCString& value) { m_value = value; }
  void SetIsChange(int is_change) { m_is_change = is_change; }

  friend bool operator<(const Tree_NodeInfo& a, const Tree_NodeInfo& b) {
    return a.m_path < b.m_path;
  }

 private:
  void cut_at_last_backslash() {
    const size_t cut = m_path.last('\\');
    m_parent_length = cut == RWCString::npos ? 0 : static_cast<int>(cut);
  }

  RWCString m_path;
  RWCString m_value;
  int m_parent_length = 0;
  int m_is_change = 0;
};
