// Putting a tree in the place of another.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <database/Db_Store.h>
#include <tree/Tree_NodeInfo.h>
#include <utility/Tmr_PtrSortedVector.h>

// The rows of a tree that are to be all there is at the path of its top. Both trees are gone
// through once, side by side in order of path, so that rows that do not change keep their
// numbers. Views of the records; good for one write.
class Db_Replacement {
 public:
  // Null, or what is wrong: the records must make one tree, its top first in order.
  const char* take(const Tmr_PtrSortedVector<Tree_NodeInfo>& records);
  std::string_view fault_path() const { return m_fault_path; }
  bool is_below_value() const { return m_is_below_value; }

  std::string_view top() const { return m_rows.front().path; }
  // Within a transaction; numbers the changes.
  Db_Result write(Db_Store& store, int64_t& sequence);

 private:
  const char* fault_of(const Db_Entry& row);
  Db_Result compare(Db_Store& store);
  void compare_with(const Db_Entry& stored);
  Db_Result write_differences(Db_Store& store, int64_t& sequence);

  std::vector<Db_Entry> m_rows;
  size_t m_next = 0;     // the row to be compared with what is stored
  bool m_is_new = true;  // nothing is stored
  std::vector<Db_Entry> m_put;
  std::vector<std::string> m_gone;
  std::string_view m_fault_path;
  bool m_is_below_value = false;
};
