// Timers as they are usually kept: a map from when one is due to whom it calls with what.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <string_view>
#include <utility>

class Tmr_TimerInterace;

namespace bench {

class time_map {
 public:
  static constexpr const char* name = "std::multimap of times and names";

  void Set(Tmr_TimerInterace* listener, std::string_view text,
           std::chrono::steady_clock::time_point due) {
    m_timers.emplace(due, std::pair(listener, std::string(text)));
  }

 private:
  std::multimap<std::chrono::steady_clock::time_point, std::pair<Tmr_TimerInterace*, std::string>>
      m_timers;
};

}  // namespace bench
