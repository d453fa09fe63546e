#include <tree/Tree_Node.h>

#include <memory>
#include <new>
#include <utility>

#include <tree/Tree_Memory.h>
#include <tree/Tree_Node_Top.h>
#include <tree/Tree_Walk.h>

const Tree_NodePtr Tree_Node::NULL_TREE_NODE_PTR;
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
    : Tree_Node(name.view, std::unique_ptr<Tree_Value>(value)) {}

Tree_Node::Tree_Node(std::string_view name, std::unique_ptr<Tree_Value> value)
    : m_is_leaf(value != nullptr), m_name(name) {
  if (value) {
    new (&m_value) Tree_Value(std::move(*value));
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

// A tree goes from its leaves up, so that its parent links hold until they are used for the last
// time: as the way back from a key to its parent here, which takes neither stack nor memory, and
// as the way to its path for whatever somebody else holds. What has no children goes at once. That
// is the order in which most trees were made, which spares misses of the cache.
void Tree_Node::Destroy(Tree_Node* top) {
  if (top->m_is_leaf) {
    delete top;
    return;
  }
  if (top->GetParent()) top->SetParent(nullptr);
  top->SetNodeId(0);
  for (Tree_Node* key = top; key;) {
    if (Tree_Node* child = key->next_to_go()) {
      if (child->IsEmpty()) {
        delete child;
      } else {
        child->m_key.id = 0;
        key = child;
      }
    } else {
      Tree_Node* const gone = key;
      key = key == top ? nullptr : key->GetParent();
      delete gone;
    }
  }
}

// Takes the next child that goes with this key out of the list, NULL when there is none left. The
// id, which nobody asks for any more, is the place to go on from.
Tree_Node* Tree_Node::next_to_go() {
  if (m_is_leaf) return nullptr;
  for (;;) {
    const uint32_t place = m_key.next(static_cast<uint32_t>(m_key.id));
    if (place == Tree_ChildList::npos) return nullptr;
    m_key.id = static_cast<int>(place) + 1;
    Tree_Node* const child = m_key.at(place).get();
    if (!child->is_sole() && child->GetParent() == this) child->outlive_parent();
    m_key.at(place).detach();
    if (!child->count_down()) continue;
    if (child->GetParent() != this) child->SetParent(this);  // others let go of it meanwhile
    return child;
  }
}

// Without memory for its path the node goes on with its name.
void Tree_Node::outlive_parent() noexcept {
  std::unique_ptr<Top> record;
  try {
    RWCString path = GetParentPath();
    record = std::make_unique<Top>();
    record->virtual_parent_path = std::move(path);
    record->is_path_above_known = true;
  } catch (const std::bad_alloc&) {
  }
  const Tree_WayUp::Closed nobody_is_above;
  const uintptr_t up = record ? reinterpret_cast<uintptr_t>(record.release()) | kIsTop : 0;
  m_up.store(up, std::memory_order_release);
}

void Tree_Node::SetNodeId(int id) {
  if (!m_is_leaf) {
    m_key.id = id;
    return;
  }
  const uint32_t inverted = ~static_cast<uint32_t>(id);
  m_id_high = static_cast<uint16_t>(inverted >> 16);
  m_value.SetTag(static_cast<uint16_t>(inverted));
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
  Tree_Name new_name(name.view());
  parent->m_key.rename(place, new_name.hash());
  parent->leave_index(*this);
  m_name = std::move(new_name);
  parent->enter_index(*this);
  return 1;
}

int Tree_Node::ExchangeNames(Tree_Node& other) noexcept {
  Tree_Node* const parent = GetParent();
  if (!parent || other.GetParent() != parent || &other == this) return 0;
  parent->m_key.exchange_names(parent->place_of(this), parent->place_of(&other));
  parent->leave_index(*this);
  parent->leave_index(other);
  std::swap(m_name, other.m_name);
  parent->enter_index(*this);
  parent->enter_index(other);
  return 1;
}

RWCString Tree_Node::GetPath() const {
  const Tree_WayUp way;
  return path_up();
}

RWCString Tree_Node::GetParentPath() const {
  const Tree_WayUp way;
  const Tree_Node* parent = GetParent();
  return parent ? parent->path_up() : GetVirtualParentPath();
}

RWCString Tree_Node::GetFullPath() const {
  const Tree_WayUp way;
  RWCString path = path_up();
  const Tree_Node* top = this;
  while (const Tree_Node* parent = top->GetParent()) top = parent;
  const Top* record = top->top_record();
  if (!record || record->is_path_above_known) return path;
  const std::string_view set = record->virtual_parent_path, name = top->NameView();
  const bool is_own = set.substr(set.rfind('\\') + 1) == name;  // npos + 1 is the beginning
  return is_own && !set.empty() ? path.remove(set.size(), 1 + name.size()) : path;
}

RWCString Tree_Node::path_up() const {
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
  if (m_up.compare_exchange_strong(none, reinterpret_cast<uintptr_t>(fresh.get()) | kIsTop)) {
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
  SetVirtualParentPath(other.GetParentPath());
  if (Top* top = top_record()) top->is_path_above_known = other.IsPathAboveKnown();
}

Tree_NodePtr& Tree_Node::GetChildAt(int index) {
  const uint32_t place = m_is_leaf || index < 0
                             ? Tree_ChildList::npos
                             : m_key.select(Tree_ChildList::ANY, static_cast<uint32_t>(index));
  return place == Tree_ChildList::npos ? nothing() : m_key.at(place);
}

// Handed out by reference, so each time null again.
Tree_NodePtr& Tree_Node::nothing() {
  static thread_local Tree_NodePtr null;
  return null = nullptr;
}

static bool is_at_or_above(const Tree_Node* wanted, const Tree_Node* node) {
  const Tree_WayUp way;
  while (node && node != wanted) node = node->GetParent();
  return node != nullptr;
}

int Tree_Node::Add(const Tree_NodePtr& child) {
  if (!child || m_is_leaf || child->NameView().empty() || Child(child->NameView())) return 0;
  if (!child->IsEmpty() && is_at_or_above(child.get(), this)) return 0;
  settle(child, Tree_ChildList::npos);
  return 1;
}

int Tree_Node::Put(std::string_view path, const Tree_NodePtr& child) {
  Tree_PathWalk rest(path);
  std::string_view missing;
  Tree_Node* const key = last_on(rest, missing);
  if (!child || key->m_is_leaf || child->NameView().empty()) return 0;
  if (!child->IsEmpty() && is_at_or_above(child.get(), key)) return 0;
  if (!missing.empty()) {
    const std::pair<Tree_NodePtr, Tree_Node*> branch = new_branch(rest, missing);
    branch.second->settle(child, Tree_ChildList::npos);
    key->settle(branch.first, Tree_ChildList::npos);
    return 1;
  }
  const uint32_t there = key->m_key.find(child->m_name, 0);
  const bool is_there = there != Tree_ChildList::npos && key->m_key.at(there) == child;
  if (!is_there) key->settle(child, there);
  return 1;
}

// The last node that is there on the way along a path, whose first component without a node is
// `missing`: none when the node is where the path ends, or is a value.
Tree_Node* Tree_Node::last_on(Tree_PathWalk& rest, std::string_view& missing) {
  Tree_Node* node = this;
  while (!node->m_is_leaf && rest.Next(missing)) {
    Tree_Node* child = node->Child(missing);
    if (!child) return node;
    node = child;
  }
  missing = {};
  return node;
}

// Keys one below the other, named like the components of a path from `name` on: first and last.
std::pair<Tree_NodePtr, Tree_Node*> Tree_Node::new_branch(Tree_PathWalk& rest,
                                                          std::string_view name) {
  Tree_NodePtr first = Tree_NodePtr::First(new Tree_Node(name));
  Tree_Node* last = first.get();
  while (rest.Next(name)) {
    auto* const next = new Tree_Node(name);
    last->adopt(Tree_NodePtr::First(next));
    last = next;
  }
  return {std::move(first), last};
}

// Takes the child from where it hangs and appends it; the one at `instead`, if any, goes. The
// caller made sure that it may hang here, and that no other child has its name. Nothing has
// changed when it throws.
void Tree_Node::settle(const Tree_NodePtr& child, uint32_t instead) {
  m_key.make_room(instead);
  Tree_Node& node = *child;
  Tree_NodePtr keep(&node);  // `child` may be a reference into the list it leaves
  if (Tree_Node* before = node.GetParent()) before->Remove(keep);
  settle_in_room(std::move(keep), instead);
}

void Tree_Node::settle_in_room(Tree_NodePtr child, uint32_t instead) {
  Tree_Node& node = *child;
  node.SetParent(this);
  if (instead == Tree_ChildList::npos) {
    m_key.append(node.m_name.hash(), !node.m_is_leaf, std::move(child));
  } else {
    leave_index(*m_key.at(instead));
    const Tree_NodePtr gone =
        m_key.replace(instead, node.m_name.hash(), !node.m_is_leaf, std::move(child));
    if (gone->GetParent() == this) gone->SetParent(nullptr);
  }
  if (m_key.row() + 1 == m_key.count()) m_key.note_row(this);  // else the new one is not in the row
  enter_index(node);
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
  Tree_Node* raw = child.get();
  m_key.append(raw->m_name.hash(), !raw->m_is_leaf, std::move(child));
  m_key.note_row(this);
  raw->SetParent(this);
}

void Tree_Node::ExchangePlaces(Tree_NodePtr& a, Tree_NodePtr& b) {
  std::swap(a->m_name, b->m_name);
  std::swap(a->m_value, b->m_value);
  std::swap(a->m_id_high, b->m_id_high);
  std::swap(a, b);
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
  m_key.make_room(there);
  from.leave_index(child);
  settle_in_room(from.m_key.take(place), there);
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
  int count = 1;
  for (Tree_Walk walk(Children()); walk; walk.Next()) ++count;
  return count;
}

uint64_t Tree_Node::GetTotalSize() const {
  const auto size_of = [](const Tree_Node& node) {
    return sizeof node + (node.m_is_leaf ? node.m_value.OutsideSize() : node.m_key.memory());
  };
  uint64_t size = size_of(*this);
  for (Tree_Walk walk(Children()); walk; walk.Next()) size += size_of(**walk);
  return size;
}

Tree_Node* Tree_Node::Child(std::string_view name) const {
  if (m_is_leaf || m_key.count() == 0) return nullptr;
  const uint32_t place = m_key.find(Tree_Hash::Text(name), name);
  return place == Tree_ChildList::npos ? nullptr : m_key.at(place).get();
}

// The list of a key is one more place in memory, which in a big tree is in no cache. What stands in
// the row is found without it.
const Tree_Node* Tree_Node::ChildAt(Tree_ChildList::Kind kind, int position) const {
  if (m_is_leaf || position < 0) return nullptr;
  const uint32_t place = m_key.select(kind, static_cast<uint32_t>(position));
  if (place < m_key.row()) return this + 1 + place;
  return place == Tree_ChildList::npos ? nullptr : m_key.at(place).get();
}

Tree_NodePtr Tree_Node::GetRelativeNode(const Tree_Path& path, const Tree_NodePtr&) {
  return Find(path.GetText());
}

Tree_NodePtr Tree_Node::GetRelativeSubTree(const Tree_Path& path, const Tree_NodePtr&) {
  return Find(path.GetText());
}

Tree_NodePtr& Tree_Node::slot_of(Tree_Node* child) {
  const Tree_Node* parent = child ? child->GetParent() : nullptr;
  const uint32_t place = parent ? parent->place_of(child) : Tree_ChildList::npos;
  return place == Tree_ChildList::npos ? nothing() : parent->m_key.at(place);
}

Tree_NodePtr& Tree_Node::GetRelativeSubTreeByRef(const Tree_Path& path, Tree_NodePtr& self) {
  Tree_Node* found = Find(path.GetText());
  return found == this ? self : slot_of(found);
}

Tree_NodePtr& Tree_Node::GetRelativeSubTreeByRef(const RWCString& path, int index,
                                                 const Tree_NodePtr&) const {
  const Tree_Node* key = Find(path);
  if (!key || key->m_is_leaf || index < 0) return nothing();
  const uint32_t place = key->m_key.select(Tree_ChildList::KEYS, static_cast<uint32_t>(index));
  return place == Tree_ChildList::npos ? nothing() : key->m_key.at(place);
}

Tree_NodePtr Tree_Node::GetOrCreateRelativeNode(const Tree_Path& path, const Tree_NodePtr&) {
  Tree_PathWalk rest(path.GetText());
  std::string_view missing;
  Tree_Node* const node = last_on(rest, missing);
  if (missing.empty()) return node;
  const std::pair<Tree_NodePtr, Tree_Node*> branch = new_branch(rest, missing);
  node->settle(branch.first, Tree_ChildList::npos);
  return branch.second;
}

RWCString Tree_Node::GetValue(const RWCString& path, const Tree_NodePtr&) const {
  const Tree_Node* found = Find(path);
  return found ? found->GetText() : std::string_view();
}

// The value at a position under the key at a path, null when there is none.
static const Tree_Node* value_at(const Tree_Node& node, std::string_view path, int index) {
  const Tree_Node* key = node.Find(path);
  return key ? key->ChildAt(Tree_ChildList::VALUES, index) : nullptr;
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
  for (Tree_Walk walk(Children()); walk; walk.Next()) {
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
