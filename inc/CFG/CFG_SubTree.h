// A handle on a piece of the configuration tree in memory.
#pragma once

#include <cstdint>
#include <string_view>

#include <CFG/CFG_MemoryServices.h>

// Every repository read of a key gives one, every subtree write takes one. A handle and
// all handles made from it share nodes: GetSubTree gives a handle on a node inside this
// tree, and a change through either is seen through both. The tree lives until the last
// handle on it is gone. Writes take a copy of the given subtree; the two merges at the
// end of the class move the nodes of the other tree instead.
//
// Threads: nodes have no lock. Any number of threads may read, copy and drop handles that share
// nodes while none of them changes the tree. One may change what is below its handle's key while
// the others let go of theirs, but that key itself only while somebody holds a handle above it.
// A handle without data answers every read with the empty result and a log line.
class HALVORIA_API CFG_SubTree : public CFG_MemoryServices {
 public:
  using CFG_MemoryServices::AddOrReplaceSubTree;
  using CFG_MemoryServices::GetSubTree;
  using CFG_MemoryServices::GetSubTreeNum;
  using CFG_MemoryServices::GetValue;
  using CFG_MemoryServices::GetValueName;
  using CFG_MemoryServices::GetValueNum;

  // A new key of that name, lower-cased, without children.
  CFG_SubTree(RWCString name);
  // Shares the node, which may be null.
  CFG_SubTree(const Tree_NodePtr& data);
  CFG_SubTree(const CFG_SubTree& other);
  CFG_SubTree& operator=(const CFG_SubTree& other);
  ~CFG_SubTree() override;

  // --- CFG_Services ------------------------------------------------------------------------

  [[nodiscard]] CFG_SubTree* GetSubTree(RWCString& path, int index) override;
  [[nodiscard]] CFG_SubTree* GetSubTree(RWCString& path) override;
  RWCString GetValue(RWCString& path, int index) override;
  RWCString GetValue(const RWCString& path) override;
  RWCString GetValueName(RWCString& path, int index) override;
  int GetValueNum(RWCString& path) override;
  int GetSubTreeNum(RWCString& path) override;
  int GetSubTreeEntriesCount(const RWCString& path) override;
  [[nodiscard]] Tree_PathAndValueArray* GetSubTreeValues(const RWCString& path) override;
  [[nodiscard]] String_Arr* GetSubTreePaths(const RWCString& path) override;
  int SetValue(const RWCString& value_path, const RWCString& value_data) override;
  // With an empty path and a subtree whose root is named like this one's, this handle then stands
  // on a new root, and it alone: other handles, and a tree around the old root, keep that.
  int AddOrReplaceSubTree(CFG_SubTree* sub_tree, const RWCString& path) override;
  int DeleteSubTree(const RWCString& path) override;
  int DeleteValue(const RWCString& path) override;
  int IsSubTreeExist(const RWCString& path) override;

  // --- CFG_MemoryServices ------------------------------------------------------------------

  int IsEmpty() override;
  RWCString GetKeyName() override;
  RWCString GetPath() override;

  // --- the handle itself -------------------------------------------------------------------

  // GetValue, GetValueName, GetValueNum, GetSubTreeNum and IsSubTreeExist for a path that
  // stands inside a longer text.
  RWCString ValueAt(std::string_view path);
  // The same without a copy, valid until the tree is changed.
  std::string_view TextAt(std::string_view path);
  RWCString ValueAt(std::string_view path, int index);
  RWCString ValueNameAt(std::string_view path, int index);
  int ValueNumAt(std::string_view path);
  int SubTreeNumAt(std::string_view path);
  int HasSubTreeAt(std::string_view path);

  Tree_NodePtr GetData();   // the root node, shared
  uint64_t GetTotalSize();  // bytes held by the tree

  // The subtree as a byte array without virtual path, which the caller frees with delete[]. NULL,
  // with the reason in the log, when the handle has no data or no array can hold its tree.
  [[nodiscard]] static char* SerializeSubTree(CFG_SubTree* sub, int& buffer_length);

  // Moves the nodes of `other` over this tree, key by key: its values replace those of the
  // same name, and a key replaces a value and the other way round. Nothing is merged below
  // the key whose full path is `stop_path`. 0, or -1 when the root keys have different names.
  // Memory that runs out ends it between two nodes, with -1: each is in one of the trees then,
  // and the same call goes on. To look first what there is to move would cost as much as moving
  // it, for who has a place to keep the whole.
  int MergeSubTree(CFG_SubTree* other, const RWCString& stop_path);
  // Removes what the leaves of `other` name. 0, or -1 when the two paths differ, and when there is
  // no memory to look for all of it: then nothing is removed.
  int MergeDeletionSubTree(CFG_SubTree* other);

 protected:
  int WriteSubTree(Tree_NodePtr& sub_tree, const RWCString& path) override;
  [[nodiscard]] String_Arr* SearchKeyOrValueName(const RWCString& name,
                                                 const RWCString& path) override;
  int SetOrRanameKeyName(const RWCString& path, const RWCString& key_name) override;
  Tree_NodePtr GetTreeNode(const RWCString& path) override;

  int MergeTreeNodes(Tree_NodePtr destination, Tree_NodePtr source, const RWCString& stop_path);
  int MergeDeletionTreeNodes(Tree_NodePtr destination, Tree_NodePtr deletions);

 private:
  int IsDataNull();

  Tree_NodePtr m_data;  // the root; null for a handle without data
};
