// From below upwards: when a key with everything beneath it is too long, its largest branches are
// cut off, one by one, until the rest fits. Each was made to fit before.
#include <CFG/remote/tree_parts.h>

#include <algorithm>
#include <unordered_set>

#include <CFG/detail/paths.h>
#include <tree/Tree_Walk.h>

namespace cfg {

namespace {

constexpr uint64_t kIntegers = 4 * sizeof(int32_t);  // of a record

using CutBranches = std::unordered_set<const Tree_Node*>;

uint64_t record_size(const Tree_Node& node) {
  const uint64_t value = node.IsLeaf() ? node.GetText().size() + sizeof(int32_t) : 0;
  return kIntegers + node.NameView().size() + value;
}

struct Branch {
  Tree_Node* top;
  uint64_t size;  // of what is left of it
};

// A key whose children are gone through.
struct OpenKey {
  Tree_Node* key;
  uint64_t size;  // so far
  uint32_t next = 0;
  std::vector<Branch> branches;
};

// Cuts until the key fits.
void cut_branches(OpenKey& open, uint64_t limit, std::vector<Tree_Node*>& cuts) {
  std::sort(open.branches.begin(), open.branches.end(),
            [](const Branch& a, const Branch& b) { return a.size < b.size; });
  while (open.size > limit && !open.branches.empty()) {
    cuts.push_back(open.branches.back().top);
    open.size -= open.branches.back().size;
    open.branches.pop_back();
  }
}

// The tops of the branches to be cut off, deeper ones before those that they hang under.
std::vector<Tree_Node*> branches_to_cut(Tree_Node& tree, uint64_t limit) {
  std::vector<Tree_Node*> cuts;
  std::vector<OpenKey> way;
  way.push_back({&tree, record_size(tree), 0, {}});
  for (;;) {
    OpenKey& open = way.back();
    const uint32_t place = open.key->Children()->next(open.next);
    if (place != Tree_ChildList::npos) {
      Tree_Node* const child = open.key->Children()->at(place).get();
      open.next = place + 1;
      if (child->IsLeaf()) {
        open.size += record_size(*child);
      } else {
        way.push_back({child, record_size(*child), 0, {}});
      }
      continue;
    }
    if (open.size > limit) cut_branches(open, limit, cuts);
    const Branch done{open.key, open.size};
    way.pop_back();
    if (way.empty()) return cuts;
    way.back().size += done.size;
    way.back().branches.push_back(done);
  }
}

Tree_NodePtr copy_without(Tree_Node& top, const CutBranches& cut) {
  Tree_NodePtr copy(new Tree_Node(top.NameView()));
  std::vector<std::pair<Tree_Node*, Tree_Node*>> keys{{&top, copy.get()}};  // and their copies
  while (!keys.empty()) {
    const auto [from, to] = keys.back();
    keys.pop_back();
    const Tree_ChildList& children = *from->Children();
    for (uint32_t place = children.next(0); place != Tree_ChildList::npos;
         place = children.next(place + 1)) {
      Tree_Node& child = *children.at(place);
      if (child.IsLeaf()) {
        to->AddValue(child.NameView(), child.GetText(), child.GetTreeValue()->IsChange());
      } else if (!cut.count(&child)) {
        keys.emplace_back(&child, to->AddKey(child.NameView()));
      }
    }
  }
  return copy;
}

// The path of the key that holds a node of the tree, which hangs under `path`.
RWCString path_above(const Tree_Node& node, const Tree_Node& tree, const RWCString& path) {
  std::vector<const Tree_Node*> way;
  for (const Tree_Node* at = &node; at != &tree; at = at->GetParent()) way.push_back(at);
  if (way.empty()) return path;
  RWCString above = join(path, tree.NameView());
  for (size_t i = way.size() - 1; i > 0; --i) (above += '\\') += way[i]->NameView();
  return above;
}

}  // namespace

uint64_t byte_array_size(const Tree_Node& tree) {
  uint64_t size = record_size(tree);
  for (Tree_Walk walk(tree.Children()); walk; walk.Next()) size += record_size(**walk);
  return size;
}

std::vector<tree_part> tree_parts(const Tree_NodePtr& tree, const RWCString& path, uint64_t limit) {
  if (!tree || tree->IsLeaf()) return {{tree, path}};
  std::vector<Tree_Node*> tops = branches_to_cut(*tree, limit);
  if (tops.empty()) return {{tree, path}};

  const CutBranches cut(tops.begin(), tops.end());
  // A branch keeps nodes that were cut off from it only if one of them hangs under it.
  CutBranches incomplete;
  for (const Tree_Node* top : tops) {
    for (const Tree_Node* at = top; at != tree.get();) {
      at = at->GetParent();
      if (at != tree.get() && !cut.count(at)) continue;
      incomplete.insert(at);
      break;
    }
  }
  tops.push_back(tree.get());
  std::vector<tree_part> parts;
  for (auto top = tops.rbegin(); top != tops.rend(); ++top) {
    Tree_Node& node = **top;
    parts.push_back({incomplete.count(&node) ? copy_without(node, cut) : Tree_NodePtr(&node),
                     path_above(node, *tree, path)});
  }
  return parts;
}

}  // namespace cfg
