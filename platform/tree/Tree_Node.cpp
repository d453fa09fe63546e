#include <tree/Tree_Node.h>

#include <memory>
#include <new>
#include <optional>

#include <tree/Tree_Memory.h>
#include <tree/Tree_Node_Top.h>
#include <tree/Tree_Walk.h>

Tree_NodePtr Tree_Node::NULL_TREE_NODE_PTR;
int Tree_Node::TRUE_BOOL = 1;
constinit Tmr_PoolAllocator Tree_Node::m_NodesPool{sizeof(Tree_Node), 0};

// A million of these stand in memory at once.
static_assert(sizeof(void*) != 8 || sizeof(Tree_Node) == 48, "the node has grown");

Tree_Node::Tree_Node(RWCString::Text name) : m_is_leaf(false), m_name(name.view) {
  new (&m_key) Key;
}

Tree_Node::Tree_Node(RWCString::Text name, RWCString::Text text, int is_change)
    : m_is_leaf(true), m_name(name.view) {
  new (&m_value) Tree_Value(text.view, is_change);
}

Tree_Node::Tree_Node(RWCString::Text name, Tree_Value* value)
    : m_is_leaf(value != nullptr), m_name(name.view) {
  const std::unique_ptr<Tree_Value> owned(value);
  if (owned) {
    new (&m_value) Tree_Value(std::move(*owned));
  } else {
    new (&m_key) Key;
  }
}

Tree_Node::Tree_Node(const Tree_Node& other, std::nullptr_t)
    : ThreadAPI_Counted(), m_is_leaf(other.m_is_leaf), m_name(other.m_name) {
  if (m_is_leaf) {
    new (&m_value) Tree_Value(other.m_value);
  } else {
    new (&m_key) Key;
  }
}

Tree_Node::~Tree_Node() {
  SetParent(nullptr);
  if (m_is_leaf) {
    m_value.~Tree_Value();
  } else {
    m_key.~Key();
  }
}

// Keys whose last pointer goes are chained through their parent links, so that dropping
// a tree takes neither stack nor memory; what has no children goes at once. That is the order
// in which most trees were made, which spares misses of the cache. A child that somebody else
// holds becomes the top of a tree of its own, unless it hangs under another key already.
void Tree_Node::Destroy(Tree_Node* node) {
  const auto link = [](Tree_Node* from, Tree_Node* to) {
    from->m_up.store(reinterpret_cast<uintptr_t>(to), std::memory_order_relaxed);
  };
  node->SetParent(nullptr);
  for (Tree_Node* chain = node; chain;) {
    Tree_Node* gone = chain;
    chain = reinterpret_cast<Tree_Node*>(gone->m_up.load(std::memory_order_relaxed));
    link(gone, nullptr);
    Tree_Node* last = nullptr;  // of the children that went into the chain
    if (!gone->m_is_leaf) {
      Tree_ChildList& children = gone->m_key;
      Tree_Node* const behind = chain;
      for (uint32_t place = children.next(0); place != Tree_ChildList::npos;
           place = children.next(place + 1)) {
        Tree_Node* child = children.at(place).detach();
        const bool was_ours = child->GetParent() == gone;
        if (!child->count_down()) {
          if (was_ours) child->SetParent(nullptr);
        } else if (child->IsEmpty()) {
          delete child;
        } else {
          child->SetParent(nullptr);
          last ? link(last, child) : void(chain = child);
          link(child, behind);
          last = child;
        }
      }
    }
    delete gone;
  }
}

int Tree_Node::SetKeyName(const RWCString& name) {
  if (NameView() == name.view()) return 1;
  Tree_Node* parent = GetParent();
  if (parent && (name.isNull() || parent->Child(name))) return 0;
  const uint32_t place = parent ? parent->place_of(this) : Tree_ChildList::npos;
  if (place == Tree_ChildList::npos) {
    m_name = Tree_Name(name.view());
    return 1;
  }
  parent->leave_index(*this);
  m_name = Tree_Name(name.view());
  parent->m_key.rename(place, m_name.hash());
  parent->enter_index(*this);
  return 1;
}

RWCString Tree_Node::GetPath() const {
  const Tree_Node* top = this;
  size_t length = NameView().size();
  for (; top->GetParent(); top = top->GetParent())
    length += 1 + top->GetParent()->NameView().size();
  std::string path = top->GetVirtualParentPath().str();
  if (!path.empty()) path += '\\';
  path.resize(path.size() + length);
  size_t end = path.size();
  for (const Tree_Node* node = this;; node = node->GetParent()) {
    const std::string_view name = node->NameView();
    end -= name.size();
    name.copy(path.data() + end, name.size());
    if (node == top) return path;
    path[--end] = '\\';
  }
}

void Tree_Node::drop_top_record() {
  delete top_record();
  m_up.store(0, std::memory_order_relaxed);
}

// Of a node without a parent. Readers may race to make it; one of them wins.
Tree_Node::Top& Tree_Node::need_top_record() const {
  if (Top* top = top_record()) return *top;
  auto fresh = std::make_unique<Top>();
  uintptr_t none = 0;
  auto& up = const_cast<std::atomic<uintptr_t>&>(m_up);
  if (up.compare_exchange_strong(none, reinterpret_cast<uintptr_t>(fresh.get()) | kIsTop)) {
    return *fresh.release();
  }
  return *top_record();
}

RWCString Tree_Node::GetVirtualParentPath() const {
  const Top* top = top_record();
  return top ? top->virtual_parent_path : RWCString();
}

void Tree_Node::SetVirtualParentPath(const RWCString& path) {
  if (GetParent() || (path.isNull() && !top_record())) return;
  Top& top = need_top_record();
  top.virtual_parent_path = path;
  top.is_path_above_known = false;
}

void Tree_Node::SetPathAbove(const RWCString& path) {
  SetVirtualParentPath(path);
  if (Top* top = top_record()) top->is_path_above_known = true;
}

bool Tree_Node::IsPathAboveKnown() const {
  const Top* top = top_record();
  return GetParent() || (top && top->is_path_above_known);
}

void Tree_Node::StandWhere(const Tree_Node& other) {
  const RWCString path =
      other.GetParent() ? other.GetParent()->GetPath() : other.GetVirtualParentPath();
  SetVirtualParentPath(path);
  if (Top* top = top_record()) top->is_path_above_known = other.IsPathAboveKnown();
}

Tree_NodePtr& Tree_Node::GetChildAt(int index) {
  const uint32_t place = m_is_leaf || index < 0
                             ? Tree_ChildList::npos
                             : m_key.select(Tree_ChildList::ANY, static_cast<uint32_t>(index));
  return place == Tree_ChildList::npos ? NULL_TREE_NODE_PTR : m_key.at(place);
}

static bool is_at_or_above(const Tree_Node* wanted, const Tree_Node* node) {
  while (node && node != wanted) node = node->GetParent();
  return node != nullptr;
}

int Tree_Node::Add(const Tree_NodePtr& child) {
  if (!child || m_is_leaf || child->NameView().empty() || Child(child->NameView())) return 0;
  if (!child->IsEmpty() && is_at_or_above(child.get(), this)) return 0;
  Tree_Node& node = *child;
  const Tree_NodePtr keep(&node);  // `child` may be a reference into the list it leaves
  if (Tree_Node* before = node.GetParent()) before->Remove(keep);
  adopt(keep);
  enter_index(node);
  return 1;
}

Tree_Node* Tree_Node::add_new(Tree_Node* child) {
  Tree_NodePtr fresh = Tree_NodePtr::First(child);
  const std::string_view name = child->NameView();
  if (m_is_leaf || name.empty() || m_key.find(child->NameHash(), name) != Tree_ChildList::npos)
    return nullptr;
  adopt(std::move(fresh));
  enter_index(*child);
  return child;
}

void Tree_Node::AddDistinct(Tree_NodePtr child) {
  drop_index();
  adopt(std::move(child));
}

void Tree_Node::adopt(Tree_NodePtr child) {
  child->SetParent(this);
  Tree_Node* raw = child.get();
  m_key.append(raw->m_name.hash(), !raw->m_is_leaf, std::move(child));
}

Tree_Node* Tree_Node::MoveHere(Tree_Node& from, int index) {
  if (m_is_leaf || from.m_is_leaf || index < 0) return nullptr;
  const auto position = static_cast<uint32_t>(index);
  const uint32_t place = from.m_key.select(Tree_ChildList::ANY, position);
  if (place == Tree_ChildList::npos) return nullptr;
  Tree_Node& child = *from.m_key.at(place);
  const uint32_t there = m_key.find(child.m_name, position);
  Tree_Node* const present = there == Tree_ChildList::npos ? nullptr : m_key.at(there).get();
  // Callers go on with the child before this one, whose memory is in no cache in a big tree.
  if (place >= 4) __builtin_prefetch(from.m_key.at(place - 4).get());
  if (present && there >= 4) __builtin_prefetch(m_key.at(there - 4).get());
  if (present && present->GetText() == child.GetText()) return present;
  if (!child.IsEmpty() && is_at_or_above(&child, this)) return nullptr;
  if (present) {
    leave_index(*present);
    orphan(there);
  }
  from.leave_index(child);
  adopt(from.m_key.take(place));
  enter_index(child);
  return nullptr;
}

uint32_t Tree_Node::place_of(const Tree_Node* child) const {
  if (m_is_leaf || !child) return Tree_ChildList::npos;
  const uint32_t place = m_key.find(child->m_name.hash(), child->NameView());
  const bool is_it = place != Tree_ChildList::npos && m_key.at(place).get() == child;
  return is_it ? place : Tree_ChildList::npos;
}

void Tree_Node::orphan(uint32_t place) {
  const Tree_NodePtr child = m_key.take(place);
  if (child->GetParent() == this) child->SetParent(nullptr);
}

int Tree_Node::Remove(const Tree_NodePtr& child) {
  const uint32_t place = place_of(child.get());
  if (place == Tree_ChildList::npos) return 0;
  leave_index(*child);
  orphan(place);
  return 1;
}

int Tree_Node::Remove(const RWCString& name) { return Remove(Tree_NodePtr(Child(name))); }

Tree_NodePtr Tree_Node::Get(const RWCString& name, const Tree_NodePtr&) const {
  return Child(name);
}

int Tree_Node::GetNodeNum() const {
  int count = 0;
  for (Tree_Walk walk(const_cast<Tree_Node*>(this)); walk; walk.Next()) ++count;
  return count;
}

uint64_t Tree_Node::GetTotalSize() const {
  uint64_t size = 0;
  for (Tree_Walk walk(const_cast<Tree_Node*>(this)); walk; walk.Next()) {
    size += sizeof(Tree_Node);
    size += walk->m_is_leaf ? walk->m_value.OutsideSize() : walk->m_key.memory();
  }
  return size;
}

Tree_Node* Tree_Node::Child(std::string_view name) const {
  if (m_is_leaf || m_key.count() == 0) return nullptr;
  const uint32_t place = m_key.find(Tree_Hash::Text(name), name);
  return place == Tree_ChildList::npos ? nullptr : m_key.at(place).get();
}

Tree_NodePtr Tree_Node::GetRelativeNode(const Tree_Path& path, const Tree_NodePtr&) const {
  return Find(path.GetText());
}

Tree_NodePtr Tree_Node::GetRelativeSubTree(const Tree_Path& path, const Tree_NodePtr&) const {
  return Find(path.GetText());
}

Tree_NodePtr& Tree_Node::slot_of(Tree_Node* child) const {
  const Tree_Node* parent = child ? child->GetParent() : nullptr;
  const uint32_t place = parent ? parent->place_of(child) : Tree_ChildList::npos;
  return place == Tree_ChildList::npos ? NULL_TREE_NODE_PTR : parent->m_key.at(place);
}

Tree_NodePtr& Tree_Node::GetRelativeSubTreeByRef(const Tree_Path& path, Tree_NodePtr& self) const {
  Tree_Node* found = Find(path.GetText());
  return found == this ? self : slot_of(found);
}

Tree_NodePtr& Tree_Node::GetRelativeSubTreeByRef(const RWCString& path, int index,
                                                 const Tree_NodePtr&) const {
  const Tree_Node* key = Find(path);
  if (!key || key->m_is_leaf || index < 0) return NULL_TREE_NODE_PTR;
  const uint32_t place = key->m_key.select(Tree_ChildList::KEYS, static_cast<uint32_t>(index));
  return place == Tree_ChildList::npos ? NULL_TREE_NODE_PTR : key->m_key.at(place);
}

Tree_NodePtr Tree_Node::GetOrCreateRelativeNode(const Tree_Path& path, const Tree_NodePtr&) {
  Tree_Node* node = this;
  std::string_view name;
  bool is_new = false;
  Top* top = nullptr;  // found once, at the first new node: the way up may be long
  std::optional<Tree_PathIndex::Way> way;
  for (Tree_PathWalk walk(path.GetText()); !node->m_is_leaf && walk.Next(name);) {
    Tree_Node* child = is_new ? nullptr : node->Child(name);
    if (!child) {
      if (!is_new) top = node->indexed_top();
      is_new = true;
      child = new Tree_Node(name);
      node->adopt(Tree_NodePtr::First(child));
      if (top) {
        way ? way->Append(name) : void(way.emplace(*child));
        top->index.load()->Insert(way->Hash(), child);
      }
    }
    node = child;
  }
  return node;
}

RWCString Tree_Node::GetValue(const RWCString& path, const Tree_NodePtr&) const {
  const Tree_Node* found = Find(path);
  return found ? found->GetText() : std::string_view();
}

// The value at a position under the key at a path, null when there is none.
static const Tree_Node* value_at(const Tree_Node& node, std::string_view path, int index) {
  const Tree_Node* key = node.Find(path);
  const Tree_ChildList* children = key ? key->Children() : nullptr;
  if (!children || index < 0) return nullptr;
  const uint32_t place = children->select(Tree_ChildList::VALUES, static_cast<uint32_t>(index));
  return place == Tree_ChildList::npos ? nullptr : children->at(place).get();
}

RWCString Tree_Node::GetValue(const RWCString& path, int index, const Tree_NodePtr&) const {
  const Tree_Node* value = value_at(*this, path, index);
  return value ? value->GetText() : std::string_view();
}

RWCString Tree_Node::GetValueName(const RWCString& path, int index, const Tree_NodePtr&) const {
  const Tree_Node* value = value_at(*this, path, index);
  return value ? value->NameView() : std::string_view();
}

static int child_count(const Tree_Node* key, Tree_ChildList::Kind kind) {
  const Tree_ChildList* children = key ? key->Children() : nullptr;
  return children ? static_cast<int>(children->count(kind)) : 0;
}

int Tree_Node::GetValueNum(const RWCString& path, const Tree_NodePtr&) const {
  return child_count(Find(path), Tree_ChildList::VALUES);
}

int Tree_Node::GetSubTreeNum(const RWCString& path, const Tree_NodePtr&) const {
  return child_count(Find(path), Tree_ChildList::KEYS);
}

int Tree_Node::GetSubTreeEntriesCount(const RWCString& path, const Tree_NodePtr&) const {
  const Tree_Node* key = Find(path);
  return key ? key->GetNodeNum() - 1 : 0;
}

String_Arr* Tree_Node::GetSubTreePaths(const RWCString& path, const Tree_NodePtr&) const {
  const Tree_Node* key = Find(path);
  const Tree_ChildList* children = key ? key->Children() : nullptr;
  if (!children) return nullptr;
  auto names =
      std::make_unique<String_Arr>(static_cast<int>(children->count(Tree_ChildList::KEYS)));
  for (uint32_t place = children->next(0); place != Tree_ChildList::npos;
       place = children->next(place + 1)) {
    if (!children->at(place)->IsLeaf()) names->AddStr(children->at(place)->NameView());
  }
  return names.release();
}

Tree_PathAndValueArray* Tree_Node::GetSubTreeValues(const RWCString& path,
                                                    const Tree_NodePtr&) const {
  const Tree_Node* key = Find(path);
  const Tree_ChildList* children = key ? key->Children() : nullptr;
  if (!children) return nullptr;
  auto records = std::make_unique<Tree_PathAndValueArray>(
      static_cast<int>(children->count(Tree_ChildList::VALUES)));
  int index = 0;
  for (uint32_t place = children->next(0); place != Tree_ChildList::npos;
       place = children->next(place + 1)) {
    const Tree_Node& child = *children->at(place);
    if (child.IsLeaf()) records->SetPV(index++, child.GetKeyName(), RWCString(child.GetText()));
  }
  return records.release();
}

// Names are one in the process, so a node is passed over without a look at its name. A path
// is put together only for a node that was found.
String_Arr* Tree_Node::Search(const RWCString& name, const Tree_NodePtr&, int relative) const {
  auto paths = std::make_unique<String_Arr>();
  const Tree_Name wanted(name.view());
  const size_t strip = relative ? GetPath().length() + 1 : 0;
  Tree_Walk walk(const_cast<Tree_Node*>(this));
  for (walk.Next(); walk; walk.Next()) {
    if (walk->m_name == wanted) paths->AddStr(walk->GetPath().str().substr(strip));
  }
  return paths.release();
}

void Tree_Node::InitNodesPool(int count) {
  if (count > 0) m_NodesPool.Reserve(static_cast<size_t>(count));
}

void Tree_Node::CollapsePools() {
  m_NodesPool.Collapse();
  Tree_Value::m_sValuesPool.Collapse();
  Tree_Memory::Collapse();
}
