// Lines that come again and again.
#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <logging/Tmr_GLog.h>

// Counts what is written in a second, and says when a line came too often. One thread at a time.
class Log_Repeats {
 public:
  using Time = std::chrono::steady_clock::time_point;
  struct HeldBack {
    Log_Origin origin;
    std::string text;  // with how often it came besides
  };

  // So often the same line is written in a second; 0: as often as it comes.
  explicit Log_Repeats(size_t most) : m_most(most) {}

  // Whether the line is to be written. `now` is in the second that has begun last.
  bool admits(const Log_Origin& origin, std::string_view text);
  // Begins a new second when that is over, or at once. What was held back in the last one.
  std::vector<HeldBack> next_second(Time now);
  std::vector<HeldBack> take();

 private:
  struct Line {
    Log_Origin origin;
    size_t count = 0;
  };
  struct Hash : std::hash<std::string_view> {
    using is_transparent = void;
  };

  size_t m_most;
  Time m_begin{};
  std::unordered_map<std::string, Line, Hash, std::equal_to<>> m_lines;  // of this second
};
