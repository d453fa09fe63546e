// Connections to the datagrid.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <datagrid/Grid_Store.h>

// Where a grid is, as a connection string says it: words NAME=VALUE between blanks, in any order; a
// value with blanks stands between single quotes, in which a backslash goes before a quote or a
// backslash.
//   host, port      of DataGridConfigurations where they are missing
//   user, password  where the grid asks for them
//   timeout         milliseconds for a connection and for each answer, 10 to 60000 [1000]
//   grid            which of several trees in one grid [cfg]; letters, digits, '_', '-', '.'
struct Grid_Place {
  Grid_Address address;
  std::string grid;

  // False with what is wrong, without any text that may be a password.
  bool read(std::string_view connection, std::string& fault);
};

// A new connection over the module for it. Null with the reason.
std::unique_ptr<Grid_Store> Grid_Open(const Grid_Address& address, std::string& reason);
