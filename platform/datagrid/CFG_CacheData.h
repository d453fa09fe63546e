// What the datagrid has at a path.
#pragma once

#include <strings/RWCString.h>

struct CFG_CacheData {
  bool exists = false;
  bool is_subtree = false;
  RWCString value;  // of a value
};
