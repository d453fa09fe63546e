#include <CFG/detail/properties.h>

#include <memory>

#include <ace/Guard_T.h>

namespace cfg {

PropertiesWrapper& PropertiesWrapper::of_process() {
  static PropertiesWrapper& table = *new PropertiesWrapper;
  return table;
}

static const PropertiesWrapper& made_early = PropertiesWrapper::of_process();

void PropertiesWrapper::told(void* table, ForkHandler::Phase phase) {
  ACE_Thread_Mutex& lock = static_cast<PropertiesWrapper*>(table)->m_lock;
  phase == ForkHandler::BEFORE ? lock.acquire() : lock.release();
}

PropertiesWrapper::Entry* PropertiesWrapper::entry(std::string_view name) const {
  const auto& head = m_buckets[std::hash<std::string_view>()(name) % m_buckets.size()];
  for (auto* e = head.load(std::memory_order_acquire); e; e = const_cast<Entry*>(e->next)) {
    if (e->name == name) return e;
  }
  return nullptr;
}

std::string_view PropertiesWrapper::find(std::string_view name) const {
  const Entry* found = entry(name);
  return found ? std::string_view(*found->text.load(std::memory_order_acquire))
               : std::string_view();
}

std::string_view PropertiesWrapper::set(std::string_view name, std::string_view text) {
  ACE_Guard<ACE_Thread_Mutex> guard(m_lock);
  const std::string* kept = kept_text(text);
  if (Entry* present = entry(name)) {
    const std::string* before = present->text.exchange(kept, std::memory_order_acq_rel);
    return before == kept ? std::string_view() : std::string_view(*before);
  }
  auto& head = m_buckets[std::hash<std::string_view>()(name) % m_buckets.size()];
  Entry* const first = head.load(std::memory_order_relaxed);
  head.store(new Entry{std::string(name), kept, first}, std::memory_order_release);
  return {};
}

const std::string* PropertiesWrapper::kept_text(std::string_view text) {
  const auto known = m_texts.find(text);
  if (known != m_texts.end()) return known->second;
  auto fresh = std::make_unique<const std::string>(text);
  m_texts.emplace(*fresh, fresh.get());
  return fresh.release();
}

}  // namespace cfg
