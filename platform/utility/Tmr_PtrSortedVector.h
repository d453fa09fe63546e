// A vector of record pointers kept in the records' own order.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <vector>

// Owns its records. Records are appended as they come and put in order by one stable
// sort, so records that compare equal keep the order in which they came; nothing is
// moved when they came in order already. One thread at a time.
template <class T>
class Tmr_PtrSortedVector {
 public:
  Tmr_PtrSortedVector() = default;
  explicit Tmr_PtrSortedVector(size_t room) { m_records.reserve(room); }

  // Takes ownership of the record.
  void append(T* record) { append(std::unique_ptr<T>(record)); }
  void append(std::unique_ptr<T> record) { m_records.push_back(std::move(record)); }
  // Takes ownership and puts the record behind those that are not greater.
  void insert(T* record) {
    std::unique_ptr<T> owned(record);
    const auto at = std::upper_bound(m_records.begin(), m_records.end(), owned, before);
    m_records.insert(at, std::move(owned));
  }
  void sort() {
    if (!std::is_sorted(m_records.begin(), m_records.end(), before)) {
      std::stable_sort(m_records.begin(), m_records.end(), before);
    }
  }

  // Makes room for that many records in all.
  void reserve(size_t records) { m_records.reserve(records); }
  size_t entries() const { return m_records.size(); }
  bool isEmpty() const { return m_records.empty(); }
  T* operator[](size_t i) const { return m_records[i].get(); }
  T* last() const { return m_records.empty() ? nullptr : m_records.back().get(); }
  void clear() { m_records.clear(); }

 private:
  static bool before(const std::unique_ptr<T>& a, const std::unique_ptr<T>& b) { return *a < *b; }

  std::vector<std::unique_ptr<T>> m_records;
};
