#include <utility/Tmr_PerformanceMonitorCounters.h>

#include <algorithm>
#include <string>

#include <logging/Logger.h>
#include <system/Sys_Environment.h>

namespace {

constexpr Log_Logger logger("platform/utility/Tmr_PerformanceMonitorCounters",
                            Tmr_PerformanceMonitorCounters::MODULE);

std::string enabled_types() {
  RWCString types;
  Sys_Environment::Get("HALVORIA_PERFORMANCE", types);
  return "," + types.str() + ",";
}

ForkOnce types_are_read(ForkHandler::VALUES);
std::string& types = *new std::string;  // never destroyed, as threads may ask late

}  // namespace

Tmr_PerformanceMonitorCounters& Tmr_PerformanceMonitorCounters::GetInstance() {
  static Tmr_PerformanceMonitorCounters& instance = *new Tmr_PerformanceMonitorCounters;
  return instance;
}
// No child of a fork waits for its making.
[[maybe_unused]] static const Tmr_PerformanceMonitorCounters& made_early =
    Tmr_PerformanceMonitorCounters::GetInstance();

bool Tmr_PerformanceMonitorCounters::IsEnabled(int type) {
  types_are_read.call([] { types = enabled_types(); });
  if (types.size() == 2) return false;
  return types == ",all," || types.find("," + std::to_string(type) + ",") != types.npos;
}

int Tmr_PerformanceMonitorCounters::GetLevel(int type) {
  return IsEnabled(type) ? TmrGLog.GetLevel(MODULE) : 4;
}

void Tmr_PerformanceMonitorCounters::AddCounter(int counter_type, const RWCString& name) {
  const MutexGuard guard(m_mutex);
  const auto [counter, is_new] = m_counters.try_emplace(name);
  if (is_new) counter->second.type = counter_type;
}

void Tmr_PerformanceMonitorCounters::Start(const RWCString& name) {
  const MutexGuard guard(m_mutex);
  const auto found = m_counters.find(name);
  if (found == m_counters.end()) return;
  found->second.started = std::chrono::steady_clock::now();
  found->second.is_started = true;
}

void Tmr_PerformanceMonitorCounters::Mark(const RWCString& name) {
  const MutexGuard guard(m_mutex);
  const auto found = m_counters.find(name);
  if (found != m_counters.end()) found->second.mark();
}

void Tmr_PerformanceMonitorCounters::Stop(const RWCString& name) {
  Counter seen;
  {
    const MutexGuard guard(m_mutex);
    const auto found = m_counters.find(name);
    if (found == m_counters.end()) return;
    found->second.mark();
    found->second.is_started = false;
    seen = found->second;
  }
  logger.info("counter %s: %lld times, %.3f ms, longest %.3f ms\n", name, seen.marks, seen.total_ms,
              seen.longest_ms);
}

bool Tmr_PerformanceMonitorCounters::GetCounter(const RWCString& name, Counter& out) const {
  const MutexGuard guard(m_mutex);
  const auto found = m_counters.find(name);
  if (found == m_counters.end()) return false;
  out = found->second;
  return true;
}

void Tmr_PerformanceMonitorCounters::Running::mark() {
  if (!is_started) return;
  const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - started;
  ++marks;
  total_ms += took.count();
  longest_ms = std::max(longest_ms, took.count());
}
