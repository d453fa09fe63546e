#include "lock.h"

#include <ctime>
#include <exception>

#include <logging/Logger.h>

namespace service {

namespace {

constexpr Log_Logger logger("service/lock", 508);

std::string local_time() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  char text[32] = "";
  if (localtime_r(&now, &local)) std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
  return text;
}

}  // namespace

Lock::Lock(std::string holder, Held held, bool is_extended, GiveBack give_back)
    : m_holder(std::move(holder) + " since " + local_time()),
      m_give_back(std::move(give_back)),
      m_held(std::move(held)),
      m_is_extended(is_extended) {}

Lock::Use Lock::use(const std::shared_ptr<Lock>& lock) {
  const MutexGuard guard(lock->m_mutex);
  if (!lock->m_held) return Use();
  lock->m_is_in_use = true;
  return Use(lock);
}

bool Lock::Use::is_overdue() const {
  const MutexGuard guard(m_lock->m_mutex);
  return !m_lock->m_lost.empty();
}

void Lock::Use::end() noexcept {
  if (const auto lock = std::exchange(m_lock, nullptr)) lock->end_use();
}

Lock::Held Lock::Use::release() {
  const auto lock = std::exchange(m_lock, nullptr);
  const MutexGuard guard(lock->m_mutex);
  lock->m_is_in_use = false;
  Held held = *std::move(lock->m_held);
  lock->m_held.reset();
  return held;
}

void Lock::end_use() noexcept {
  std::optional<Held> held;
  {
    const MutexGuard guard(m_mutex);
    m_is_in_use = false;
    m_last_used = Clock::now();
    if (!m_lost.empty()) held.swap(m_held);
  }
  give_back(std::move(held));
}

std::string Lock::lost() {
  const MutexGuard guard(m_mutex);
  return "the lock was lost, and what was not committed is undone: " + m_lost;
}

std::string Lock::holder() {
  const MutexGuard guard(m_mutex);
  return m_held ? m_holder : std::string();
}

void Lock::set_extended(bool is_extended) {
  const MutexGuard guard(m_mutex);
  m_is_extended = is_extended;
}

bool Lock::is_kept_busy() {
  const MutexGuard guard(m_mutex);
  return m_is_in_use && !m_lost.empty();
}

bool Lock::check_time(Clock::time_point now, const Limits& limits, std::string& reason) {
  {
    const MutexGuard guard(m_mutex);
    if (!m_held || !m_lost.empty()) return false;
    const auto most = m_is_extended ? limits.held_extended : limits.held;
    if (now >= m_since + most) {
      reason = "it was held for more than " + std::to_string(most.count()) + " s";
    } else if (!m_is_in_use && now >= m_last_used + limits.silent) {
      reason = "its client sent nothing for " + std::to_string(limits.silent.count()) + " s";
    } else {
      return false;
    }
  }
  take_away(reason);
  return true;
}

void Lock::take_away(const std::string& reason) {
  std::optional<Held> held;
  {
    const MutexGuard guard(m_mutex);
    if (!m_held || !m_lost.empty()) return;
    m_lost = reason;
    if (!m_is_in_use) held.swap(m_held);
  }
  give_back(std::move(held));
}

void Lock::give_back(std::optional<Held> held) noexcept try {
  if (held) m_give_back(*std::move(held));
} catch (const std::exception& failure) {  // it has gone back all the same
  logger.error("the lock of %s was given back late: %s\n", m_holder, failure.what());
}

}  // namespace service
