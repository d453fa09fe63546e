// Merges that move or remove the nodes of a tree in place.
#pragma once

#include <strings/RWCString.h>

class Tree_Node;

namespace cfg {

// Moves the nodes below `source` over those below `destination`: a child that is not there
// yet, or whose text or kind differs, becomes the destination's; what both have stays.
// Children are taken from the last to the first. Nothing is merged below the key of the
// destination whose full path is `stop_path`, if that is not empty.
void merge_moving(Tree_Node& destination, Tree_Node& source, const RWCString& stop_path);

// Removes from `destination` and below what the leaves of `deletions` name; deletions
// without children name the destination itself. How many of the names are not there.
int remove_named(Tree_Node& destination, const Tree_Node& deletions);

}  // namespace cfg
