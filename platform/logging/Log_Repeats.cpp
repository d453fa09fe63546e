#include <logging/Log_Repeats.h>

namespace {
constexpr size_t kLines = 1000;  // different ones in a second; what comes besides is not counted
}

bool Log_Repeats::admits(const Log_Origin& origin, std::string_view text) {
  if (!m_most) return true;
  auto found = m_lines.find(text);
  if (found == m_lines.end()) {
    if (m_lines.size() >= kLines) return true;
    found = m_lines.emplace(text, Line()).first;
  }
  found->second.origin = origin;
  return ++found->second.count <= m_most;
}

std::vector<Log_Repeats::HeldBack> Log_Repeats::next_second(Time now) {
  if (now - m_begin < std::chrono::seconds(1)) return {};
  m_begin = now;
  return take();
}

std::vector<Log_Repeats::HeldBack> Log_Repeats::take() {
  std::vector<HeldBack> held_back;
  for (const auto& [text, line] : m_lines) {
    if (line.count <= m_most) continue;
    const std::string_view one_line =
        std::string_view(text).substr(0, text.find_last_not_of('\n') + 1);
    held_back.push_back({line.origin, std::string(one_line) + " (and " +
                                          std::to_string(line.count - m_most) + " times more)"});
  }
  m_lines.clear();
  return held_back;
}
