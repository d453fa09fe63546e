#include "quota.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <vector>

#include <logging/Logger.h>

namespace service {

namespace {
constexpr Log_Logger logger("service/quota", 508);
}

void Quota::ask(int64_t amount, Time until, Called called) {
  amount = std::min(amount, m_whole);
  {
    const MutexGuard guard(m_mutex);
    if (!m_waiting.empty() || amount > m_left) {
      m_waiting.push_back({amount, until, std::move(called)});
      return;
    }
    m_left -= amount;
  }
  called(Share(*this, amount));
}

Quota::Share Quota::take(int64_t amount) {
  amount = std::min(amount, m_whole);
  const MutexGuard guard(m_mutex);
  if (!m_waiting.empty() || amount > m_left) return Share();
  m_left -= amount;
  return Share(*this, amount);
}

bool Quota::is_awaited() {
  const MutexGuard guard(m_mutex);
  return !m_waiting.empty();
}

bool Quota::Share::grow(int64_t more) {
  if (!m_quota) return false;
  const MutexGuard guard(m_quota->m_mutex);
  if (more > m_quota->m_left) return false;
  m_quota->m_left -= more;
  m_amount += more;
  return true;
}

void Quota::Share::shrink(int64_t amount) {
  if (amount >= this->amount()) return;
  const int64_t before = std::exchange(m_amount, amount);
  m_quota->take_back(before - amount);
}

uint64_t Quota::returned() {
  const MutexGuard guard(m_mutex);
  return m_returned;
}

bool Quota::next(Waiting& next) {
  const MutexGuard guard(m_mutex);
  if (m_waiting.empty() || m_waiting.front().amount > m_left) return false;
  next = std::move(m_waiting.front());
  m_waiting.pop_front();
  m_left -= next.amount;
  return true;
}

void Quota::take_back(int64_t amount) noexcept {
  {
    const MutexGuard guard(m_mutex);
    m_left += amount;
    ++m_returned;
  }
  Waiting waiting;
  while (next(waiting)) {
    try {
      waiting.called(Share(*this, waiting.amount));
    } catch (const std::exception& failure) {  // its share has come back
      logger.error("who waited could not go on: %s\n", failure.what());
    }
  }
}

void Quota::refuse_late(Time now) {
  std::vector<Waiting> late;
  {
    const MutexGuard guard(m_mutex);
    const auto rest = std::stable_partition(m_waiting.begin(), m_waiting.end(),
                                            [&](const Waiting& w) { return w.until > now; });
    late.assign(std::make_move_iterator(rest), std::make_move_iterator(m_waiting.end()));
    m_waiting.erase(rest, m_waiting.end());
  }
  for (Waiting& waiting : late) waiting.called(Share());
  // A large one may have kept smaller ones waiting.
  if (!late.empty()) take_back(0);
}

}  // namespace service
