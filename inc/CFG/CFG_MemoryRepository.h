// A repository over a subtree that its caller holds.
#pragma once

#include <CFG/CFG_RepositoryServicesImp.h>

// Every read and write goes to the held subtree; nothing is read from or written to disk
// or network. The subtree stays the caller's and must outlive the repository. The first
// component of a path is dropped, whatever it says; a path that is the root key's name, in any
// case, is the root itself, and any other path of one component is a child of the root. Subtree
// writes, renames and searches do so after placeholders in the path were replaced, all
// other operations before: they differ where the first component is a placeholder.
//
// GetSubTree(path) gives a detached copy, GetSubTree(path, index) a handle that shares
// nodes with the held tree.
//
// Paths begin with the held root, so a virtual parent path on it, as a tree has that was read from
// a file, is dropped. What is written at the root's path goes below the root, also when it is named
// like it; its names are put in lower case, and refused where two children of a key then share one.
//
// Threads: no lock of its own. Reads may run beside each other; callers that write from
// several threads serialise their writes. The transaction operations report TRUE and give
// no mutual exclusion.
class HALVORIA_API CFG_MemoryRepository : public CFG_RepositoryServicesImp {
 public:
  using CFG_RepositoryServicesImp::AddOrReplaceSubTree;
  using CFG_RepositoryServicesImp::GetMaxSeqNumber;
  using CFG_RepositoryServicesImp::GetSubTree;
  using CFG_RepositoryServicesImp::GetSubTreeNum;
  using CFG_RepositoryServicesImp::GetSubTreeOnlyWithValues;
  using CFG_RepositoryServicesImp::GetSubTreeOnlyWithValuesLong;
  using CFG_RepositoryServicesImp::GetSubTreeOnlyWithValuesWithPrecentAndWildcard;
  using CFG_RepositoryServicesImp::GetSubTreeWithPrecentAndWildcard;
  using CFG_RepositoryServicesImp::GetValue;
  using CFG_RepositoryServicesImp::GetValueName;
  using CFG_RepositoryServicesImp::GetValueNum;

  explicit CFG_MemoryRepository(CFG_SubTree* sub_tree);

  // What GetValue(path) answers, without a copy; valid until the tree is changed.
  std::string_view TextAt(const RWCString& path);

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
  int SetValue(const RWCString& path, const RWCString& value) override;
  int AddOrReplaceSubTree(CFG_SubTree* sub_tree, const RWCString& path) override;
  int DeleteSubTree(const RWCString& path) override;
  int DeleteValue(const RWCString& path) override;
  int IsSubTreeExist(const RWCString& path) override;

  // --- CFG_RepositoryServices --------------------------------------------------------------

  RWCString GetNodeNameByIp(RWCString ip) override;
  [[nodiscard]] String_Arr* FillPath(RWCString pattern) override;
  RWCString FillPath(RWCString pattern, RWCString value_name, RWCString value) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeWithPrecentAndWildcard(const RWCString& path) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyWithValuesLong(const RWCString& path) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyWithValues(const RWCString& path) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyWithValuesWithPrecentAndWildcard(
      const RWCString& path) override;
  int ExportPath(const RWCString& path, const RWWString& file) override;
  int Connect() override;
  int UnLock() override;
  [[nodiscard]] CFG_SubTree* GetSubTreeWithLongValues(const RWCString& path) override;
  RWCString GetServerSyncID() override;

 protected:
  int WriteSubTree(Tree_NodePtr& sub_tree, const RWCString& path) override;
  [[nodiscard]] String_Arr* SearchKeyOrValueName(const RWCString& name,
                                                 const RWCString& path) override;
  int SetOrRanameKeyName(const RWCString& path, const RWCString& key_name) override;
  Tree_NodePtr GetTreeNode(const RWCString& path) override;
  Tree_NodePtr GetTreeNodeOnlyWithValuesLong(const RWCString& path) override;
  Tree_NodePtr GetTreeNodeOnlyWithValues(const RWCString& path) override;
  Tree_NodePtr GetTreeNodeWithPrecentAndWildcard(const RWCString& path) override;
  Tree_NodePtr GetTreeNodeOnlyWithValuesWithPrecentAndWildcard(const RWCString& path) override;

 private:
  // The path below the held root.
  RWCString RemoveRootName(const RWCString& path);

  CFG_SubTree* m_sub_tree;  // not owned
};
