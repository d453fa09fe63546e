// A repository in front of which there is a datagrid.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <CFG/CFG_DBRepository.h>
#include <CFG/CFG_DataGridCache_Configurations.h>
#include <CFG/CFG_InMemoryCache.h>
#include <CFG/CFG_Repository.h>
#include <thread/Mutex.h>
#include <utility/Tmr_TimerThread.h>

// What CFG_Cache has of the datagrid, whatever it is in front of. Any thread, once it is usable.
struct HALVORIA_API CFG_CacheGrid {
  // What becomes of a read.
  enum Answer { TAKE, ASK_REPOSITORY };

  bool may_read(const RWCString& key) const;
  bool may_write(const RWCString& key) const;
  // Whether the thread is inside an operation of the repository, which reads what is stored.
  static bool is_in_operation();

  Answer get_value(const RWCString& key, RWCString& value);
  Answer get_subtree(const RWCString& key, CFG_SubTree*& subtree);
  Answer find_value(const RWCString& key, RWCString& value);
  Answer find_subtree(const RWCString& key, CFG_SubTree*& subtree);

  // What was written; `in_update` when it is not committed yet.
  enum Change { VALUE_SET, VALUE_DELETED, SUBTREE_WRITTEN, SUBTREE_DELETED, HIDDEN };
  void tell(Change change, const RWCString& key, const RWCString& value, bool in_update);
  // Hides again what this thread, or with `all` any, wrote in an update that is over.
  void settle(bool all);

  void give_up();

  std::atomic<bool> m_is_usable{false};
  std::shared_ptr<CFG_InMemoryCache> m_client;
  std::shared_ptr<CFG_DataGridCache_Configurations> m_configuration;

 private:
  bool tell_client(Change change, const RWCString& key, const RWCString& value) const;

  struct Written {
    std::thread::id thread;
    Change change;
    RWCString key;
  };
  Mutex m_mutex;
  std::vector<Written> m_written THREADAPI_GUARDED_BY(m_mutex);
  std::atomic<bool> m_has_written{false};
};

// Reads the paths that the configuration names from the datagrid, and everything else from T, as it
// does for what the datagrid does not know. What it writes goes to T, and the datagrid is told. The
// configuration is the subtree `halvoria\system\applications\cfg\datagrid_cache`, read by Connect;
// the datagrid is read once `cache_ready` is set there, which is looked for now and then.
//
// Nothing that was written by this object is read from the datagrid as it was before. Inside an
// update everything is read from T, and so is what operations of T read to write it back.
//
// An error of the datagrid is never one of the caller: the object goes on without it. Threads and
// failures otherwise as T. There is one of CFG_Repository and one of CFG_DBRepository.
template <class T>
class HALVORIA_API CFG_Cache : public T, public Tmr_TimerInterace {
 public:
  using T::AddOrReplaceSubTree;
  using T::GetSubTree;
  using T::GetValue;
  using T::SetSubTree;

  // Takes what T does.
  template <class... Given>
  explicit CFG_Cache(const Given&... given) : T(given...) {}
  ~CFG_Cache() override;

  // --- CFG_Services ------------------------------------------------------------------------

  [[nodiscard]] CFG_SubTree* GetSubTree(RWCString name, const char** search_rule,
                                        int search_num) override;
  [[nodiscard]] CFG_SubTree* GetSubTree(RWCString& path) override;
  [[nodiscard]] Tree_ValueAndPath* GetValue(RWCString name, const char** search_rule,
                                            int search_num) override;
  RWCString GetValue(const RWCString& path) override;
  int SetValue(const RWCString& path, const RWCString& value) override;
  int DeleteSubTree(const RWCString& path) override;
  int DeleteValue(const RWCString& path) override;

  // Those that read what is stored and write it back.
  int AddOrReplaceSubTree(CFG_SubTree* sub_tree, const RWCString& path, int merge) override;
  int SetSubTree(CFG_SubTree* sub_tree, const RWCString& path, int merge) override;
  int AddMoreInfoToSubTree(CFG_SubTree* sub_tree, const RWCString& path) override;

  // --- CFG_RepositoryServices --------------------------------------------------------------

  // TRUE also without a datagrid.
  int Connect() override;
  int AddOrReplaceSubTreeWithLongValues(CFG_SubTree* sub_tree, const RWCString& path,
                                        int merge) override;
  int AddMoreInfoToSubTreeWithLongValues(CFG_SubTree* sub_tree, const RWCString& path) override;
  int UnLock() override;
  int EndTransaction() override;
  int EndTransactionUpdate(bool failed) override;

  // --- Tmr_TimerInterace -----------------------------------------------------------------------

  void OnTimerExpired(RWCString& name) override;

 protected:
  int WriteSubTree(Tree_NodePtr& sub_tree, const RWCString& path) override;
  int SetOrRanameKeyName(const RWCString& path, const RWCString& key_name) override;

 private:
  RWCString get_connector_info();
  void expandEnvVarsInConnStr(std::string& connection);

  bool reads_grid(const RWCString& key);
  template <class Write>
  int write(int operation, CFG_CacheGrid::Change change, const RWCString& key,
            const RWCString& value, const Write& write_it);
  template <class End>
  int end_update(const End& end);
  void wait_until_ready();
  void connect_grid();

  CFG_CacheGrid m_grid;
};

extern template class CFG_Cache<CFG_Repository>;
extern template class CFG_Cache<CFG_DBRepository>;
