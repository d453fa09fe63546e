// The caches that a repository has before it.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <CFG/CFG_CacheBlackList.h>
#include <CFG/CFG_InProcessCacheRepository.h>
#include <CFG/CFG_SubTree.h>
#include <CFG/detail/overlapping_changes.h>
#include <CFG/detail/thread_end.h>
#include <Tmr/Tmr_Cache.h>

namespace cfg {

// All of CFG_InProcessCacheRepository that does not depend on what it stands before. Made by
// std::make_shared; any thread. Keys are actual paths: placeholders replaced, in lower case.
//
// Locks, the upper ones first: that of overlapping changes, that of walks, that of a cache.
class in_process_cache : public thread_bound {
 public:
  using SubTree = std::shared_ptr<CFG_SubTree>;
  using ReadValue = std::function<RWCString(const RWCString& key)>;
  using ReadSubTree = std::function<CFG_SubTree*(RWCString& key)>;

  ~in_process_cache() override;

  // Of one Connect, with its lock held: made, filled with what is to be there from the start, and
  // enabled. Told under that name how it goes, unless that is empty.
  void create(const CFG_InProcessCacheConfigurations& sizes);
  void preload(std::string_view paths, const ReadSubTree& read);
  void enable(const CFG_InProcessCacheConfigurations& sizes, CFG_SubTree& configuration,
              const RWCString& reported_as);
  void disable();
  Mutex& connect_lock() { return m_connect_lock; }

  // Whether what is kept answers this thread's read: not without caches, and not one that an
  // operation makes which is for the store.
  bool answers() const {
    return m_enabled.load(std::memory_order_acquire) &&
           (m_store_calls.load(std::memory_order_relaxed) == 0 || !is_at_store());
  }
  bool is_enabled() const { return m_enabled.load(std::memory_order_acquire); }
  bool keeps_sub_trees() const;

  // --- reads --------------------------------------------------------------------------------

  RWCString value(const RWCString& path, const ReadValue& read);
  // Of a value by a search rule: false for a miss, with which the store has to be asked.
  bool kept_value(std::string_view key, std::string& value);
  SubTree sub_tree(const RWCString& path, const ReadSubTree& read);
  bool kept_below_ancestor(std::string_view key, SubTree& found);
  bool is_listed(std::string_view key) const;  // as a path that is not kept

  bool has_value(const RWCString& path);
  bool has_sub_tree(const RWCString& path);
  void clear();
  Tmr_CacheCounts value_counts() const;
  Tmr_CacheCounts sub_tree_counts() const;

  // --- changes: what the store answered, having brought up to date what is kept
  // -------------------

  using Ask = std::function<int()>;
  using Write = std::function<int(const RWCString& key)>;
  int set_value(const RWCString& path, const RWCString& value, const Write& write);
  int delete_value(const RWCString& path, const Write& write);
  int write_sub_tree(const RWCString& path, const Write& write);
  // Of what is at the key and below it, by an operation that is none of these.
  int write_below(std::string_view key, const Ask& write);
  // What the store answered when everything that is kept may be wrong.
  int forgetting(int done);

  void begin_update();
  void end_update() { m_changes.end_update(); }
  bool has_updates() { return m_changes.has_updates(); }
  bool end_with_thread() override;

  // While one lives, its thread asks the store and not the caches. `is_write`: for an operation
  // that brings them up to date itself.
  class AtStore {
   public:
    AtStore(in_process_cache& cache, bool is_write);
    ~AtStore();
    AtStore(const AtStore&) = delete;
    AtStore& operator=(const AtStore&) = delete;

   private:
    friend class in_process_cache;
    in_process_cache& m_cache;
    const bool m_is_write;
    AtStore* const m_outer;
    static thread_local AtStore* s_innermost;
  };
  bool is_within_write() const;

 private:
  using Values = Tmr_Cache_LRU<std::string, std::string>;
  using SubTrees = Tmr_Cache_LRU<std::string, SubTree>;
  using Dropped = SubTrees::Entries;
  struct Caches;
  class Reporter;

  bool is_at_store() const;
  RWCString value_of_store(Caches& caches, std::string_view key, const ReadValue& read);
  bool find_value(Caches& caches, std::string_view key, std::string& value);
  bool find_below_ancestor(Caches& caches, std::string_view key, std::string& value);
  bool find_below_ancestor(Caches& caches, std::string_view key, SubTree& found);
  bool find_ancestor(Caches& caches, std::string_view key, SubTree& found, std::string& relative);
  void keep_sub_tree(Caches& caches, overlapping_changes::Use& use, const RWCString& key,
                     const SubTree& found);
  template <class Update>
  int change(std::string_view key, const Ask& write, const Update& update);
  void remove_ancestors(Caches& caches, std::string_view key, Dropped& dropped);
  void remove_descendants(Caches& caches, std::string_view key, Dropped& dropped);
  void drop_all(Caches& caches, Dropped& dropped);
  void clean(Caches& caches, std::string_view key, Dropped& dropped);

  ForkReleasedMutex m_connect_lock;  // held while a Connect makes caches
  ForkReleasedMutex m_walk_lock;     // while entries are walked
  overlapping_changes m_changes;
  std::vector<std::unique_ptr<Caches>> m_made;  // by each Connect; guarded by m_connect_lock
  std::atomic<Caches*> m_created{nullptr};      // the last of them
  std::atomic<Caches*> m_enabled{nullptr};      // likewise, once it is filled
  std::atomic<int> m_store_calls{0};            // how many AtStore there are
};

}  // namespace cfg
