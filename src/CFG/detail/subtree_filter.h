// Which records of a byte array are kept.
#pragma once

#include <set>
#include <string_view>
#include <vector>

#include <tree/Tree_IdNodeInfo.h>
#include <tree/Tree_Path.h>

namespace cfg {

// Ids as they come: those of a proper array count up from 0, others may be anything. What a
// set takes depends on how many ids are in it and not on how large they are.
class id_set {
 public:
  // The least `dense` ids take a bit each, others an entry.
  explicit id_set(size_t dense) : m_dense(dense) {}

  void insert(int id) {
    const auto at = static_cast<size_t>(id);
    if (at >= m_dense) return void(m_others.insert(id));
    if (at >= m_bits.size()) m_bits.resize(m_dense);
    m_bits[at] = true;
  }
  bool contains(int id) const {
    const auto at = static_cast<size_t>(id);
    if (id < 0) return false;
    return at < m_dense ? at < m_bits.size() && m_bits[at] : m_others.count(id) != 0;
  }

 private:
  size_t m_dense;
  std::vector<bool> m_bits;  // empty before the first insertion
  std::set<int> m_others;
};

// Follows the records of an array to the subtree that a path names, from the name of the top
// record on, and keeps that subtree and the keys leading to it, or everything else.
class subtree_filter {
 public:
  // An empty path keeps everything. The path must outlive the filter.
  subtree_filter(std::string_view path, bool skips, size_t records)
      : m_rest(path), m_is_on(m_rest.Next(m_next)), m_skips(skips), m_inside(records) {}

  // Of each record in order; ids are not negative, but for the parent id of the top record.
  bool keeps(int id, int parent_id, std::string_view name) {
    return !m_is_on || is_selected(id, parent_id, name);
  }

 private:
  bool is_selected(int id, int parent_id, std::string_view name) {
    bool is_top = false;
    if (parent_id == m_expected && name == m_next) {
      is_top = !m_rest.Next(m_next);
      m_expected = is_top ? Tree_IdNodeInfo::INVALID : id;
    }
    if (is_top || m_inside.contains(parent_id)) {
      m_inside.insert(id);
      return !m_skips;
    }
    return m_skips || id == m_expected;
  }

  Tree_PathWalk m_rest;
  std::string_view m_next;  // the component of the path to be met next
  bool m_is_on;
  bool m_skips;
  int m_expected = Tree_IdNodeInfo::TOP_PARENT_ID;  // below which it is to be met
  id_set m_inside;                                  // ids of the subtree's records
};

}  // namespace cfg
