// The index of a tree's paths: when it is made, and how it follows the changes of the tree.
#include <new>

#include <tree/Tree_Node_Top.h>
#include <tree/Tree_Walk.h>

static constexpr int kDeep = 3;             // levels from which an index is worth having
static constexpr uint32_t kFewWalks = 256;  // lookups before an index is thought of

Tree_Node* Tree_Node::Find(std::string_view path) { return found_from(*this, path); }
const Tree_Node* Tree_Node::Find(std::string_view path) const { return found_from(*this, path); }

template <class Node>
Node* Tree_Node::found_from(Node& node, std::string_view path) {
  const Top* top = node.top_record();
  const Tree_PathIndex* index = top ? top->index.load(std::memory_order_acquire) : nullptr;
  if (!index) return walked_from(node, path);
  Tree_Node* found = index->Find(path);
  return found || !Tree_Path::HasEmptyComponent(path) ? found : walked_from(node, path);
}

template <class Node>
Node* Tree_Node::walked_from(Node& from, std::string_view path) {
  const uint64_t seed = Tree_Hash::Seed();
  Node* node = &from;
  std::string_view name;
  int levels = 0;
  for (Tree_PathWalk rest(path); rest.Next(name); ++levels) {
    if (node->m_is_leaf) return nullptr;
    const uint32_t place = node->m_key.find(Tree_Hash::Text(name, seed), name);
    if (place == Tree_ChildList::npos) return nullptr;
    node = node->m_key.at(place).get();
  }
  if (levels >= kDeep && !from.GetParent()) from.count_walk();
  return node;
}

// Indexing a node costs about as much as an eighth of a walk saves, so an index is built
// once the tree was asked for an eighth as many paths as it has nodes. The nodes are
// counted at powers of two only, and no further than needed.
void Tree_Node::count_walk() const noexcept try {
  Top& top = need_top_record();
  if (top.index.load(std::memory_order_relaxed)) return;
  const uint32_t walks = top.walks.fetch_add(1, std::memory_order_relaxed) + 1;
  if (walks < kFewWalks || (walks & (walks - 1)) != 0) return;
  const std::unique_lock lock(top.index_mutex, std::try_to_lock);
  if (!lock || top.index.load(std::memory_order_relaxed)) return;
  uint64_t nodes = 1;
  for (Tree_Walk walk(Children()); walk; walk.Next()) {
    if (++nodes > uint64_t{walks} * 8) return;
  }
  top.index.store(new Tree_PathIndex(*this), std::memory_order_release);
} catch (const std::bad_alloc&) {
  // A lookup goes without an index.
}

// The record of the top of this node's tree when it has an index, else null. On a way up.
Tree_Node::Top* Tree_Node::indexed_top() const {
  const Tree_Node* top = this;
  while (const Tree_Node* parent = top->GetParent()) top = parent;
  Top* record = top->top_record();
  return record && record->index.load(std::memory_order_relaxed) ? record : nullptr;
}

void Tree_Node::drop_index(Top& top) noexcept {
  delete top.index.exchange(nullptr);
  top.walks = 0;
}

void Tree_Node::drop_index() const noexcept {
  if (!Tree_PathIndex::IsAnyAlive()) return;
  const Tree_WayUp way;
  if (Top* top = indexed_top()) drop_index(*top);
}

// A child that comes or goes with many nodes below it would take an entry for each of them:
// then the index goes instead, and the next readers make a new one. So it does when there is no
// memory to follow: what it does not hold would not be found. Keys one below the other, as they
// come with a value that is set on a new path, are entered.
void Tree_Node::enter_index(Tree_Node& child) const noexcept {
  if (!Tree_PathIndex::IsAnyAlive()) return;
  const Tree_WayUp way;
  Top* top = indexed_top();
  if (!top) return;
  try {
    Tree_PathIndex& index = *top->index.load();
    Tree_PathIndex::Way path(child);
    Tree_Node* node = &child;
    index.Insert(path.Hash(), node);
    while (node->GetChildCount() == 1) {
      node = node->m_key.at(node->m_key.next(0)).get();
      path.Append(node->NameView());
      index.Insert(path.Hash(), node);
    }
    if (node->IsEmpty()) return;
  } catch (const std::bad_alloc&) {
  }
  drop_index(*top);
}

void Tree_Node::leave_index(const Tree_Node& child) const noexcept {
  if (!Tree_PathIndex::IsAnyAlive()) return;
  const Tree_WayUp way;
  Top* top = indexed_top();
  if (!top) return;
  try {
    if (child.IsEmpty()) {
      top->index.load()->Erase(Tree_PathIndex::Way(child).Hash(), &child);
      return;
    }
  } catch (const std::bad_alloc&) {
  }
  drop_index(*top);
}
