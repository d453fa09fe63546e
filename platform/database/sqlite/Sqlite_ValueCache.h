// Values that were read before.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <database/Db_Store.h>
#include <database/sqlite/Sqlite_LogState.h>

// What single reads of one connection answered, each with the state of the database in which it
// was true; a value of another state is no answer. Takes in what is asked for again soon, so that
// who goes through all values does not pay for it. Small values only, and a few megabytes of them.
class Sqlite_ValueCache {
 public:
  void attach(sqlite3* handle) { m_log.attach(handle); }

  // Notes the state that a read is about to see. Then the answer: OK, NOT_FOUND, or FAILED when it
  // has to be read.
  Db_Result find(std::string_view path, std::string& value);
  // What was read after find: kept when nothing was committed in between.
  void keep(std::string_view path, Db_Result result, std::string_view value);

 private:
  struct Entry {
    uint64_t number;  // of the state
    Db_Result result;
    std::string value;
  };
  struct Hash : std::hash<std::string_view> {
    using is_transparent = void;
  };

  bool was_asked_before(std::string_view path);

  Sqlite_LogState m_log;
  Sqlite_LogState::State m_state{};
  uint64_t m_number = 0;  // of m_state: they are counted
  bool m_is_known = false;
  std::unordered_map<std::string, Entry, Hash, std::equal_to<>> m_entries;
  size_t m_bytes = 0;
  std::vector<uint32_t> m_asked;  // marks of paths that were not found, each in a place of its own
};
