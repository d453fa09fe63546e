#include <CFG/CFG_Cache.h>

#include <algorithm>

#include <CFG/CFG_InMemoryCache_Thin.h>
#include <CFG/CFG_PerformanceEvent.h>
#include <CFG/CFG_SubTree.h>
#include <CFG/cache/direct_reads.h>
#include <CFG/cache/process_name.h>
#include <CFG/detail/answered.h>
#include <CFG/detail/paths.h>
#include <logging/Logger.h>
#include <system/Sys_Environment.h>
#include <tree/Tree_Node.h>

using cfg::direct_reads;
using Event = CFG_PerformanceEvent;
using Grid = CFG_CacheGrid;

namespace {

constexpr Log_Logger logger("src/CFG/CFG_Cache", 507);

constexpr char kSource[] = "Cache";
constexpr char kTimer[] = "check_cache_ready";
constexpr char kConfiguration[] = "halvoria\\system\\applications\\cfg\\datagrid_cache";
constexpr char kReady[] = "halvoria\\system\\applications\\cfg\\datagrid_cache\\cache_ready";
constexpr char kEndpoint[] =
    "halvoria\\system\\applications\\cfg\\datagrid_cache\\ignite_conf\\connection_endpoint";

// An update is its thread's in the service, and everybody's over a database.
bool is_in_update(CFG_Repository& repository) { return repository.IsInTransaction() != 0; }
bool is_in_update(CFG_DBRepository& repository) { return !repository.GetAutoCommit(); }
constexpr bool belongs_to_all(const CFG_Repository&) { return false; }
constexpr bool belongs_to_all(const CFG_DBRepository&) { return true; }

}  // namespace

template <class T>
CFG_Cache<T>::~CFG_Cache() {
  Tmr_TimerThread::GetInstance().ForgetListener(this);
}

// --- connecting ----------------------------------------------------------------------------------

// What is read here is read from T: the datagrid is not usable yet.
template <class T>
int CFG_Cache<T>::Connect() try {
  const RecursiveThreadMutexWrapper::WriteGuard guard(this->m_connection_lock);
  if (this->m_is_connected) return TRUE;
  if (const int result = T::Connect(); !result) return result;
  if (!m_grid.m_configuration) connect_grid();
  return TRUE;
} catch (...) {
  return cfg::answered(logger, FALSE);
}

template <class T>
void CFG_Cache<T>::connect_grid() {
  RWCString path(kConfiguration);
  const std::unique_ptr<CFG_SubTree> tree(T::GetSubTree(path));
  m_grid.m_configuration =
      std::make_shared<CFG_DataGridCache_Configurations>(tree.get(), cfg::process_name());
  if (!m_grid.m_configuration->is_cache_ready()) wait_until_ready();
  m_grid.m_client = std::make_shared<CFG_InMemoryCache_Thin>(get_connector_info());
  if (!m_grid.m_configuration->is_enabled()) return;  // nothing would be asked
  std::string connection = m_grid.m_configuration->connection_string();
  expandEnvVarsInConnStr(connection);
  m_grid.m_is_usable = m_grid.m_client->Connect(connection);
}

template <class T>
RWCString CFG_Cache<T>::get_connector_info() {
  const RWCString endpoint = T::GetValue(RWCString(kEndpoint));
  return endpoint.isNull() ? RWCString("localhost:11110") : endpoint;
}

template <class T>
void CFG_Cache<T>::expandEnvVarsInConnStr(std::string& connection) {
  connection = Sys_Environment::Expand(connection);
}

template <class T>
void CFG_Cache<T>::wait_until_ready() {
  RWCString name(kTimer);
  const int interval = std::max(1, m_grid.m_configuration->updater_interval());
  Tmr_TimerThread::GetInstance().SetDisposableTimer(name, interval, this);
}

template <class T>
void CFG_Cache<T>::OnTimerExpired(RWCString&) try {
  const direct_reads stored;
  if (!this->GetBooleanValueWrapper(kReady, false)) return wait_until_ready();
  m_grid.m_configuration->set_cache_ready();
  Tmr_TimerThread::GetInstance().CancelTimer(this, kTimer);
} catch (...) {
  cfg::log_exception(logger, "OnTimerExpired");
}

// --- reads ---------------------------------------------------------------------------------------

template <class T>
bool CFG_Cache<T>::reads_grid(const RWCString& key) {
  return m_grid.may_read(key) && !is_in_update(*this);
}

template <class T>
RWCString CFG_Cache<T>::GetValue(const RWCString& path) try {
  if (!m_grid.m_is_usable || Grid::is_in_operation()) return T::GetValue(path);
  const RWCString key = this->change_string_with_properties(path);
  if (!reads_grid(key)) return T::GetValue(key);
  Event event(this->CFGPerformanceEnabled(), kSource, Event::PERFORMANCE_GET_VALUE, key);
  RWCString value;
  if (m_grid.get_value(key, value) == Grid::ASK_REPOSITORY) return T::GetValue(key);
  event.set_flag(!value.isNull());
  return value;
} catch (...) {
  return cfg::answered(logger, RWCString());
}

template <class T>
CFG_SubTree* CFG_Cache<T>::GetSubTree(RWCString& path) try {
  if (!m_grid.m_is_usable || Grid::is_in_operation()) return T::GetSubTree(path);
  RWCString key = this->change_string_with_properties(path);
  if (!reads_grid(key)) return T::GetSubTree(key);
  Event event(this->CFGPerformanceEnabled(), kSource, Event::PERFORMANCE_GET_SUB_TREE, key);
  CFG_SubTree* found = nullptr;
  if (m_grid.get_subtree(key, found) == Grid::ASK_REPOSITORY) return T::GetSubTree(key);
  event.set_flag(found != nullptr);
  return found;
} catch (...) {
  return cfg::answered(logger, nullptr);
}

template <class T>
Tree_ValueAndPath* CFG_Cache<T>::GetValue(RWCString name, const char** search_rule,
                                          int search_num) try {
  if (!T::CheckSearchRule("", name, search_rule, search_num)) return nullptr;
  const RWCString first(search_rule[0]);
  const RWCString key = this->change_string_with_properties(cfg::join(first.str(), name));
  RWCString value;
  if (!reads_grid(key)) {
    logger.trace("Not using cache for path = <%s>", key);
  } else {
    Event event(this->CFGPerformanceEnabled(), kSource, Event::PERFORMANCE_GET_VALUE, key);
    const bool is_hit = m_grid.find_value(key, value) == Grid::TAKE;
    event.set_flag(is_hit);
    if (is_hit) return new Tree_ValueAndPath(first, value);
  }
  const direct_reads stored;
  return T::GetValue(name, search_rule, search_num);
} catch (...) {
  return cfg::answered(logger, nullptr);
}

template <class T>
CFG_SubTree* CFG_Cache<T>::GetSubTree(RWCString name, const char** search_rule,
                                      int search_num) try {
  if (!T::CheckSearchRule("", name, search_rule, search_num)) return nullptr;
  const RWCString first(search_rule[0]);
  const RWCString key = this->change_string_with_properties(cfg::join(first.str(), name));
  CFG_SubTree* found = nullptr;
  if (!reads_grid(key)) {
    logger.trace("Not using cache for path = <%s>", key);
  } else {
    Event event(this->CFGPerformanceEnabled(), kSource, Event::PERFORMANCE_GET_SUB_TREE, key);
    const bool is_hit = m_grid.find_subtree(key, found) == Grid::TAKE;
    event.set_flag(is_hit);
    if (is_hit) return found;
  }
  const direct_reads stored;
  return T::GetSubTree(name, search_rule, search_num);
} catch (...) {
  return cfg::answered(logger, nullptr);
}

// --- writes --------------------------------------------------------------------------------------

// `write_it` is T's operation. A part of the datagrid's paths is hidden also where the rules keep
// this process from telling it: it may read that as a part of something else.
template <class T>
template <class Write>
int CFG_Cache<T>::write(int operation, CFG_CacheGrid::Change change, const RWCString& key,
                        const RWCString& value, const Write& write_it) {
  if (!m_grid.m_is_usable) return write_it();
  const bool is_told = m_grid.may_write(key);
  if (!is_told && !m_grid.m_configuration->ConcernsCache(key.view())) return write_it();
  const Event event(is_told && this->CFGPerformanceEnabled(), kSource,
                    static_cast<Event::Operation>(operation), key);
  const int result = write_it();
  if (result) m_grid.tell(is_told ? change : Grid::HIDDEN, key, value, is_in_update(*this));
  return result;
}

template <class T>
int CFG_Cache<T>::SetValue(const RWCString& path, const RWCString& value) try {
  const RWCString key = this->change_string_with_properties(path);
  return write(Event::PERFORMANCE_SET_VALUE, Grid::VALUE_SET, key, value, [&] {
    const direct_reads stored;
    return T::SetValue(key, value);
  });
} catch (...) {
  return cfg::answered(logger, FALSE);
}

template <class T>
int CFG_Cache<T>::DeleteValue(const RWCString& path) try {
  const RWCString key = this->change_string_with_properties(path);
  return write(Event::PERFORMANCE_DELETE_VALUE, Grid::VALUE_DELETED, key, {}, [&] {
    const direct_reads stored;
    return T::DeleteValue(key);
  });
} catch (...) {
  return cfg::answered(logger, FALSE);
}

template <class T>
int CFG_Cache<T>::DeleteSubTree(const RWCString& path) try {
  const RWCString key = this->change_string_with_properties(path);
  return write(Event::PERFORMANCE_DELETE_SUB_TREE, Grid::SUBTREE_DELETED, key, {}, [&] {
    const direct_reads stored;
    return T::DeleteSubTree(key);
  });
} catch (...) {
  return cfg::answered(logger, FALSE);
}

template <class T>
int CFG_Cache<T>::WriteSubTree(Tree_NodePtr& sub_tree, const RWCString& path) try {
  if (!sub_tree) return T::WriteSubTree(sub_tree, path);
  RWCString name = sub_tree->GetKeyName();
  T::tolower(name);
  const RWCString key = this->change_string_with_properties(path);
  const RWCString changed = cfg::join(key.str(), name);
  return write(Event::PERFORMANCE_WRITE_SUB_TREE, Grid::SUBTREE_WRITTEN, changed, {}, [&] {
    const direct_reads stored;
    return T::WriteSubTree(sub_tree, key);
  });
} catch (...) {
  return cfg::answered(logger, FALSE);
}

template <class T>
int CFG_Cache<T>::SetOrRanameKeyName(const RWCString& path, const RWCString& key_name) {
  const direct_reads stored;
  const int result = T::SetOrRanameKeyName(path, key_name);
  if (!result || !m_grid.m_is_usable) return result;
  const std::string before = this->change_string_with_properties(path).str();
  const size_t end = before.rfind('\\');
  RWCString name = key_name;
  T::tolower(name);
  const RWCString after = end == before.npos ? name : cfg::join(before.substr(0, end), name);
  for (const RWCString& key : {RWCString(before), after}) {
    if (m_grid.m_configuration->ConcernsCache(key.view())) {
      m_grid.tell(Grid::HIDDEN, key, {}, is_in_update(*this));
    }
  }
  return result;
}

// --- what reads and writes -----------------------------------------------------------------------

template <class T>
int CFG_Cache<T>::AddOrReplaceSubTree(CFG_SubTree* sub_tree, const RWCString& path, int merge) {
  const direct_reads stored;
  return T::AddOrReplaceSubTree(sub_tree, path, merge);
}
template <class T>
int CFG_Cache<T>::SetSubTree(CFG_SubTree* sub_tree, const RWCString& path, int merge) {
  const direct_reads stored;
  return T::SetSubTree(sub_tree, path, merge);
}
template <class T>
int CFG_Cache<T>::AddMoreInfoToSubTree(CFG_SubTree* sub_tree, const RWCString& path) {
  const direct_reads stored;
  return T::AddMoreInfoToSubTree(sub_tree, path);
}
template <class T>
int CFG_Cache<T>::AddOrReplaceSubTreeWithLongValues(CFG_SubTree* sub_tree, const RWCString& path,
                                                    int merge) {
  const direct_reads stored;
  return T::AddOrReplaceSubTreeWithLongValues(sub_tree, path, merge);
}
template <class T>
int CFG_Cache<T>::AddMoreInfoToSubTreeWithLongValues(CFG_SubTree* sub_tree, const RWCString& path) {
  const direct_reads stored;
  return T::AddMoreInfoToSubTreeWithLongValues(sub_tree, path);
}

// --- the end of updates --------------------------------------------------------------------------

// The service may have brought back what was hidden before it was committed.
template <class T>
template <class End>
int CFG_Cache<T>::end_update(const End& end) {
  const int result = end();
  if (m_grid.m_is_usable && !is_in_update(*this)) m_grid.settle(belongs_to_all(*this));
  return result;
}

template <class T>
int CFG_Cache<T>::UnLock() {
  return end_update([this] { return T::UnLock(); });
}
template <class T>
int CFG_Cache<T>::EndTransaction() {
  return end_update([this] { return T::EndTransaction(); });
}
template <class T>
int CFG_Cache<T>::EndTransactionUpdate(bool failed) {
  return end_update([this, failed] { return T::EndTransactionUpdate(failed); });
}

template class CFG_Cache<CFG_Repository>;
template class CFG_Cache<CFG_DBRepository>;
