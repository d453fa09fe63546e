// The node of the configuration tree.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include <strings/Export.h>
#include <strings/RWCString.h>
#include <thread/ThreadAPI_AutoPtrThreadSafe.h>
#include <tree/String_Arr.h>
#include <tree/Tree_ChildList.h>
#include <tree/Tree_Name.h>
#include <tree/Tree_NodeInfo.h>
#include <tree/Tree_Path.h>
#include <tree/Tree_PathAndValueArray.h>
#include <tree/Tree_Value.h>
#include <utility/Tmr_PoolAllocator.h>
#include <utility/Tmr_PtrSortedVector.h>

// A key (with children) or a value (a leaf with a text). Whether a node is a key or
// a value is settled when it is made.
//
// Ownership: a node lives while a Tree_NodePtr refers to it; a key's list holds its children, a
// child not its parent. A node hangs under at most one key. A tree "of its own" is a copy that
// shares nothing. What is held from outside becomes a top of its own: with its path when the key
// above it goes, with a path that begins with its name when it is removed from that key.
//
// Threads: any number of threads may read a tree and copy and drop pointers into it, the last one
// to its top included: what a thread holds, and what is below, stays as it is. Who changes a tree
// must be the only one that uses it then; others may let go of what they hold of it, but not of the
// last above a node that is itself renamed, removed or moved.
//
// Paths are relative to the node called on; the empty path names the node itself and
// empty components are passed over. Names are compared byte for byte. Nothing is logged but
// what no byte array can hold; what is not there comes back as a null pointer, an empty string
// or 0. No operation recurses, whatever the depth of the tree. Where memory runs out,
// std::bad_alloc is thrown and every tree is as it was; lookups and removals need none.
//
// Arguments named `self` are the pointer that holds the node the call is made on.
class HALVORIA_API Tree_Node : public ThreadAPI_Counted {
 public:
  // The null pointer. Operations that return a reference give one to a null pointer of the
  // thread's own for nothing: what is assigned to it is forgotten.
  static const Tree_NodePtr NULL_TREE_NODE_PTR;
  static int TRUE_BOOL;  // 1
  static Tmr_PoolAllocator m_NodesPool;

  explicit Tree_Node(RWCString::Text name);
  // A value node; takes ownership of the value (null makes a key). The value moves into
  // the node: use GetTreeValue() afterwards.
  Tree_Node(RWCString::Text name, Tree_Value* value);
  Tree_Node(RWCString::Text name, RWCString::Text text, int is_change);
  Tree_Node(const Tree_Node&) = delete;
  Tree_Node& operator=(const Tree_Node&) = delete;

  // Identity
  // Valid until the node is renamed or goes.
  const RWCString& GetKeyName() const { return m_name.string(); }
  std::string_view NameView() const { return m_name.view(); }
  const Tree_Name& Name() const { return m_name; }
  uint64_t NameHash() const { return m_name.hash(); }
  // Renames the node in place. Refused (FALSE) when a sibling has the name already, or
  // when a child would get the empty name.
  int SetKeyName(const RWCString& name);
  // This node and another child of its key get each other's names, which takes no memory. FALSE
  // when they are not children of one key.
  int ExchangeNames(Tree_Node& other) noexcept;
  // The virtual parent path of the top of its tree, when there is one, then the names from
  // the top down to this node, joined by backslashes.
  RWCString GetPath() const;
  // The same without the name of this node.
  RWCString GetParentPath() const;
  // The path as far as it is known: GetPath, but a virtual parent path that was only set and ends
  // with the name of the top is taken for the top's own.
  RWCString GetFullPath() const;
  // NULL at the top of a tree. Valid while somebody holds a node above this one.
  Tree_Node* GetParent() const {
    const uintptr_t up = m_up.load(std::memory_order_acquire);
    return up & kIsTop ? nullptr : reinterpret_cast<Tree_Node*>(up);
  }
  // The link only, the parent's child list stays as it is. Drops a virtual parent path.
  void SetParent(Tree_Node* parent) {
    if (m_up.load(std::memory_order_relaxed) & kIsTop) drop_top_record();
    m_up.store(reinterpret_cast<uintptr_t>(parent), std::memory_order_release);
  }
  // Of the top node of a detached tree: the path of the key it hangs under in the
  // full tree. Empty on a node that has a parent, where setting it does nothing.
  RWCString GetVirtualParentPath() const;
  void SetVirtualParentPath(const RWCString& path);
  // The same for who knows that the path is that of the key above. One that is only set may be the
  // node's own: that of a tree that was read from a document is.
  void SetPathAbove(const RWCString& path);
  bool IsPathAboveKnown() const;
  // Makes it the path of what `other` hangs under, knowing as much.
  void StandWhere(const Tree_Node& other);
  // The number of a record of a byte array; -1 at first.
  int GetNodeId() const {
    return m_is_leaf ? static_cast<int>(~(uint32_t{m_id_high} << 16 | m_value.Tag())) : m_key.id;
  }
  void SetNodeId(int id);

  // Children, in order
  int GetChildCount() const { return m_is_leaf ? 0 : static_cast<int>(m_key.count()); }
  // The child at a 0-based position; null out of range. What it refers to is not for assigning.
  Tree_NodePtr& GetChildAt(int index);
  // Appends the child, taking it from the key it hung under before. Refused (FALSE): a null
  // child, a value as parent, a name that is empty or already there, a child that holds this node.
  int Add(const Tree_NodePtr& child);
  // The same at the end of a path: each missing component becomes a key, and a child of that
  // name gives way. Refused, too, when the path leads through a value or to one.
  int Put(std::string_view path, const Tree_NodePtr& child);
  // Appends a new key, or a new value. NULL when refused, as above; else owned by this node.
  Tree_Node* AddKey(std::string_view name) { return add_new(new Tree_Node(name)); }
  Tree_Node* AddValue(std::string_view name, std::string_view text, int is_change) {
    return add_new(new Tree_Node(name, text, is_change));
  }
  // Moves the child at a 0-based position of another key to the end of this one, instead of
  // what has its name here. When that has the same text, it is returned and nothing is moved;
  // nor is a child that holds this node.
  Tree_Node* MoveHere(Tree_Node& from, int index);
  // Appends a node that hangs nowhere yet to a key. The caller made sure that no child has its
  // name, and that the name is not empty.
  void AddDistinct(Tree_NodePtr child);
  // Gives two values each other's place in memory. They hang nowhere, and nobody else holds them.
  static void ExchangePlaces(Tree_NodePtr& a, Tree_NodePtr& b);
  // Makes room for that many children of a key.
  void Reserve(uint32_t count) { m_key.reserve(count); }
  // TRUE when a child was removed. It no longer has a parent.
  int Remove(const Tree_NodePtr& child);
  int Remove(const RWCString& name);
  Tree_NodePtr Get(const RWCString& name, const Tree_NodePtr& self) const;
  static Tree_Node* Get(const RWCString& name, Tree_Node* node) {
    return node ? node->Child(name) : nullptr;
  }
  bool IsLeaf() const { return m_is_leaf; }
  int IsEmpty() const { return GetChildCount() == 0; }
  // NULL for a key. Owned by the node.
  Tree_Value* GetTreeValue() { return m_is_leaf ? &m_value : nullptr; }
  const Tree_Value* GetTreeValue() const { return m_is_leaf ? &m_value : nullptr; }
  // The text of a value, empty for a key; valid until the node is changed or goes.
  std::string_view GetText() const { return m_is_leaf ? m_value.GetText() : std::string_view(); }
  RWCString CopyText() const { return m_is_leaf ? m_value.GetValue() : RWCString(); }
  // Of the subtree rooted here, this node included: nodes, bytes of memory.
  int GetNodeNum() const;
  uint64_t GetTotalSize() const;

  // The raw lookup under all others, without counting references. A top node that is asked
  // for many deep paths makes itself a Tree_PathIndex.
  Tree_Node* Child(std::string_view name) const;
  // The child at a 0-based position among those of a kind; NULL out of range.
  const Tree_Node* ChildAt(Tree_ChildList::Kind kind, int position) const;
  Tree_Node* Find(std::string_view path);
  const Tree_Node* Find(std::string_view path) const;
  const Tree_ChildList* Children() const { return m_is_leaf ? nullptr : &m_key; }

  // Lookups by path
  Tree_NodePtr GetRelativeNode(const Tree_Path& path, const Tree_NodePtr& self);
  Tree_NodePtr GetRelativeSubTree(const Tree_Path& path, const Tree_NodePtr& self);
  Tree_NodePtr& GetRelativeSubTreeByRef(const Tree_Path& path, Tree_NodePtr& self);
  // The key at a 0-based position among the keys directly under the key at the path.
  Tree_NodePtr& GetRelativeSubTreeByRef(const RWCString& path, int index,
                                        const Tree_NodePtr& self) const;
  // Makes each missing component a key. The result can be an existing value: the walk
  // ends at the first one it meets.
  Tree_NodePtr GetOrCreateRelativeNode(const Tree_Path& path, const Tree_NodePtr& self);
  RWCString GetValue(const RWCString& path, const Tree_NodePtr& self) const;
  // Text and name of the value at a 0-based position among the values directly under
  // the key at the path.
  RWCString GetValue(const RWCString& path, int index, const Tree_NodePtr& self) const;
  RWCString GetValueName(const RWCString& path, int index, const Tree_NodePtr& self) const;
  // Values, keys directly under the key at the path.
  int GetValueNum(const RWCString& path, const Tree_NodePtr& self) const;
  int GetSubTreeNum(const RWCString& path, const Tree_NodePtr& self) const;
  // All keys and values below the key at the path, the key itself not counted.
  int GetSubTreeEntriesCount(const RWCString& path, const Tree_NodePtr& self) const;
  // Names of the keys, records of the values (path: the name), directly under the key at
  // the path; NULL when there is no such key. The caller deletes the result.
  [[nodiscard]] String_Arr* GetSubTreePaths(const RWCString& path, const Tree_NodePtr& self) const;
  [[nodiscard]] Tree_PathAndValueArray* GetSubTreeValues(const RWCString& path,
                                                         const Tree_NodePtr& self) const;
  // Paths of all keys and values below this node that have the name, in tree order:
  // relative to this node when `relative` is not 0, else full paths. Never NULL; the caller
  // deletes the result.
  [[nodiscard]] String_Arr* Search(const RWCString& name, const Tree_NodePtr& self,
                                   int relative) const;

  // Whole trees
  // A deep copy, a tree of its own. Its virtual parent path is the path of this node's
  // parent, so that GetPath of the copy is the path of the original.
  Tree_NodePtr DuplicateFromHereDown(bool) const;
  // Sets the owning flag of the pointer and of all nodes below it.
  static void ChangeTreeNodePtrProtection(Tree_NodePtr& node, int& flag);
  // The union of both trees, a tree of its own named like the base: keys present in both
  // are merged, everything else present in both is taken from the overlay. A null argument
  // yields a copy of the other.
  static Tree_NodePtr Merge(const Tree_NodePtr& base, const Tree_NodePtr& overlay);
  // The same for the direct children of the two roots only: a child present in both is the
  // overlay's.
  static Tree_NodePtr MergeOneLevel(const Tree_NodePtr& base, const Tree_NodePtr& overlay);
  // A tree of its own with the values whose is-change flag is 1 and the keys on the way to
  // them; null when there are none.
  static Tree_NodePtr GetChangesTreeNode(const Tree_NodePtr& node);
  // Removes every key below this node that has no value anywhere beneath it. TRUE when
  // something was removed.
  bool RemoveEmptyBranches();

  // Flat records
  // One record a node, the top node first, with full paths under `path`.
  static void ConvertTreeNodeToVec(const Tree_NodePtr& node, const RWCString& path,
                                   Tmr_PtrSortedVector<Tree_NodeInfo>* records);
  static void ConvertTreeToSimpleVec(const Tree_NodePtr& node, const RWCString& path,
                                     std::vector<Tree_NodeInfo*>* records);
  // A tree of its own from sorted records with paths relative to the root path. The top
  // node is named by the root path's last component and keeps the whole root path as its
  // virtual parent path. Keys that have no record are made; of two records of one value the
  // later holds. Null when a record lies below a value, or names both a key and a value.
  Tree_NodePtr BuildSubTree(const Tmr_PtrSortedVector<Tree_NodeInfo>* records,
                            const RWCString& root_path) const;

  // Byte arrays
  // The tree from this key down as a byte array of `length` bytes, which the caller frees with
  // delete[]. With a virtual path it begins with the path of the key that the node hangs
  // under. NULL, with the reason in the log, for a value, and for a tree that no array can hold:
  // an empty name or one of more than 3000 bytes, a value without text, NUL bytes at an end of
  // a name or a text, more than INT_MAX bytes in all.
  [[nodiscard]] static char* GetSerializedTreeNode(const Tree_NodePtr& node, int& length,
                                                   bool with_virtual_path);
  // The same in two steps, for who has a place for the array: its size, -1 where there is none, and
  // the array itself, of the tree as it was then.
  static int GetSerializedSize(const Tree_NodePtr& node);
  static void WriteSerialized(const Tree_NodePtr& node, char* to);
  // The same without the node at a path, and what is below it. An empty path leaves out nothing.
  [[nodiscard]] static char* GetSerializedTreeNodeSkipPath(const Tree_NodePtr& node, int& length,
                                                           bool with_virtual_path,
                                                           const RWCString& skip_path);

  // Has room for that many nodes at hand.
  static void InitNodesPool(int count);
  // Gives memory of nodes and of what hangs on them back to the system, where no node in use
  // is near it.
  static void CollapsePools();

  static void* operator new(size_t) { return m_NodesPool.Allocate(); }
  static void operator delete(void* node) { m_NodesPool.Release(node); }

 private:
  friend class ThreadAPI_AutoPtrThreadSafe<Tree_Node>;
  static constexpr uintptr_t kIsTop = 1;  // tag of m_up: a Top, not a parent
  struct Top;

  struct Key : Tree_ChildList {  // inherits, so that the id takes the list's padding
    int id = -1;
  };

  Tree_Node(std::string_view name, std::unique_ptr<Tree_Value> value);
  Tree_Node(const Tree_Node& other, std::nullptr_t);  // same name, and same value, no children
  ~Tree_Node();
  static void Destroy(Tree_Node* top);
  Tree_Node* next_to_go();
  void outlive_parent() noexcept;

  RWCString path_up() const;
  Top* top_record() const {
    const uintptr_t up = m_up.load(std::memory_order_acquire);
    return up & kIsTop ? reinterpret_cast<Top*>(up & ~kIsTop) : nullptr;
  }
  Top& need_top_record() const;
  void drop_top_record();
  template <class Node>
  static Node* found_from(Node& node, std::string_view path);
  template <class Node>
  static Node* walked_from(Node& node, std::string_view path);
  void count_walk() const noexcept;
  Top* indexed_top() const;
  static void drop_index(Top& top) noexcept;
  void drop_index() const noexcept;
  void enter_index(Tree_Node& child) const noexcept;
  void leave_index(const Tree_Node& child) const noexcept;

  static Tree_NodePtr& nothing();
  static Tree_NodePtr& slot_of(Tree_Node* child);
  uint32_t place_of(const Tree_Node* child) const;
  void adopt(Tree_NodePtr child);  // a node whose name is not there yet; the index is the caller's
  void orphan(uint32_t place);     // likewise
  void settle(const Tree_NodePtr& child, uint32_t instead);
  void settle_in_room(Tree_NodePtr child, uint32_t instead);
  Tree_Node* last_on(Tree_PathWalk& rest, std::string_view& missing);
  static std::pair<Tree_NodePtr, Tree_Node*> new_branch(Tree_PathWalk& rest, std::string_view name);
  Tree_Node* add_new(Tree_Node* child);
  static void copy_children(const Tree_Node& from, Tree_Node& to);
  static Tree_NodePtr copy_of(const Tree_Node& node);
  static Tree_NodePtr merged(const Tree_NodePtr& base, const Tree_NodePtr& overlay, bool deep);

  bool m_is_leaf;  // shares the word of the count
  // Of a value: upper half of its inverted id, whose lower half is the tag of the value.
  uint16_t m_id_high = 0;
  // The parent, or a tagged pointer to an owned Top, which readers may make.
  mutable std::atomic<uintptr_t> m_up{0};
  Tree_Name m_name;
  union {
    Key m_key;
    Tree_Value m_value;
  };
};
