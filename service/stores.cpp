#include "stores.h"

#include <logging/Logger.h>

namespace service {

namespace {

constexpr Log_Logger logger("service/stores", 508);

constexpr size_t MOST_KEPT = 16;  // more are closed when they come back

// Nothing is open over it any more.
bool is_settled(StoreRepository& repository) {
  if (repository.GetAutoCommit()) return true;
  if (!repository.Rollback()) return false;
  repository.SetAutoCommit(TRUE);
  return repository.GetAutoCommit() != 0;
}

}  // namespace

Stores::Stores(RWCString connection, RWCString user, int write_wait)
    : m_connection(std::move(connection)), m_user(std::move(user)), m_write_wait(write_wait) {}

Stores::Lease Stores::lease() {
  {
    const MutexGuard guard(m_mutex);
    if (!m_free.empty()) {
      StoreRepository* last = m_free.back().release();
      m_free.pop_back();
      return Lease(last, Return{this});
    }
  }
  auto fresh = std::make_unique<StoreRepository>(m_connection, m_user);
  if (!fresh->Connect()) return Lease(nullptr, Return{this});
  fresh->SetWriteWait(m_write_wait);
  return Lease(fresh.release(), Return{this});
}

void Stores::take_back(StoreRepository* repository) noexcept {
  std::unique_ptr<StoreRepository> back(repository);
  try {
    if (!is_settled(*back)) {
      logger.error("a transaction could not be undone: its connection to the store is closed\n");
      return;
    }
    const MutexGuard guard(m_mutex);
    if (m_free.size() < MOST_KEPT) m_free.push_back(std::move(back));
  } catch (const std::exception& failure) {
    logger.error("a connection to the store is closed: %s\n", failure.what());
  }
}

void Stores::shrink(size_t kept) {
  std::vector<std::unique_ptr<StoreRepository>> unused;  // are closed without the lock
  const MutexGuard guard(m_mutex);
  while (m_free.size() > kept) {
    unused.push_back(std::move(m_free.back()));
    m_free.pop_back();
  }
}

}  // namespace service
