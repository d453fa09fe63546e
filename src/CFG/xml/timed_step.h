// Timing of a step, where performance is monitored.
#pragma once

#include <strings/RWCString.h>
#include <utility/Tmr_PerformanceMonitorCounters.h>

namespace cfg {

// Marks the counter of that name with the time for which this object lives.
class timed_step {
 public:
  explicit timed_step(const char* name) : m_name(is_on() ? name : nullptr) {
    if (!m_name) return;
    counters().AddCounter(counter_type, m_name);
    counters().Start(m_name);
  }
  timed_step(const timed_step&) = delete;
  timed_step& operator=(const timed_step&) = delete;
  ~timed_step() {
    if (m_name) counters().Mark(m_name);
  }

 private:
  static constexpr int counter_type = 3;
  static bool is_on() { return Tmr_PerformanceMonitorCounters::GetLevel(counter_type) > 4; }
  static Tmr_PerformanceMonitorCounters& counters() {
    return Tmr_PerformanceMonitorCounters::GetInstance();
  }
  const char* const m_name;  // null when nothing is measured
};

}  // namespace cfg
