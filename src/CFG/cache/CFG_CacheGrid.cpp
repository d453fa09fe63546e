// What CFG_Cache does whatever it is in front of.
#include <CFG/CFG_Cache.h>

#include <CFG/CFG_SubTree.h>
#include <CFG/cache/direct_reads.h>
#include <logging/Logger.h>

namespace {

constexpr Log_Logger logger("src/CFG/CFG_Cache", 507);

// Of one update; what is beyond hides everything.
constexpr size_t kMostWritten = 10000;

}  // namespace

bool CFG_CacheGrid::is_in_operation() { return cfg::direct_reads::are_on(); }

bool CFG_CacheGrid::may_read(const RWCString& key) const {
  return m_is_usable && !is_in_operation() && m_configuration->UseCache(key.str(), true);
}
bool CFG_CacheGrid::may_write(const RWCString& key) const {
  return m_is_usable && m_configuration->UseCache(key.str(), false);
}

void CFG_CacheGrid::give_up() {
  logger.error("an exception occured while querying datagrid cache, won't use it for that process");
  m_is_usable = false;
}

// --- reads ---------------------------------------------------------------------------------------

CFG_CacheGrid::Answer CFG_CacheGrid::get_value(const RWCString& key, RWCString& value) {
  switch (m_client->GetValue(key, value)) {
    case CACHE_FOUND:
      logger.trace("path found in cache and is valid. path = <%s>, value = <%s>", key, value);
      return TAKE;
    case CACHE_DOES_NOT_EXIST:
    case CACHE_NO_ENTRY:
      logger.trace("path not found in cache, path = <%s>", key);
      return ASK_REPOSITORY;
    case CACHE_IS_SUBTREE:
      logger.trace("got subtree while expecting value in path <%s>", key);
      return TAKE;
    case CACHE_FAILED:
      give_up();
      return ASK_REPOSITORY;
    case CACHE_IS_VALUE:
      break;
  }
  logger.trace("Non of the cases - logic error, for path <%s>", key);
  return TAKE;
}

CFG_CacheGrid::Answer CFG_CacheGrid::get_subtree(const RWCString& key, CFG_SubTree*& subtree) {
  switch (m_client->GetSubTree(key, &subtree)) {
    case CACHE_FOUND:
      logger.trace("Subtree <%s> found in cache, will load it from cache", key);
      return TAKE;
    case CACHE_DOES_NOT_EXIST:
    case CACHE_NO_ENTRY:
      logger.trace("subtree not found in cache, path = <%s>", key);
      return ASK_REPOSITORY;
    case CACHE_IS_VALUE:
      logger.trace("got value while expecting subtree in path <%s>", key);
      return TAKE;
    case CACHE_FAILED:
      give_up();
      return ASK_REPOSITORY;
    case CACHE_IS_SUBTREE:
      break;
  }
  logger.trace("Non of the cases - logic error, for path <%s>", key);
  return TAKE;
}

// Of a search: only what is found ends it, at the place that comes first.

CFG_CacheGrid::Answer CFG_CacheGrid::find_value(const RWCString& key, RWCString& value) {
  const CFG_CacheQueryResult result = m_client->GetValue(key, value);
  if (result == CACHE_FAILED) give_up();
  if (result != CACHE_FOUND) return ASK_REPOSITORY;
  logger.trace("path found in cache and valid. path = <%s>, value = <%s>", key, value);
  return TAKE;
}

CFG_CacheGrid::Answer CFG_CacheGrid::find_subtree(const RWCString& key, CFG_SubTree*& subtree) {
  const CFG_CacheQueryResult result = m_client->GetSubTree(key, &subtree);
  if (result == CACHE_FAILED) give_up();
  if (result != CACHE_FOUND) return ASK_REPOSITORY;
  logger.trace("subtree found in cache. path = <%s>", key);
  return TAKE;
}

// --- changes -------------------------------------------------------------------------------------

bool CFG_CacheGrid::tell_client(Change change, const RWCString& key, const RWCString& value) const {
  switch (change) {
    case VALUE_SET:
      logger.trace("Going to set path = <%s> with value = <%s> to cache", key, value);
      return m_client->SetValue(key, value);
    case VALUE_DELETED:
      logger.trace("Going to delete path = <%s> from cache", key);
      return m_client->DeleteValue(key);
    case SUBTREE_DELETED:
      logger.trace("Going to delete path = <%s> from cache", key);
      return m_client->DeleteSubTree(key);
    case SUBTREE_WRITTEN:
      logger.trace("Going to update path = <%s> to cache", key);
      break;
    case HIDDEN:
      break;
  }
  return m_client->UpdateSubTree(nullptr, key, key.str());
}

void CFG_CacheGrid::tell(Change change, const RWCString& key, const RWCString& value,
                         bool in_update) {
  if (in_update) {
    // Told now, so that nobody reads on; and again when others see it.
    const MutexGuard guard(m_mutex);
    const bool is_too_much = m_written.size() >= kMostWritten;
    if (is_too_much) m_written.clear();
    const bool is_value = change == VALUE_SET || change == VALUE_DELETED;
    m_written.push_back({std::this_thread::get_id(), is_value ? VALUE_DELETED : HIDDEN,
                         is_too_much ? RWCString() : key});
    m_has_written = true;
  }
  if (!tell_client(change, key, value)) give_up();
}

void CFG_CacheGrid::settle(bool all) {
  if (!m_has_written) return;
  std::vector<Written> over, others;
  {
    const MutexGuard guard(m_mutex);
    for (Written& written : m_written) {
      const bool is_over = all || written.thread == std::this_thread::get_id();
      (is_over ? over : others).push_back(std::move(written));
    }
    m_written.swap(others);
    m_has_written = !m_written.empty();
  }
  for (const Written& written : over) {
    if (!m_is_usable) return;
    const bool is_told = written.change == VALUE_DELETED
                             ? m_client->DeleteValue(written.key)
                             : m_client->UpdateSubTree(nullptr, written.key, written.key.str());
    if (!is_told) give_up();
  }
}
