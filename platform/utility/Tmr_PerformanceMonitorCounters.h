// Timing of what a process spends its time on.
#pragma once

#include <chrono>
#include <map>

#include <strings/Export.h>
#include <strings/RWCString.h>
#include <thread/ForkHandler.h>

// Counters by name, off unless the environment variable HALVORIA_PERFORMANCE lists the types of
// monitoring that are wanted ("2,3" or "all"). Ask IsEnabled first: counters that nobody
// added cost a lookup and do nothing. What a stopped counter has seen is logged (5) under
// module 504. One instance for the process; any thread may call, but the time between
// start and mark is the counter's, so threads that measure at once need a name each.
class HALVORIA_API Tmr_PerformanceMonitorCounters {
 public:
  static constexpr int MODULE = 504;
  struct Counter {
    int type = 0;
    long long marks = 0;
    double total_ms = 0, longest_ms = 0;  // of all marks
  };

  static Tmr_PerformanceMonitorCounters& GetInstance();  // never destroyed

  static bool IsEnabled(int type);
  // How much is to be measured: the log level of MODULE when monitoring of that type is
  // enabled, else 4. Above 4, measure.
  static int GetLevel(int type);

  void AddCounter(int counter_type, const RWCString& name);  // nothing for one that is there
  void Start(const RWCString& name);
  void Mark(const RWCString& name);  // counts the time since the last start
  void Stop(const RWCString& name);  // marks and logs; a counter that is not started just logs

  // Copies the counter to `out` and returns true; leaves it alone when there is none.
  bool GetCounter(const RWCString& name, Counter& out) const;

 private:
  using Time = std::chrono::steady_clock::time_point;
  struct Running : Counter {
    Time started{};
    bool is_started = false;
    void mark();
  };

  mutable ForkMutex m_mutex{ForkHandler::VALUES};
  std::map<RWCString, Running> m_counters THREADAPI_GUARDED_BY(m_mutex);
};
