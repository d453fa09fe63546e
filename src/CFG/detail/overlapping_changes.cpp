#include <CFG/detail/overlapping_changes.h>

#include <algorithm>
#include <utility>

#include <CFG/detail/paths.h>

namespace cfg {

namespace {

constexpr size_t kMostKeys = 1000;  // of an update; beyond, it is taken to change everything

// Whether a change at the one concerns what is read at the other.
bool concern(std::string_view a, std::string_view b) {
  return a.empty() || b.empty() || a == b || has_key_inside(a, b) || has_key_inside(b, a);
}

}  // namespace

overlapping_changes::Use::Use(overlapping_changes& all, std::string_view key,
                              std::vector<std::string>* changed)
    : m_all(all), m_key(key), m_changed(changed) {
  const MutexGuard guard(m_all.m_mutex);
  m_all.look_for_pending(*this);
  m_all.m_uses.push_back(this);
}

overlapping_changes::Use::~Use() {
  const MutexGuard guard(m_all.m_mutex);
  std::erase(m_all.m_uses, this);
}

void overlapping_changes::note(std::string_view key, const Use* by) {
  for (Use* use : m_uses) {
    if (use != by && concern(use->m_key, key)) overtake(*use, key);
  }
  const auto update = m_updates.find(std::this_thread::get_id());
  if (update == m_updates.end()) return;
  auto& keys = update->second;
  if (keys.size() >= kMostKeys) keys.assign(1, std::string());
  if (std::find(keys.begin(), keys.end(), key) == keys.end()) keys.emplace_back(key);
}

void overlapping_changes::overtake(Use& use, std::string_view by) {
  use.m_is_overtaken = true;
  auto* const changed = use.m_changed;
  if (!changed || (!changed->empty() && changed->front().empty())) return;
  if (changed->size() >= kMostKeys) return changed->assign(1, std::string());
  changed->emplace_back(by);
}

void overlapping_changes::look_for_pending(Use& use) const {
  const auto mine = std::this_thread::get_id();
  for (const auto& [thread, keys] : m_updates) {
    if (thread == mine) continue;
    for (const std::string& changed : keys) {
      if (concern(changed, use.m_key)) overtake(use, changed);
    }
  }
}

void overlapping_changes::begin_update() {
  const MutexGuard guard(m_mutex);
  ++m_begun_updates;
  m_updates.try_emplace(std::this_thread::get_id());
}

bool overlapping_changes::end_update() {
  const MutexGuard guard(m_mutex);
  return m_updates.erase(std::this_thread::get_id()) != 0;
}

std::vector<std::string> overlapping_changes::take_changed() {
  const MutexGuard guard(m_mutex);
  const auto update = m_updates.find(std::this_thread::get_id());
  if (update == m_updates.end()) return {};
  return std::exchange(update->second, {});
}

// Who was at the store when the process forked is not there in the child.
void overlapping_changes::told(void* object, ForkHandler::Phase phase) THREADAPI_UNCHECKED {
  auto& self = *static_cast<overlapping_changes*>(object);
  if (phase == ForkHandler::BEFORE) return self.m_mutex.lock();
  if (phase == ForkHandler::IN_CHILD) {
    self.m_uses.clear();
    self.m_updates.clear();
  }
  self.m_mutex.unlock();
}

}  // namespace cfg
