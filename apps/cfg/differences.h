// What tells two trees apart.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "output.h"

class Tree_Node;

namespace cli {

// A node that only one side has, with everything below it, or a value with two texts. A
// key on one side and a value of the same name on the other are two differences.
struct Difference {
  Tree_Node* left;   // null: added
  Tree_Node* right;  // null: removed
};

// From what `left` holds to what `right` holds, in the order of the left tree, what was
// added at a key last. The names of the two keys themselves and the order of siblings are
// not compared. Both trees must outlive the result; either may be null, which is a tree of
// nothing.
std::vector<Difference> find_differences(Tree_Node* left, Tree_Node* right);

struct Counts {
  size_t keys = 0;
  size_t values = 0;
};
// Of the nodes below `node`, itself not counted.
Counts count_below(const Tree_Node* node);
std::string counts_text(const Counts& counts);  // "1 key, 2 values"

struct ChangeCounts {
  size_t added = 0, changed = 0, removed = 0;  // keys and values
};
ChangeCounts count_changes(const std::vector<Difference>& differences);
std::string changes_text(const ChangeCounts& counts);  // "1 added, 2 changed, 0 removed"

// One line a key or value: "- path = text" was on the left, "+ path = text" is on the right.
void print_differences(Output& out, const std::vector<Difference>& differences);
// The same as elements {"change", "path", "old", "new"}; keys have no text. Paths leave out
// the first `skipped` bytes of the paths on their side.
void print_differences(JsonRows& rows, const std::vector<Difference>& differences,
                       size_t left_skipped, size_t right_skipped);

}  // namespace cli
