// Flat (value, path) records of fixed size.
#pragma once

#include <memory>

#include <strings/Export.h>
#include <strings/RWCString.h>

// One record. It has room for 3071 bytes of value and 599 bytes of path; longer texts
// are cut there, never inside a UTF-8 character. Both are NUL-terminated.
class HALVORIA_API Tree_ValueAndPath {
 public:
  static constexpr size_t kValueRoom = 3072;
  static constexpr size_t kPathRoom = 600;

  Tree_ValueAndPath() { m_value[0] = m_path[0] = '\0'; }
  Tree_ValueAndPath(const char* path, const char* value);
  Tree_ValueAndPath(const RWCString& path, const RWCString& value);

  void SetPath(const char* path);
  void SetValue(const char* value);
  const char* GetPath() const { return m_path; }
  const char* GetValue() const { return m_value; }

  char m_value[kValueRoom];
  char m_path[kPathRoom];
};

// A counted array of records, owned.
class HALVORIA_API Tree_PathAndValueArray {
 public:
  explicit Tree_PathAndValueArray(int count);

  // Out of range: nothing happens.
  void SetPV(int index, const char* path, const char* value);
  void SetPV(int index, const RWCString& path, const RWCString& value);
  // The record, owned by the array; NULL out of range.
  Tree_ValueAndPath* GetPV(int index);

  int m_count;

 private:
  std::unique_ptr<Tree_ValueAndPath[]> m_records;
};
