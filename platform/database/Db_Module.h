// From a connection string to a store.
#pragma once

#include <memory>
#include <string>

#include <database/Db_Store.h>

// Opens the store that a connection string names: `sqlite:FILE`, or PostgreSQL's. Loads its
// module on first use, which then stays: from the folder that HALVORIA_MODULES names, or from
// beside or near the library or program that holds this code. Null with the reason on failure.
// Any thread.
std::unique_ptr<Db_Store> Db_Open(const std::string& connection, const std::string& user,
                                  std::string& reason);
