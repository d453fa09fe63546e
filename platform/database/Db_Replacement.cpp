#include <database/Db_Replacement.h>

#include <algorithm>

#include <database/Db_KeyCheck.h>
#include <database/Db_Path.h>

namespace {
bool is_before(const Db_Entry& a, const Db_Entry& b) { return a.path < b.path; }
}  // namespace

const char* Db_Replacement::take(const Tmr_PtrSortedVector<Tree_NodeInfo>& records) {
  if (records.isEmpty()) return "there is no record";
  m_rows.reserve(records.entries());
  for (size_t i = 0; i < records.entries(); ++i) {
    m_rows.push_back({records[i]->PathView(), records[i]->ValueView(), 0});
  }
  if (!std::is_sorted(m_rows.begin(), m_rows.end(), is_before)) {
    std::stable_sort(m_rows.begin(), m_rows.end(), is_before);
  }
  Db_KeyCheck check(top());
  const Db_Entry* previous = nullptr;
  for (const Db_Entry& row : m_rows) {
    m_fault_path = row.path;
    if (previous && previous->path == row.path) return "it is among the records twice";
    if (const char* fault = fault_of(row)) return fault;
    switch (check.add(row.path, row.value.empty())) {
      case Db_KeyCheck::NONE:
        break;
      case Db_KeyCheck::NO_PARENT:
        return "what is above it is not among the records";
      case Db_KeyCheck::PARENT_IS_VALUE:
        m_is_below_value = true;
        return "what is above it is a value";
    }
    previous = &row;
  }
  return nullptr;
}

const char* Db_Replacement::fault_of(const Db_Entry& row) {
  if (row.path.empty() || row.path.back() == '\\') return "it has no name";
  if (const char* fault = Db_FaultOf(row.path, row.value)) return fault;
  if (&row == m_rows.data()) {
    return Tree_Path::HasEmptyComponent(row.path) ? "a component has no name" : nullptr;
  }
  const bool is_below = row.path.size() > top().size() && row.path[top().size()] == '\\' &&
                        row.path.substr(0, top().size()) == top();
  return is_below ? nullptr : "it is not below the first record";
}

Db_Result Db_Replacement::write(Db_Store& store, int64_t& sequence) {
  if (compare(store) != Db_Result::OK) return Db_Result::FAILED;
  if (!m_is_new) return write_differences(store, sequence);
  for (Db_Entry& row : m_rows) row.sequence = ++sequence;
  return store.put_new(m_rows.data(), m_rows.size());
}

Db_Result Db_Replacement::compare(Db_Store& store) {
  std::string value;
  Db_Result result = store.get(top(), value);
  if (result == Db_Result::FAILED) return result;
  if (result == Db_Result::NOT_FOUND) return Db_Result::OK;
  compare_with({top(), value, 0});
  const Db_Range range(top());
  const auto cursor = store.range(range.from, range.to, 0, false);
  if (!cursor) return Db_Result::FAILED;
  Db_Entry stored;
  while ((result = cursor->next(stored)) == Db_Result::OK) compare_with(stored);
  while (m_next < m_rows.size()) m_put.push_back(m_rows[m_next++]);
  return result == Db_Result::NOT_FOUND ? Db_Result::OK : result;
}

void Db_Replacement::compare_with(const Db_Entry& stored) {
  m_is_new = false;
  while (m_next < m_rows.size() && m_rows[m_next].path < stored.path) {
    m_put.push_back(m_rows[m_next++]);
  }
  if (m_next == m_rows.size() || m_rows[m_next].path != stored.path) {
    m_gone.emplace_back(stored.path);
    return;
  }
  if (m_rows[m_next].value != stored.value) m_put.push_back(m_rows[m_next]);
  ++m_next;
}

Db_Result Db_Replacement::write_differences(Db_Store& store, int64_t& sequence) {
  std::vector<Db_Entry> gone;
  gone.reserve(m_gone.size());
  for (const std::string& path : m_gone) gone.push_back({path, "", ++sequence});
  for (Db_Entry& row : m_put) row.sequence = ++sequence;
  if (store.erase(gone.data(), gone.size()) != Db_Result::OK) return Db_Result::FAILED;
  return store.put(m_put.data(), m_put.size());
}
