// Which state of the database a read would see now.
#pragma once

#include <sqlite3.h>

#include <array>
#include <cstdint>

// Looks at the beginning of the index of the write-ahead log, which all connections to the file
// share in memory and which every commit of any process changes as its last step, before it is
// acknowledged (the format is fixed: https://sqlite.org/walformat.html). Two equal states mean
// that nothing was committed in between; no call of the system is needed to see that.
//
// Belongs to one connection, which must be open as long as this is used. One thread at a time.
class Sqlite_LogState {
 public:
  // A count of commits, two sums over the frames, the log's random salt, and more.
  using State = std::array<uint32_t, 12>;

  // Of a connection that has read from its log. Without effect where the index is not shared.
  void attach(sqlite3* handle);
  // False when it is not to be known: the index is not there, or is being changed just now.
  bool read(State& state) const;

 private:
  const volatile uint32_t* m_index = nullptr;
};
