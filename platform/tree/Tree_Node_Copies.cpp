// Trees made from trees: copies, merges, what is changed, and flat records there and back.
#include <tree/Tree_Node.h>

#include <algorithm>
#include <memory>

#include <tree/Tree_PathBuilder.h>
#include <tree/Tree_Walk.h>

// Copies go key by key: a copied key waits on the list until its children are copied. The
// first child goes on first, so that the copy lies in memory in the order in which it is read.
void Tree_Node::copy_children(const Tree_Node& from, Tree_Node& to) {
  std::vector<std::pair<const Tree_Node*, Tree_Node*>> keys{{&from, &to}};
  while (!keys.empty()) {
    const auto [source, copy] = keys.back();
    keys.pop_back();
    const size_t waiting = keys.size();
    copy->m_key.fill_with_copies(source->m_key, [&, key = copy](const Tree_Node& child) {
      Tree_NodePtr fresh = Tree_NodePtr::First(new Tree_Node(child, nullptr));
      fresh->m_up.store(reinterpret_cast<uintptr_t>(key), std::memory_order_relaxed);
      if (!child.IsEmpty()) keys.emplace_back(&child, fresh.get());
      return fresh;
    });
    copy->m_key.note_row(copy);
    std::reverse(keys.begin() + static_cast<ptrdiff_t>(waiting), keys.end());
  }
}

// The node and everything below it, without a virtual parent path.
Tree_NodePtr Tree_Node::copy_of(const Tree_Node& node) {
  Tree_NodePtr copy = Tree_NodePtr::First(new Tree_Node(node, nullptr));
  if (!node.IsEmpty()) copy_children(node, *copy);
  return copy;
}

Tree_NodePtr Tree_Node::DuplicateFromHereDown(bool) const {
  Tree_NodePtr copy = copy_of(*this);
  copy->StandWhere(*this);
  return copy;
}

void Tree_Node::ChangeTreeNodePtrProtection(Tree_NodePtr& node, int& flag) {
  if (!node) return;
  node.SetOwning(flag);
  for (Tree_Walk walk(node.get()); walk; walk.Next()) {
    const Tree_ChildList* children = walk->Children();
    if (!children) continue;
    for (uint32_t place = children->next(0); place != Tree_ChildList::npos;
         place = children->next(place + 1)) {
      children->at(place).SetOwning(flag);
    }
  }
}

static Tree_NodePtr duplicate(const Tree_NodePtr& node) {
  return node ? node->DuplicateFromHereDown(true) : Tree_NodePtr();
}

// One pass over both trees, key by key like a copy. What only the overlay has comes last.
Tree_NodePtr Tree_Node::merged(const Tree_NodePtr& base, const Tree_NodePtr& overlay, bool deep) {
  if (!base || !overlay) return duplicate(base ? base : overlay);
  if (base->m_is_leaf || overlay->m_is_leaf) {  // nothing to merge into: the overlay holds
    Tree_NodePtr copy = duplicate(overlay);
    copy->SetKeyName(base->GetKeyName());
    return copy;
  }
  struct Open {
    const Tree_Node* base;
    const Tree_Node* overlay;  // null: the base is copied as it is
    Tree_Node* to;
  };
  Tree_NodePtr top = Tree_NodePtr::First(new Tree_Node(*base, nullptr));
  std::vector<Open> keys{{base.get(), overlay.get(), top.get()}};
  std::vector<Tree_Node*> displaced;
  while (!keys.empty()) {
    const auto [from, over, to] = keys.back();
    keys.pop_back();
    if (!over) {
      copy_children(*from, *to);
      continue;
    }
    const size_t waiting = keys.size();
    uint32_t likely = 0, settled = 0;  // settled: children of the overlay that need no second look
    displaced.clear();
    to->m_key.fill_with_copies(from->m_key, [&, over = over, to = to](const Tree_Node& child) {
      const uint32_t there = over->m_key.find(child.m_name, likely);
      const bool in_both = there != Tree_ChildList::npos;
      if (in_both) likely = there + 1;
      const Tree_Node* other = in_both ? over->m_key.at(there).get() : nullptr;
      const bool both_values = other && child.m_is_leaf && other->m_is_leaf;
      const bool goes_on = other && deep && !child.m_is_leaf && !other->m_is_leaf;
      Tree_NodePtr fresh =
          Tree_NodePtr::First(new Tree_Node(both_values ? *other : child, nullptr));
      fresh->m_up.store(reinterpret_cast<uintptr_t>(to), std::memory_order_relaxed);
      settled += both_values || goes_on;
      if (goes_on || (!other && !child.IsEmpty())) {
        keys.push_back({&child, other, fresh.get()});
      } else if (other && !both_values) {
        displaced.push_back(fresh.get());
      }
      return fresh;
    });
    to->m_key.note_row(to);
    std::reverse(keys.begin() + static_cast<ptrdiff_t>(waiting), keys.end());
    for (const Tree_Node* node : displaced) to->orphan(to->place_of(node));
    if (settled == over->m_key.count()) continue;
    likely = 0;
    for (uint32_t place = over->m_key.next(0); place != Tree_ChildList::npos;
         place = over->m_key.next(place + 1)) {
      const Tree_Node& child = *over->m_key.at(place);
      const uint32_t there = to->m_key.find(child.m_name, likely);
      if (there == Tree_ChildList::npos) {
        to->adopt(copy_of(child));
      } else {
        likely = there + 1;
      }
    }
  }
  top->StandWhere(*base);
  return top;
}

Tree_NodePtr Tree_Node::Merge(const Tree_NodePtr& base, const Tree_NodePtr& overlay) {
  return merged(base, overlay, true);
}

Tree_NodePtr Tree_Node::MergeOneLevel(const Tree_NodePtr& base, const Tree_NodePtr& overlay) {
  return merged(base, overlay, false);
}

// The copies of the keys on the way are made when the first changed value is met.
Tree_NodePtr Tree_Node::GetChangesTreeNode(const Tree_NodePtr& node) {
  if (!node) return nullptr;
  if (node->m_is_leaf)
    return node->m_value.IsChange() ? node->DuplicateFromHereDown(true) : Tree_NodePtr();
  Tree_NodePtr changes;
  std::vector<Tree_Node*> originals, copies;  // the way down to the current node
  for (Tree_Walk walk(node.get()); walk; walk.Next()) {
    originals.resize(walk.Depth());
    if (copies.size() > walk.Depth()) copies.resize(walk.Depth());
    if (!walk->m_is_leaf) {
      originals.push_back(*walk);
      continue;
    }
    if (!walk->m_value.IsChange()) continue;
    while (copies.size() < originals.size()) {
      auto* copy = new Tree_Node(*originals[copies.size()], nullptr);
      if (copies.empty()) {
        changes = copy;
      } else {
        copies.back()->adopt(copy);
      }
      copies.push_back(copy);
    }
    copies.back()->adopt(Tree_NodePtr::First(new Tree_Node(**walk, nullptr)));
  }
  if (changes) changes->StandWhere(*node);
  return changes;
}

// Keys in tree order, then from the last back to the first: children before parents.
bool Tree_Node::RemoveEmptyBranches() {
  drop_index();
  std::vector<Tree_Node*> keys;
  for (Tree_Walk walk(this); walk; walk.Next()) {
    if (!walk->m_is_leaf) keys.push_back(*walk);
  }
  bool removed = false;
  for (auto key = keys.rbegin(); key != keys.rend(); ++key) {
    removed |= (*key)->m_key.remove_if([](Tree_Node& child) {
      if (child.m_is_leaf || !child.IsEmpty()) return false;
      child.SetParent(nullptr);
      return true;
    });
  }
  return removed;
}

static std::vector<std::unique_ptr<Tree_NodeInfo>> records_of(const Tree_NodePtr& node,
                                                              const RWCString& path) {
  std::vector<std::unique_ptr<Tree_NodeInfo>> records;
  for (Tree_PathsWalk walk(node.get(), path); walk; walk.Next()) {
    const Tree_Value* value = walk->GetTreeValue();
    records.push_back(std::make_unique<Tree_NodeInfo>(
        RWCString(walk.Path()), RWCString(walk->GetText()), value ? value->IsChange() : 0));
  }
  return records;
}

void Tree_Node::ConvertTreeNodeToVec(const Tree_NodePtr& node, const RWCString& path,
                                     Tmr_PtrSortedVector<Tree_NodeInfo>* records) {
  auto fresh = records_of(node, path);
  records->reserve(records->entries() + fresh.size());
  for (auto& record : fresh) records->append(std::move(record));
  records->sort();
}

void Tree_Node::ConvertTreeToSimpleVec(const Tree_NodePtr& node, const RWCString& path,
                                       std::vector<Tree_NodeInfo*>* records) {
  auto fresh = records_of(node, path);
  records->reserve(records->size() + fresh.size());
  for (auto& record : fresh) records->push_back(record.release());
}

Tree_NodePtr Tree_Node::BuildSubTree(const Tmr_PtrSortedVector<Tree_NodeInfo>* records,
                                     const RWCString& root_path) const {
  if (!records) return nullptr;
  const size_t cut = root_path.last('\\');
  Tree_NodePtr top = new Tree_Node(root_path.view().substr(cut == RWCString::npos ? 0 : cut + 1));
  top->SetVirtualParentPath(root_path);
  Tree_PathBuilder builder(top);
  for (size_t i = 0; i < records->entries(); ++i) {
    const Tree_NodeInfo& record = *(*records)[i];
    const std::string_view path = record.PathView();
    if (path.empty()) continue;  // the top
    if (builder.Add(path, record.ValueView(), record.IsChange()) != Tree_PathBuilder::PLACED)
      return nullptr;
  }
  return top;
}
