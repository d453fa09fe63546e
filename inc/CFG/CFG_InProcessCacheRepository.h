// A repository with the process's own cache before it.
#pragma once

#include <memory>
#include <utility>

#include <CFG/CFG_DBRepository.h>
#include <CFG/CFG_FileRepository.h>
#include <CFG/CFG_Repository.h>
#include <Tmr/Tmr_Cache.h>

namespace cfg {
class in_process_cache;
HALVORIA_API std::shared_ptr<in_process_cache> make_in_process_cache();
}  // namespace cfg

// How large the caches of a process are, and what they keep, from the subtree that is its cache
// configuration. What is missing there, or is no number, has the value that stands here.
struct HALVORIA_API CFG_InProcessCacheConfigurations {
  explicit CFG_InProcessCacheConfigurations(CFG_SubTree& configuration);

  int value_cache_timeout;         // value_cache_timeout: 1800 seconds, at most 10800
  int value_cache_size;            // value_cache_size: 100 entries, at most 200
  int sub_tree_cache_timeout;      // subtree_cache_timeout: 1800 seconds, at most 10800
  int sub_tree_cache_size;         // sub_tree_cache_size: 100 entries; a warning above 200
  int largest_sub_tree;            // max_subtree_entries_allowed: 500000, at most 1000000
  bool keeps_what_does_not_exist;  // store_non_existing_keys: true
};

// Keeps values and subtrees that were read from T, so that they are not read again until they are
// pushed out, expire, or are written through this object. What others write is not seen before
// that. It is for the process that the tree has a configuration for, at
// `halvoria\system\applications\cfg\in_process_cache\` and the name of its program, with `enable`:
// Connect reads that. Without it every operation is T's. The operations that are not named here
// are T's in any case; those that are made of them, as the typed reads, get what is kept. What an
// update reads and writes at the store within one operation of its own is the store's.
//
// What was read is not kept when it was changed meanwhile through this object; a rollback, and an
// update that fails, forget everything. While a thread's update is open, others get what it wrote
// where that is kept, as the thread does itself. A path is kept as a value and as a subtree
// independently of each other. When both caches are off, or the path is on the value `blacklist`,
// writes change nothing in them; where only that of subtrees is off, writes of subtrees and their
// deletion do not, so that values below stay as they were read.
//
// Ownership: subtrees are copies that are the caller's, but for GetCachedSubTree. Threads: as T.
// Failure: as T; memory that runs out in the caches themselves is thrown.
template <class T>
class HALVORIA_API CFG_InProcessCacheRepository : public T {
 public:
  using T::AddOrReplaceSubTree;
  using T::GetSubTree;
  using T::GetSubTreeOnlyWithValuesLong;
  using T::GetValue;
  using T::IsSubTreeInCache;
  using T::IsValueInCache;

  // As T's: that of a CFG_FileRepository takes the name of the file.
  template <class... Arguments>
  explicit CFG_InProcessCacheRepository(Arguments&&... arguments)
      : T(std::forward<Arguments>(arguments)...), m_cache(cfg::make_in_process_cache()) {}
  ~CFG_InProcessCacheRepository() override;

  // --- reads ---------------------------------------------------------------------------------

  [[nodiscard]] CFG_SubTree* GetSubTree(RWCString name, const char** search_paths,
                                        int count) override;
  [[nodiscard]] CFG_SubTree* GetSubTree(RWCString& path) override;
  [[nodiscard]] Tree_ValueAndPath* GetValue(RWCString name, const char** search_paths,
                                            int count) override;
  RWCString GetValue(const RWCString& path) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyWithValuesLong(const RWCString& path) override;
  // The subtree that is kept, and not a copy: many may hold it, so nobody changes it. Null when
  // there is none, and without a cache of subtrees. One that is larger than configured is not kept.
  // The flag is set to false.
  std::shared_ptr<CFG_SubTree> GetCachedSubTree(RWCString& path, bool& flag);

  // --- writes ----------------------------------------------------------------------------------

  int SetValue(const RWCString& path, const RWCString& value) override;
  int AddOrReplaceSubTree(CFG_SubTree* sub_tree, const RWCString& path, int merge) override;
  int AddOrReplaceSubTree(CFG_SubTree* sub_tree, const RWCString& path) override;
  int DeleteSubTree(const RWCString& path) override;
  int DeleteValue(const RWCString& path) override;
  int SetSubTree(CFG_SubTree* sub_tree, const RWCString& path, int merge) override;
  int SetSubTree(CFG_SubTree* sub_tree, const RWCString& path) override;
  int AddMoreInfoToSubTree(CFG_SubTree* sub_tree, const RWCString& path) override;
  int AddOrReplaceSubTreeWithLongValues(CFG_SubTree* sub_tree, const RWCString& path,
                                        int merge) override;
  int AddMoreInfoToSubTreeWithLongValues(CFG_SubTree* sub_tree, const RWCString& path) override;
  int ImportXMLValueList(const RWWString& file, int override_values) override;
  // Of a database.
  template <class R = T>
  auto SetValueName(const RWCString& path, const RWCString& old_name, const RWCString& new_name)
      -> decltype(std::declval<R&>().SetValueName(path, old_name, new_name)) {
    const int renamed = R::SetValueName(path, old_name, new_name);
    forget_below(path);
    return renamed;
  }

  // --- connection and transactions ---------------------------------------------------------------

  int Connect() override;
  int DisConnect() override;
  int Lock() override;
  int UnLock() override;
  int Rollback() override;
  int EndTransactionUpdate(bool rollback) override;
  int ExportPath(const RWCString& path, const RWWString& file) override;

  // --- the caches --------------------------------------------------------------------------------

  // Of the path as it is given, without putting properties in place.
  bool IsSubTreeInCache(RWCString& path) override;
  bool IsValueInCache(RWCString& path) override;
  void ClearCache() override;
  // Since Connect; of no entries while there are no caches.
  Tmr_CacheCounts GetValueCacheCounts() const;
  Tmr_CacheCounts GetSubTreeCacheCounts() const;

 protected:
  int WriteSubTree(Tree_NodePtr& sub_tree, const RWCString& path) override;
  int SetOrRanameKeyName(const RWCString& path, const RWCString& key_name) override;
  [[nodiscard]] String_Arr* SearchKeyOrValueName(const RWCString& name,
                                                 const RWCString& path) override;

 private:
  template <class Write>
  int write_sub_tree(const RWCString& path, const Write& write);
  template <class Ask>
  auto at_the_store(const Ask& ask);
  std::shared_ptr<CFG_SubTree> cached(const RWCString& path);
  void forget_below(const RWCString& path);

  const std::shared_ptr<cfg::in_process_cache> m_cache;
};

extern template class CFG_InProcessCacheRepository<CFG_Repository>;
extern template class CFG_InProcessCacheRepository<CFG_FileRepository>;
extern template class CFG_InProcessCacheRepository<CFG_DBRepository>;
