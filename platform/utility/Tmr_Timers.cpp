#include <utility/Tmr_Timers.h>

#include <algorithm>

namespace {

constexpr size_t kKeptRoom = 1024;

bool is_same_second(Tmr_Timers::Time a, Tmr_Timers::Time b) {
  using std::chrono::floor;
  using std::chrono::seconds;
  return floor<seconds>(a) == floor<seconds>(b);
}

}  // namespace

void Tmr_Timers::Set(Tmr_TimerInterace* listener, std::string_view name, Time due) {
  auto found = m_names.find(Key(listener, name));
  if (found != m_names.end() && is_same_second(found->last_due, due)) return;
  m_timers.push_back({due, nullptr});  // the room first: a name without timers would stay
  try {
    if (found == m_names.end()) found = m_names.insert({listener, RWCString(name)}).first;
  } catch (...) {
    m_timers.pop_back();
    throw;
  }
  m_timers.back().name = &*found;
  ++found->timers;
  found->last_due = due;
  std::push_heap(m_timers.begin(), m_timers.end(), std::greater<>());
}

bool Tmr_Timers::Take(Time now, Fired& fired) {
  if (empty() || next() > now) return false;
  std::pop_heap(m_timers.begin(), m_timers.end(), std::greater<>());
  const auto [due, name] = m_timers.back();
  m_timers.pop_back();
  if (m_timers.capacity() > kKeptRoom && m_timers.size() < m_timers.capacity() / 4) {
    m_timers.shrink_to_fit();
  }
  fired.listener = name->listener;
  if (--name->timers) {
    fired.name = name->text;
    if (name->last_due == due) name->last_due = Time();
  } else {
    fired.name = std::move(m_names.extract(m_names.find(Key(*name))).value().text);
  }
  return true;
}

template <class Is>
void Tmr_Timers::remove(const Is& is_meant) {
  std::erase_if(m_timers, [&](const Timer& timer) { return is_meant(*timer.name); });
  std::make_heap(m_timers.begin(), m_timers.end(), std::greater<>());
  std::erase_if(m_names, is_meant);
}

void Tmr_Timers::Cancel(Tmr_TimerInterace* listener, std::string_view name) {
  const auto found = m_names.find(Key(listener, name));
  if (found == m_names.end()) return;
  remove([meant = &*found](const Name& each) { return &each == meant; });
}

void Tmr_Timers::CancelAll(Tmr_TimerInterace* listener) {
  if (!empty()) remove([listener](const Name& each) { return each.listener == listener; });
}
