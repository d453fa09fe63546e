#include "write_turn.h"

#include <algorithm>
#include <iterator>
#include <vector>

namespace service {

void WriteTurn::ask(Time until, Called called) {
  {
    const MutexGuard guard(m_mutex);
    if (m_is_taken) {
      m_waiting.push_back({until, std::move(called)});
      return;
    }
    m_is_taken = true;
  }
  called(true);
}

void WriteTurn::give_back() {
  Called next;
  {
    const MutexGuard guard(m_mutex);
    m_is_taken = !m_waiting.empty();
    if (!m_is_taken) return;
    next = std::move(m_waiting.front().called);
    m_waiting.pop_front();
  }
  next(true);
}

void WriteTurn::refuse_late(Time now) {
  std::vector<Waiting> late;
  {
    const MutexGuard guard(m_mutex);
    const auto rest = std::stable_partition(m_waiting.begin(), m_waiting.end(),
                                            [&](const Waiting& w) { return w.until > now; });
    late.assign(std::make_move_iterator(rest), std::make_move_iterator(m_waiting.end()));
    m_waiting.erase(rest, m_waiting.end());
  }
  for (const Waiting& waiting : late) waiting.called(false);
}

}  // namespace service
