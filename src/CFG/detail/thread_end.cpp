#include <CFG/detail/thread_end.h>

#include <algorithm>
#include <vector>

#include <logging/Logger.h>

namespace cfg {

namespace {

constexpr Log_Logger logger("src/CFG/CFG_Repository", 502);

// What watches a thread.
struct ThreadEnd {
  ~ThreadEnd() {
    is_over = true;
    for (const auto& known : watching) {
      const auto bound = known.lock();
      if (!bound || !bound->end_with_thread()) continue;
      logger.warning("a thread ended within a transaction: what it has not committed is undone\n");
    }
  }
  void tell(const std::weak_ptr<thread_bound>& bound) {
    const auto is_same = [&](const auto& known) {
      return !known.owner_before(bound) && !bound.owner_before(known);
    };
    if (std::any_of(watching.begin(), watching.end(), is_same)) return;
    watching.erase(std::remove_if(watching.begin(), watching.end(),
                                  [](const auto& known) { return known.expired(); }),
                   watching.end());
    watching.push_back(bound);
  }

  std::vector<std::weak_ptr<thread_bound>> watching;
  // Without a destructor, so that whatever ends later on the thread can look at it.
  static thread_local bool is_over;
};
thread_local bool ThreadEnd::is_over = false;
thread_local ThreadEnd thread_end;

}  // namespace

bool thread_bound::watch_thread() {
  if (ThreadEnd::is_over) return false;
  thread_end.tell(weak_from_this());
  return true;
}

}  // namespace cfg
