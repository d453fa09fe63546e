#include "stores.h"

namespace service {

namespace {

constexpr size_t MOST_KEPT = 16;  // more are closed when they come back

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

void Stores::take_back(StoreRepository* repository) {
  std::unique_ptr<StoreRepository> back(repository);
  const MutexGuard guard(m_mutex);
  if (m_free.size() < MOST_KEPT) m_free.push_back(std::move(back));
}

}  // namespace service
