#include <common/machine.h>

#include <sys/resource.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>

#include <common/clock.h>

namespace bench {
namespace {

// What stands after the key in a file of lines "key<separator>value".
std::string looked_up(const char* file, const std::string& key, char separator) {
  std::ifstream in(file);
  for (std::string line; std::getline(in, line);) {
    if (line.rfind(key, 0) != 0) continue;
    const size_t at = line.find_first_not_of(" \t\"", line.find(separator) + 1);
    return at == line.npos ? std::string() : line.substr(at, line.find_last_not_of("\" ") - at + 1);
  }
  return {};
}

// Seconds that the processors worked for programs and for the system itself.
double busy_seconds() {
  std::istringstream in(looked_up("/proc/stat", "cpu ", ' '));
  enum { USER, NICE, SYSTEM, IDLE, IO_WAIT, IRQ, SOFT_IRQ, KINDS };
  double ticks[KINDS] = {};
  for (double& figure : ticks) in >> figure;
  const double busy = ticks[USER] + ticks[NICE] + ticks[SYSTEM] + ticks[IRQ] + ticks[SOFT_IRQ];
  return busy / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

double own_seconds() {
  double seconds = 0;
  for (const auto who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
    rusage used{};
    ::getrusage(who, &used);
    for (const timeval& part : {used.ru_utime, used.ru_stime}) {
      seconds += static_cast<double>(part.tv_sec) + static_cast<double>(part.tv_usec) * 1e-6;
    }
  }
  return seconds;
}

std::string today() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  char text[16];
  ::localtime_r(&now, &parts);
  std::strftime(text, sizeof text, "%Y-%m-%d", &parts);
  return text;
}

double in_tenths(double value) { return std::round(value * 10) / 10; }

}  // namespace

machine::machine() : m_start(now_ns(WALL) * 1e-9), m_busy_before(busy_seconds()) {}

nlohmann::json machine::to_json() const {
  const double elapsed = now_ns(WALL) * 1e-9 - m_start;
  const double others = (busy_seconds() - m_busy_before - own_seconds()) / elapsed;
  struct sysinfo memory {};
  ::sysinfo(&memory);
  const double bytes = static_cast<double>(memory.totalram) * memory.mem_unit;
  return {{"date", today()},
          {"processor", looked_up("/proc/cpuinfo", "model name", ':')},
          {"processors", ::sysconf(_SC_NPROCESSORS_ONLN)},
          {"memory_gb", std::round(bytes / (1U << 30))},
          {"system", looked_up("/etc/os-release", "PRETTY_NAME", '=')},
          {"compiler", std::string("g++ ") + __VERSION__},
          {"others", in_tenths(std::max(0.0, others))}};
}

}  // namespace bench
