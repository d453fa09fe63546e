#include <CFG/remote/connector_pool.h>

namespace cfg {

connector_pool::~connector_pool() = default;

CFG_Connector* connector_pool::bound() {
  const MutexGuard guard(m_mutex);
  const auto entry = m_bound.find(std::this_thread::get_id());
  return entry == m_bound.end() ? nullptr : entry->second.get();
}

std::unique_ptr<CFG_Connector> connector_pool::take() {
  const MutexGuard guard(m_mutex);
  if (m_free.empty()) return nullptr;
  std::unique_ptr<CFG_Connector> freshest = std::move(m_free.back());
  m_free.pop_back();
  return freshest;
}

void connector_pool::give_back(CFG_Connector* connector) {
  std::unique_ptr<CFG_Connector> oldest;  // is closed without the lock
  const MutexGuard guard(m_mutex);
  if (m_bound.count(std::this_thread::get_id())) return;
  connector->CounterDisconnect();
  m_free.emplace_back(connector);
  if (m_free.size() > most_free || (m_free.size() > 1 && m_free.front()->IsStale())) {
    oldest = std::move(m_free.front());
    m_free.erase(m_free.begin());
  }
}

bool connector_pool::bind(CFG_Connector* connector) {
  if (!watch_thread()) return false;
  const MutexGuard guard(m_mutex);
  const auto [entry, is_new] = m_bound.try_emplace(std::this_thread::get_id());
  if (is_new) entry->second.reset(connector);
  if (m_is_interrupted) connector->Interrupt();
  return is_new;
}

void connector_pool::unbind() {
  const MutexGuard guard(m_mutex);
  const auto entry = m_bound.find(std::this_thread::get_id());
  if (entry == m_bound.end()) return;
  static_cast<void>(entry->second.release());  // whoever ends it gives it back
  m_bound.erase(entry);
}

bool connector_pool::give_up_bound() {
  std::unique_ptr<CFG_Connector> left;  // is closed without the lock
  const MutexGuard guard(m_mutex);
  const auto entry = m_bound.find(std::this_thread::get_id());
  if (entry == m_bound.end()) return false;
  left = std::move(entry->second);
  m_bound.erase(entry);
  return true;
}

// What other threads use may be half changed and stays as it is.
void connector_pool::told(void* pool, ForkHandler::Phase phase) THREADAPI_UNCHECKED {
  auto& self = *static_cast<connector_pool*>(pool);
  if (phase == ForkHandler::BEFORE) return self.m_mutex.lock();
  if (phase == ForkHandler::IN_CHILD) {
    self.m_free.clear();
    for (auto& [thread, bound] : self.m_bound) static_cast<void>(bound.release());
    self.m_bound.clear();
  }
  self.m_mutex.unlock();
}

void connector_pool::interrupt() {
  const MutexGuard guard(m_mutex);
  m_is_interrupted = true;
  for (const auto& [thread, connector] : m_bound) connector->Interrupt();
}

void connector_pool::disconnect_free() {
  const MutexGuard guard(m_mutex);
  for (const auto& connector : m_free) connector->Disconnect();
}

}  // namespace cfg
