// The services of a tree that is held in memory.
#pragma once

#include <CFG/CFG_ServicesImp.h>

// What a handle on a tree in memory answers beyond the services: facts about its root key.
class HALVORIA_API CFG_MemoryServices : public CFG_ServicesImp {
 public:
  virtual int IsEmpty() = 0;           // TRUE when the root key has no children
  virtual RWCString GetKeyName() = 0;  // the root key's name
  virtual RWCString GetPath() = 0;     // the root key's full path in the tree it was read from
};
