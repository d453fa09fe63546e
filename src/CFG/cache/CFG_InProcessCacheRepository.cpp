// A call on its way through the cache.
//
//   CFG_InProcessCacheRepository  what depends on T: which of its operations answers a miss, or
//                                 makes a change, and which may not see what is kept
//   in_process_cache              looks up, keeps and drops, with the lines of the log
//   overlapping_changes           keeps out what was read while it was changed
//   Tmr_Cache_LRU                 twice: values and subtrees
//
// T's operations call each other through the virtual ones, so that what they ask for comes back
// here. A typed read, or a value with a default, is answered from what is kept. A change that reads
// before it writes, a search, an export and a rule of which not every place is kept are the store's
// (at_the_store): what another process wrote must not be lost, nor answers come of two states.
#include <CFG/CFG_InProcessCacheRepository.h>

#include <algorithm>
#include <type_traits>

#include <CFG/CFG_SubTree.h>
#include <CFG/cache/in_process_cache.h>
#include <CFG/cache/process_name.h>
#include <CFG/detail/actual_path.h>
#include <CFG/detail/key_renaming.h>
#include <CFG/detail/paths.h>
#include <logging/Logger.h>
#include <tree/Tree_Node.h>

namespace {

constexpr Log_Logger logger("src/CFG/CFG_InProcessCacheRepository", 502);

constexpr char kConfigurations[] = "halvoria\\system\\applications\\cfg\\in_process_cache\\";
constexpr int kLongestTimeout = 10800;
constexpr int kMostValues = 200;
constexpr int kRecommendedSubTrees = 200;
constexpr int kLargestSubTree = 1'000'000;

// Where a name is looked for: a search path, a backslash and the name.
RWCString place(const char* search_path, const RWCString& name) {
  const RWCString whole = RWCString(search_path) + '\\' + name;
  return cfg::actual_path(whole).copy();
}

CFG_SubTree* copy_of(const std::shared_ptr<CFG_SubTree>& kept) {
  const Tree_NodePtr node = kept ? kept->GetData() : Tree_NodePtr();
  return node ? new CFG_SubTree(node->DuplicateFromHereDown(true)) : nullptr;
}

}  // namespace

CFG_InProcessCacheConfigurations::CFG_InProcessCacheConfigurations(CFG_SubTree& from)
    : value_cache_timeout(
          std::min(from.GetIntegerValueWrapper("value_cache_timeout", 1800), kLongestTimeout)),
      value_cache_size(std::min(from.GetIntegerValueWrapper("value_cache_size", 100), kMostValues)),
      sub_tree_cache_timeout(
          std::min(from.GetIntegerValueWrapper("subtree_cache_timeout", 1800), kLongestTimeout)),
      sub_tree_cache_size(from.GetIntegerValueWrapper("sub_tree_cache_size", 100)),
      largest_sub_tree(std::min(from.GetIntegerValueWrapper("max_subtree_entries_allowed", 500'000),
                                kLargestSubTree)),
      keeps_what_does_not_exist(from.GetBooleanValueWrapper("store_non_existing_keys", true)) {
  if (sub_tree_cache_size > kRecommendedSubTrees) {
    logger.warning(
        "subtree size of %d is bigger than the recommended limit of subtree cache size - %d",
        sub_tree_cache_size, kRecommendedSubTrees);
  }
}

template <class T>
CFG_InProcessCacheRepository<T>::~CFG_InProcessCacheRepository() {
  m_cache->disable();
}

template <class T>
template <class Ask>
auto CFG_InProcessCacheRepository<T>::at_the_store(const Ask& ask) {
  const cfg::in_process_cache::AtStore at_store(*m_cache, false);
  return ask();
}

// --- connection ----------------------------------------------------------------------------------

template <class T>
int CFG_InProcessCacheRepository<T>::Connect() {
  const MutexGuard connecting(m_cache->connect_lock());
  {
    const RecursiveThreadMutexWrapper::ReadGuard guard(this->m_connection_lock);
    if (this->m_is_connected) return TRUE;
  }
  if (const int result = T::Connect(); !result) return result;
  m_cache->disable();
  const RWCString process = cfg::process_name();
  RWCString path = kConfigurations + process;
  const std::unique_ptr<CFG_SubTree> configuration(T::GetSubTree(path));
  if (!configuration || !configuration->GetBooleanValueWrapper("enable", false)) {
    logger.info(
        "can't get configuration for in process cache to process : <%s> , cache will not be enbaled for that process",
        process);
    return TRUE;
  }
  const CFG_InProcessCacheConfigurations sizes(*configuration);
  if (sizes.value_cache_size <= 0 && sizes.sub_tree_cache_size <= 0) {
    return logger.reject(TRUE, "can't create cache instance with no value and subtree size");
  }
  m_cache->create(sizes);
  const RWCString first = configuration->GetValue("load_on_start");
  if (sizes.sub_tree_cache_size >= 1 && !first.isNull()) {
    constexpr bool is_remote = std::is_same_v<T, CFG_Repository>;
    if (is_remote) T::StartTransaction();
    m_cache->preload(first.view(), [this](RWCString& key) { return T::GetSubTree(key); });
    if (is_remote) T::EndTransaction();
  }
  m_cache->enable(sizes, *configuration, this->CFGPerformanceEnabled() ? process : RWCString());
  return TRUE;
}

template <class T>
int CFG_InProcessCacheRepository<T>::DisConnect() {
  const int result = T::DisConnect();
  return m_cache->has_updates() ? m_cache->forgetting(result) : result;
}

// --- reads ---------------------------------------------------------------------------------------

template <class T>
RWCString CFG_InProcessCacheRepository<T>::GetValue(const RWCString& path) {
  if (!m_cache->answers()) return T::GetValue(path);
  return m_cache->value(path, [this](const RWCString& key) { return T::GetValue(key); });
}

template <class T>
Tree_ValueAndPath* CFG_InProcessCacheRepository<T>::GetValue(RWCString name,
                                                             const char** search_paths, int count) {
  const auto ask_store = [&] {
    return at_the_store([&] { return T::GetValue(name, search_paths, count); });
  };
  if (!m_cache->answers()) return ask_store();
  if (!T::CheckSearchRule("", name, search_paths, count)) return nullptr;
  for (int i = 0; i < count; ++i) {
    std::string text;
    const RWCString key = place(search_paths[i], name);
    if (!m_cache->kept_value(key, text)) return ask_store();
    if (!text.empty()) return new Tree_ValueAndPath(RWCString(search_paths[i]), RWCString(text));
  }
  return nullptr;
}

template <class T>
std::shared_ptr<CFG_SubTree> CFG_InProcessCacheRepository<T>::cached(const RWCString& path) {
  return m_cache->sub_tree(path, [this](RWCString& key) { return T::GetSubTree(key); });
}

template <class T>
std::shared_ptr<CFG_SubTree> CFG_InProcessCacheRepository<T>::GetCachedSubTree(RWCString& path,
                                                                               bool& flag) {
  flag = false;
  return cached(path);
}

template <class T>
CFG_SubTree* CFG_InProcessCacheRepository<T>::GetSubTree(RWCString& path) {
  if (!m_cache->answers() || !m_cache->keeps_sub_trees()) return T::GetSubTree(path);
  const cfg::actual_string key(path);
  if (m_cache->is_listed(key.text().view())) {
    logger.detail("path <%s> is in black list,will not search for subtree in cache", key.text());
    return T::GetSubTree(path);
  }
  return copy_of(cached(path));
}

template <class T>
CFG_SubTree* CFG_InProcessCacheRepository<T>::GetSubTreeOnlyWithValuesLong(const RWCString& path) {
  RWCString copy = path;
  std::unique_ptr<CFG_SubTree> found(GetSubTree(copy));
  if (found && found->GetData()) found->GetData()->RemoveEmptyBranches();
  return found.release();
}

template <class T>
CFG_SubTree* CFG_InProcessCacheRepository<T>::GetSubTree(RWCString name, const char** search_paths,
                                                         int count) {
  const auto ask_store = [&] {
    return at_the_store([&] { return T::GetSubTree(name, search_paths, count); });
  };
  if (!m_cache->answers()) return ask_store();
  if (!T::CheckSearchRule("", name, search_paths, count)) return nullptr;
  for (int i = 0; i < count; ++i) {
    std::shared_ptr<CFG_SubTree> found;
    const RWCString key = place(search_paths[i], name);
    if (!m_cache->kept_below_ancestor(key, found)) return ask_store();
    if (found) return copy_of(found);
  }
  return nullptr;
}

template <class T>
String_Arr* CFG_InProcessCacheRepository<T>::SearchKeyOrValueName(const RWCString& name,
                                                                  const RWCString& path) {
  return at_the_store([&] { return T::SearchKeyOrValueName(name, path); });
}

template <class T>
int CFG_InProcessCacheRepository<T>::ExportPath(const RWCString& path, const RWWString& file) {
  return at_the_store([&] { return T::ExportPath(path, file); });
}

// --- writes --------------------------------------------------------------------------------------

template <class T>
int CFG_InProcessCacheRepository<T>::SetValue(const RWCString& path, const RWCString& value) {
  return m_cache->set_value(path, value,
                            [&](const RWCString& key) { return T::SetValue(key, value); });
}

template <class T>
int CFG_InProcessCacheRepository<T>::DeleteValue(const RWCString& path) {
  return m_cache->delete_value(path, [this](const RWCString& key) { return T::DeleteValue(key); });
}

template <class T>
int CFG_InProcessCacheRepository<T>::DeleteSubTree(const RWCString& path) {
  return m_cache->write_sub_tree(path,
                                 [this](const RWCString& key) { return T::DeleteSubTree(key); });
}

template <class T>
int CFG_InProcessCacheRepository<T>::AddOrReplaceSubTree(CFG_SubTree* sub_tree,
                                                         const RWCString& path, int merge) {
  return m_cache->write_sub_tree(
      path, [&](const RWCString& key) { return T::AddOrReplaceSubTree(sub_tree, key, merge); });
}

template <class T>
int CFG_InProcessCacheRepository<T>::AddOrReplaceSubTree(CFG_SubTree* sub_tree,
                                                         const RWCString& path) {
  return m_cache->write_sub_tree(
      path, [&](const RWCString& key) { return T::AddOrReplaceSubTree(sub_tree, key); });
}

template <class T>
int CFG_InProcessCacheRepository<T>::SetSubTree(CFG_SubTree* sub_tree, const RWCString& path,
                                                int merge) {
  return m_cache->write_sub_tree(
      path, [&](const RWCString& key) { return T::SetSubTree(sub_tree, key, merge); });
}

template <class T>
int CFG_InProcessCacheRepository<T>::SetSubTree(CFG_SubTree* sub_tree, const RWCString& path) {
  return m_cache->write_sub_tree(
      path, [&](const RWCString& key) { return T::SetSubTree(sub_tree, key); });
}

template <class T>
int CFG_InProcessCacheRepository<T>::AddMoreInfoToSubTree(CFG_SubTree* sub_tree,
                                                          const RWCString& path) {
  return m_cache->write_sub_tree(
      path, [&](const RWCString& key) { return T::AddMoreInfoToSubTree(sub_tree, key); });
}

// These come to WriteSubTree, or to one of those above, when they have read what is stored.

template <class T>
int CFG_InProcessCacheRepository<T>::AddOrReplaceSubTreeWithLongValues(CFG_SubTree* sub_tree,
                                                                       const RWCString& path,
                                                                       int merge) {
  return at_the_store([&] { return T::AddOrReplaceSubTreeWithLongValues(sub_tree, path, merge); });
}

template <class T>
int CFG_InProcessCacheRepository<T>::AddMoreInfoToSubTreeWithLongValues(CFG_SubTree* sub_tree,
                                                                        const RWCString& path) {
  return at_the_store([&] { return T::AddMoreInfoToSubTreeWithLongValues(sub_tree, path); });
}

template <class T>
int CFG_InProcessCacheRepository<T>::ImportXMLValueList(const RWWString& file,
                                                        int override_values) {
  return at_the_store([&] { return T::ImportXMLValueList(file, override_values); });
}

template <class T>
int CFG_InProcessCacheRepository<T>::WriteSubTree(Tree_NodePtr& sub_tree, const RWCString& path) {
  const auto write = [&] { return T::WriteSubTree(sub_tree, path); };
  if (!sub_tree || m_cache->is_within_write()) return write();
  const RWCString whole = cfg::join(path, sub_tree->NameView());
  const cfg::actual_path key(whole);
  return m_cache->write_below(key, write);
}

template <class T>
int CFG_InProcessCacheRepository<T>::SetOrRanameKeyName(const RWCString& path,
                                                        const RWCString& key_name) {
  const cfg::key_renaming asked(cfg::actual_path(path).view(), cfg::actual_path(key_name).view());
  return m_cache->write_below(asked.from.view(), [&] {
    return m_cache->write_below(asked.to.view(),
                                [&] { return T::SetOrRanameKeyName(path, key_name); });
  });
}

template <class T>
void CFG_InProcessCacheRepository<T>::forget_below(const RWCString& path) {
  m_cache->write_below(cfg::actual_path(path), [] { return TRUE; });
}

// --- updates -------------------------------------------------------------------------------------

template <class T>
int CFG_InProcessCacheRepository<T>::Lock() {
  const int result = T::Lock();
  if (result) m_cache->begin_update();
  return result;
}

template <class T>
int CFG_InProcessCacheRepository<T>::UnLock() {
  const int result = T::UnLock();
  m_cache->end_update();
  return result ? result : m_cache->forgetting(result);
}

template <class T>
int CFG_InProcessCacheRepository<T>::Rollback() {
  return m_cache->forgetting(T::Rollback());
}

template <class T>
int CFG_InProcessCacheRepository<T>::EndTransactionUpdate(bool rollback) {
  const int result = T::EndTransactionUpdate(rollback);
  m_cache->end_update();
  return result ? result : m_cache->forgetting(result);
}

// --- the caches ----------------------------------------------------------------------------------

template <class T>
bool CFG_InProcessCacheRepository<T>::IsSubTreeInCache(RWCString& path) {
  return m_cache->has_sub_tree(path);
}

template <class T>
bool CFG_InProcessCacheRepository<T>::IsValueInCache(RWCString& path) {
  return m_cache->has_value(path);
}

template <class T>
void CFG_InProcessCacheRepository<T>::ClearCache() {
  m_cache->clear();
}

template <class T>
Tmr_CacheCounts CFG_InProcessCacheRepository<T>::GetValueCacheCounts() const {
  return m_cache->value_counts();
}

template <class T>
Tmr_CacheCounts CFG_InProcessCacheRepository<T>::GetSubTreeCacheCounts() const {
  return m_cache->sub_tree_counts();
}

template class CFG_InProcessCacheRepository<CFG_Repository>;
template class CFG_InProcessCacheRepository<CFG_FileRepository>;
template class CFG_InProcessCacheRepository<CFG_DBRepository>;
