// Names as every store has them.
#pragma once

#include <tree/Tree_NodePtr.h>

namespace cfg {

// The tree with its names in lower case: the tree itself where they are, else a copy of it. Null,
// after a line in the log, where two children of a key would have one name. Null for null.
Tree_NodePtr in_lower_case(const Tree_NodePtr& tree);

}  // namespace cfg
