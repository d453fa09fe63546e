// What a client of the datagrid needs from a module that speaks to one.
#pragma once

#include <string>

struct Grid_Address {
  std::string host;
  int port = 0;
  std::string user;
  std::string password;
};

// One connection. Waits a second at most for anything. After a failure it is closed for good.
// One thread at a time; nothing throws.
class Grid_Store {
 public:
  virtual ~Grid_Store() = default;
  virtual bool is_open() const = 0;
  // True with the value when there is one.
  virtual bool get(const std::string& key, std::string& value) = 0;
  virtual bool put(const std::string& key, const std::string& value) = 0;
  // True when there was something to take away.
  virtual bool remove(const std::string& key) = 0;
  // Why the last operation failed.
  virtual const std::string& error() const = 0;
};

// The one function of a module, under the name GRID_OPEN_STORE: a new connection, which the caller
// deletes; null with the reason.
using Grid_OpenStore = Grid_Store* (*)(const Grid_Address& address, std::string& reason);
constexpr char GRID_OPEN_STORE[] = "halvoria_grid_open_store";
