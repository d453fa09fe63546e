// What repositories that keep a whole file's tree in memory have in common.
#pragma once

#include <memory>
#include <vector>

#include <CFG/CFG_RepositoryServicesImp.h>
#include <thread/ReadMostlyLock.h>

// Serves every read from the tree in memory and applies writes to it; UnLock writes the
// whole tree back to the file. Paths, copies and threads are as in CFG_MemoryRepository,
// but the tree is owned here. A path operation assumes that Connect has succeeded.
//
// The two hooks run before a path is used; they do nothing here and let a subclass bring
// the paths it is about to serve up to date. A subclass in which several threads use the tree
// makes m_tree_lock: then each operation holds it while it uses the tree, and whoever changes the
// tree otherwise holds it as well. GetSubTree by position gives away a handle on the tree itself,
// which no lock protects.
class HALVORIA_API CFG_FileRepositoryBase : public CFG_RepositoryServicesImp {
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

  // Stores the name; the file is not touched.
  explicit CFG_FileRepositoryBase(RWWString file);
  ~CFG_FileRepositoryBase() override;

  // --- CFG_Services ------------------------------------------------------------------------

  [[nodiscard]] CFG_SubTree* GetSubTree(RWCString& path, int index) override;
  [[nodiscard]] CFG_SubTree* GetSubTree(RWCString& path) override;
  RWCString GetValue(RWCString path, RWCString default_value) override;
  RWCString GetValue(RWCString& path, int index) override;
  RWCString GetValue(const RWCString& path) override;
  RWCString GetValueName(RWCString& path, int index) override;
  [[nodiscard]] String_Arr* Search(RWCString name, RWCString path) override;
  int GetValueNum(RWCString& path) override;
  int GetSubTreeNum(RWCString& path) override;
  int GetSubTreeEntriesCount(const RWCString& path) override;
  [[nodiscard]] Tree_PathAndValueArray* GetSubTreeValues(const RWCString& path) override;
  [[nodiscard]] String_Arr* GetSubTreePaths(const RWCString& path) override;
  int SetValue(const RWCString& path, const RWCString& value) override;
  int AddOrReplaceSubTree(CFG_SubTree* sub_tree, const RWCString& path, int merge) override;
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
  int UnLock() override;
  [[nodiscard]] CFG_SubTree* GetSubTreeWithLongValues(const RWCString& path) override;

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

  // --- added here ----------------------------------------------------------------------------

  virtual void before_path_used(const RWCString& path);
  virtual void before_all_paths_used();
  virtual Tree_NodePtr GetTreeNodeWithLongValues(const RWCString& path);
  // Appends the paths that a pattern selects below `at`: keys, and values with a text. The
  // pattern is relative and has been substituted.
  virtual void FillPathToVec(CFG_SubTree* at, RWCString& pattern, std::vector<RWCString>* out);
  // The path of the first key that such a pattern selects and whose value `value_name` is
  // `value`; empty when there is none. A name that ends in `%` stands for all values of the
  // key whose names begin with what is before it. Addresses are compared in any case.
  virtual RWCString FindValue(CFG_SubTree* at, RWCString& pattern, RWCString& value_name,
                              RWCString& value);
  // The path below the held root. The reads on which speed depends, those of one value or
  // name, the counts and IsSubTreeExist, follow the same rule without asking here.
  virtual RWCString RemoveRootName(const RWCString& path);

  std::unique_ptr<CFG_SubTree> m_sub_tree;      // null until connected
  std::unique_ptr<ReadMostlyLock> m_tree_lock;  // of m_sub_tree; null: callers take turns
  RWWString m_file;

 private:
  // An operation from its beginning to its end: the hook, then what `asked` makes of the held tree
  // (a cfg::held_tree), which nobody else changes meanwhile. Nothing that is thrown gets out: then
  // the answer is the empty one, after a line in the name of `op`. `asked` calls no other operation
  // of this object.
  template <class Asked>
  auto read(const RWCString& path, const Asked& asked, const char* op = __builtin_FUNCTION());
  template <class Asked>
  auto read_all(const Asked& asked, const char* op = __builtin_FUNCTION());
  template <class Asked>
  auto change(const RWCString& path, const Asked& asked, const char* op = __builtin_FUNCTION());
  template <template <class> class Lock, class Hook, class Asked>
  auto with_tree(const char* op, const Hook& hook, const Asked& asked);
};
