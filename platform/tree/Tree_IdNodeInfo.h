// A record of the byte-array form of a tree.
#pragma once

#include <string_view>

#include <strings/Export.h>
#include <strings/RWCString.h>

// One node while an array is read: its id, the id of its parent, its name (the path), its text
// and its is-change flag. Tree_Node_Bytes.cpp draws the array. Not locked; copies share
// nothing.
class HALVORIA_API Tree_IdNodeInfo {
 public:
  static constexpr int INVALID = -100;      // what no integer of an array may be
  static constexpr int TOP_PARENT_ID = -1;  // the parent of the top record
  static constexpr int MAX_PATH_LENGTH = 3000;

  void SetId(int id) { m_id = id; }
  void SetParentId(int id) { m_parent_id = id; }
  void SetPath(const char* bytes, int length) { m_path = text_of(bytes, length); }
  void SetPath(const RWCString& path) { m_path = path; }
  void SetValue(const char* bytes, int length) { m_value = text_of(bytes, length); }
  void SetIsChange(int is_change) { m_is_change = is_change; }
  // Drop the NUL bytes at both ends of the text that was set.
  void StripPath() { m_path = Stripped(m_path); }
  void StripValue() { m_value = Stripped(m_value); }

  int GetId() const { return m_id; }
  int GetParentId() const { return m_parent_id; }
  int IsChange() const { return m_is_change; }
  // Empty when not set; valid until the record is changed or goes.
  const char* GetPath() const { return m_path.data(); }
  const char* GetValue() const { return m_value.data(); }
  // The same with NUL bytes inside.
  std::string_view PathView() const { return m_path.view(); }
  std::string_view ValueView() const { return m_value.view(); }

  // The text without the NUL bytes at both ends; every other byte stays.
  static std::string_view Stripped(std::string_view text);

 private:
  static RWCString text_of(const char* bytes, int length);

  int m_id = -1;
  int m_parent_id = TOP_PARENT_ID;
  int m_is_change = 0;
  RWCString m_path;
  RWCString m_value;
};
