#include <CFG/CFG_PerformanceEvent.h>

#include <chrono>
#include <new>

#include <events/KestralEvent.h>

namespace {

constexpr const char* names[] = {"GetValue",     "GetSubTree",  "SetValue",
                                 "WriteSubTree", "DeleteValue", "DeleteSubTree"};

}  // namespace

int64_t CFG_PerformanceEvent::now() {
  return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void CFG_PerformanceEvent::send() const try {
  const double milliseconds = static_cast<double>(now() - m_start) / 1e6;
  KestralEvent::CFGPerformance(m_operation, m_path, m_source,
                               names[m_operation - PERFORMANCE_GET_VALUE], milliseconds, m_flag,
                               m_count)
      .Send();
} catch (const std::bad_alloc&) {
  // The event is lost; what it is about was done.
}
