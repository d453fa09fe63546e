// Reading a tree record by record.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <database/Db_Pattern.h>
#include <database/Db_Store.h>

// The records of one tree query, parents before their children, read as they are asked for. A
// failure ends the records and is told by is_failed. One thread at a time; the store must live
// on, and lives on with other reads and changes meanwhile.
class Db_TreeQuery {
 public:
  struct Asked {
    std::string path;
    bool wildcard = false;
    int64_t above_sequence = 0;
    bool deleted = false;  // the entries deleted after the number
  };

  Db_TreeQuery(Db_Store& store, const Asked& asked);

  bool next(std::string_view& path, std::string_view& value);
  // Whether a key is at the path; of everything, a wildcard, a number or of deleted entries,
  // whether there is a record.
  bool has_tree();
  bool is_failed() const { return m_is_failed; }
  const std::string& top() const { return m_top; }

 private:
  bool read_ahead(Db_Entry& entry);
  bool read(Db_Entry& entry);
  bool read_match(Db_Entry& entry);
  bool next_match();
  void look_ahead();
  bool is_empty_key();
  bool is_selected(std::string_view path) const;
  bool open(std::string_view path);
  bool fail() {
    m_is_failed = true;
    return false;
  }

  Db_Store& m_store;
  const Asked m_asked;
  std::string m_top;
  std::unique_ptr<Db_OneState> m_state;  // of a wildcard, which takes several reads
  std::unique_ptr<Db_Cursor> m_cursor;
  bool m_is_failed = false;

  // The record that has_tree has read.
  bool m_is_ahead = false, m_has_ahead = false;
  std::string m_ahead_path, m_ahead_value;

  // Of a wildcard: the match at hand and the keys on the way to it that are still to come.
  std::unique_ptr<Db_PatternWalk> m_walk;
  std::string m_match, m_value, m_previous;
  size_t m_shown = 0;  // bytes of the match whose keys were records already
  bool m_is_in_match = false;
};
