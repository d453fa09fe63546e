// Where the last record went while a tree is built from flat records.
#pragma once

#include <strings/RWCString.h>
#include <tree/Tree_NodePtr.h>

// Makes runs of records under one parent cheap; see CFG_RepositoryServicesImp::AddNodeToTree.
struct CFG_BuildTreeState {
  Tree_NodePtr parent;         // of the last record
  RWCString last_parent_path;  // of the last record
  RWCString last_path;         // of the last record
  Tree_NodePtr last_key;       // the key made last
};
