#include <CFG/detail/moving_merge.h>

#include <tree/Tree_Node.h>

#include <utility>
#include <vector>

namespace cfg {

// The node at or below `root` whose full path is `path`, null when there is none.
static const Tree_Node* node_of_full_path(const Tree_Node& root, const RWCString& path) {
  const RWCString root_path = root.GetPath();
  if (path.isNull() || path.view().substr(0, root_path.length()) != root_path.view())
    return nullptr;
  const Tree_Node* node = root.Find(path.view().substr(root_path.length()));
  return node && node->GetPath() == path ? node : nullptr;
}

void merge_moving(Tree_Node& destination, Tree_Node& source, const RWCString& stop_path) {
  // Nodes of the destination stay where they are, and those that come in are not merged
  // into, so the node to stop at is known from the start.
  const Tree_Node* stop = node_of_full_path(destination, stop_path);
  // Counted, as a source that lies inside the destination may be taken out of it on the way.
  std::vector<std::pair<Tree_NodePtr, Tree_NodePtr>> pairs{{&destination, &source}};
  while (!pairs.empty()) {
    const auto [to, from] = std::move(pairs.back());
    pairs.pop_back();
    if (to.get() == stop) continue;
    for (int i = from->GetChildCount() - 1; i >= 0; --i) {
      Tree_Node* same = to->MoveHere(*from, i);
      if (!same) continue;
      const Tree_NodePtr& child = from->GetChildAt(i);
      if (!child->IsEmpty()) pairs.emplace_back(same, child);
    }
  }
}

int remove_named(Tree_Node& destination, const Tree_Node& deletions) {
  int missing = 0;
  std::vector<Tree_Node*> doomed;  // goes when all of it is known, which needs no more memory
  std::vector<std::pair<Tree_Node*, const Tree_Node*>> pairs{{&destination, &deletions}};
  while (!pairs.empty()) {
    const auto [node, named] = pairs.back();
    pairs.pop_back();
    if (!node) {
      ++missing;
    } else if (named->IsEmpty()) {
      doomed.push_back(node);
    } else {
      const Tree_ChildList& children = *named->Children();
      for (uint32_t place = children.next(0); place != Tree_ChildList::npos;
           place = children.next(place + 1)) {
        const Tree_Node* child = children.at(place).get();
        pairs.emplace_back(node->Child(child->NameView()), child);
      }
    }
  }
  for (Tree_Node* node : doomed) {
    if (Tree_Node* parent = node->GetParent()) parent->Remove(Tree_NodePtr(node));
  }
  return missing;
}

}  // namespace cfg
