// A counted pointer to a node, for those who pass nodes on without looking into them.
#pragma once

#include <thread/ThreadAPI_AutoPtrThreadSafe.h>

// Who makes, copies or follows such a pointer includes <tree/Tree_Node.h>.
class Tree_Node;
using Tree_NodePtr = ThreadAPI_AutoPtrThreadSafe<Tree_Node>;
