// What a client of the datagrid needs from a module that speaks to one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct Grid_Address {
  std::string host;
  int port = 0;
  std::string user;
  std::string password;
  int wait = 1000;  // milliseconds, for a connection and for each answer
};

struct Grid_Answer {
  enum Kind : uint8_t { NOTHING, TEXT, NUMBER, TEXTS, REFUSAL };  // what the grid refuses, with why

  Kind kind = NOTHING;
  std::string text;
  int64_t number = 0;
  std::vector<std::optional<std::string>> texts;  // of a list, without what is no text
};

// One connection. Waits as long as its address says for each answer, however that comes. After a
// failure it is closed for good. One thread at a time; nothing throws but for want of memory.
class Grid_Store {
 public:
  using Words = std::vector<std::string_view>;
  static constexpr size_t MOST_TEXTS = 8;  // of a list

  virtual ~Grid_Store() = default;
  virtual bool is_open() const = 0;
  // False when there is no answer, when it has another form than those above, or more bytes than
  // it may.
  virtual bool ask(const Words& words, size_t most_bytes, Grid_Answer& answer) = 0;
  // Why the last question failed, or was refused.
  virtual const std::string& error() const = 0;
  virtual std::string peer() const = 0;  // the host's address, which needs no resolving
};

// The one function of a module, under the name GRID_OPEN_STORE: a new connection, which the caller
// deletes; null with the reason.
using Grid_OpenStore = Grid_Store* (*)(const Grid_Address& address, std::string& reason);
constexpr char GRID_OPEN_STORE[] = "halvoria_grid_open_store";
