// The stopwatch.
#pragma once

#include <chrono>
#include <cstdint>

// Milliseconds on the high-resolution counter, of one run and of all together. What is not
// started costs nothing: no operation but Start, and those after it, looks at the counter.
// One thread at a time.
class Tmr_Stopper {
 public:
  void Start() {
    m_start = ticks();
    m_is_running = true;
  }
  bool IsRunning() const { return m_is_running; }

  // Since Start; 0 when it does not run.
  double Milliseconds() const { return m_is_running ? milliseconds(ticks() - m_start) : 0; }

  // The same, as the end of this run.
  double Stop() {
    const double time = Milliseconds();
    m_total += time;
    m_count += m_is_running;
    m_is_running = false;
    return time;
  }

  int Count() const { return m_count; }                 // runs that have been stopped
  double TotalMilliseconds() const { return m_total; }  // of all these

 private:
  using Counter = std::chrono::steady_clock;
  static int64_t ticks() { return Counter::now().time_since_epoch().count(); }
  static double milliseconds(int64_t count) {
    constexpr double frequency = double{Counter::period::den} / Counter::period::num;
    return static_cast<double>(count) * 1000 / frequency;
  }

  bool m_is_running = false;
  int m_count = 0;
  int64_t m_start = 0;
  double m_total = 0;
};
