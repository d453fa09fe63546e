// The index of a tree's paths: when it is made, and how it follows the changes of the tree.
#include <memory>

#include <tree/Tree_Node_Top.h>
#include <tree/Tree_Walk.h>

static constexpr int kDeep = 3;             // levels from which an index is worth having
static constexpr uint32_t kFewWalks = 256;  // lookups before an index is thought of

Tree_Node* Tree_Node::Find(std::string_view path) const {
  const Top* top = top_record();
  const Tree_PathIndex* index = top ? top->index.load(std::memory_order_acquire) : nullptr;
  if (!index) return walk(path);
  Tree_Node* found = index->Find(path);
  return found || !Tree_Path::HasEmptyComponent(path) ? found : walk(path);
}

Tree_Node* Tree_Node::walk(std::string_view path) const {
  const uint64_t seed = Tree_Hash::Seed();
  auto* node = const_cast<Tree_Node*>(this);
  std::string_view name;
  int levels = 0;
  for (Tree_PathWalk rest(path); rest.Next(name); ++levels) {
    if (node->m_is_leaf) return nullptr;
    const uint32_t place = node->m_key.find(Tree_Hash::Text(name, seed), name);
    if (place == Tree_ChildList::npos) return nullptr;
    node = node->m_key.at(place).get();
  }
  if (levels >= kDeep && !GetParent()) count_walk();
  return node;
}

// Indexing a node costs about as much as an eighth of a walk saves, so an index is built
// once the tree was asked for an eighth as many paths as it has nodes. The nodes are
// counted at powers of two only, and no further than needed.
void Tree_Node::count_walk() const {
  Top& top = need_top_record();
  if (top.index.load(std::memory_order_relaxed)) return;
  const uint32_t walks = top.walks.fetch_add(1, std::memory_order_relaxed) + 1;
  if (walks < kFewWalks || (walks & (walks - 1)) != 0) return;
  const std::unique_lock lock(top.index_mutex, std::try_to_lock);
  if (!lock || top.index.load(std::memory_order_relaxed)) return;
  uint64_t nodes = 0;
  for (Tree_Walk walk(const_cast<Tree_Node*>(this)); walk; walk.Next()) {
    if (++nodes > uint64_t{walks} * 8) return;
  }
  top.index.store(new Tree_PathIndex(*this), std::memory_order_release);
}

// The record of the top of this node's tree when it has an index, else null.
Tree_Node::Top* Tree_Node::indexed_top() const {
  if (!Tree_PathIndex::IsAnyAlive()) return nullptr;
  const Tree_Node* top = this;
  while (const Tree_Node* parent = top->GetParent()) top = parent;
  Top* record = top->top_record();
  return record && record->index.load(std::memory_order_relaxed) ? record : nullptr;
}

void Tree_Node::drop_index() const {
  Top* top = indexed_top();
  if (!top) return;
  delete top->index.exchange(nullptr);
  top->walks = 0;
}

// A child that comes or goes with nodes below it would take an entry for each of them:
// then the index goes instead, and the next readers make a new one.
void Tree_Node::enter_index(Tree_Node& child) const {
  Top* top = indexed_top();
  if (!top) return;
  if (!child.IsEmpty()) return drop_index();
  top->index.load()->Insert(Tree_PathIndex::Way(child).Hash(), &child);
}

void Tree_Node::leave_index(const Tree_Node& child) const {
  Top* top = indexed_top();
  if (!top) return;
  if (!child.IsEmpty()) return drop_index();
  top->index.load()->Erase(Tree_PathIndex::Way(child).Hash(), &child);
}
