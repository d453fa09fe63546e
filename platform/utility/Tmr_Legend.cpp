#include <utility/Tmr_Legend.h>

#include <algorithm>

Tmr_Legend& Tmr_Legend::GetInstance() {
  static Tmr_Legend& instance = *new Tmr_Legend;
  return instance;
}
// No child of a fork waits for its making.
[[maybe_unused]] static const Tmr_Legend& made_early = Tmr_Legend::GetInstance();

int Tmr_Legend::Register(const RWCString& name) {
  const MutexGuard guard(m_mutex);
  const auto found = std::find(m_names.begin(), m_names.end(), name);  // a few dozen at most
  const auto id = static_cast<int>(found - m_names.begin()) + 1;
  if (found == m_names.end()) m_names.push_back(name);
  return id;
}

RWCString Tmr_Legend::GetName(int id) const {
  const MutexGuard guard(m_mutex);
  const bool is_known = id > 0 && static_cast<size_t>(id) <= m_names.size();
  return is_known ? m_names[static_cast<size_t>(id) - 1] : RWCString();
}
