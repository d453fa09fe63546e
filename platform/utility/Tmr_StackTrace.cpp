#include <utility/Tmr_StackTrace.h>

#include <cxxabi.h>
#include <execinfo.h>

#include <cstdlib>
#include <memory>
#include <string>

#include <logging/Logger.h>

namespace {

constexpr Log_Logger logger("platform/utility/Tmr_StackTrace", 502);

constexpr int kMaxFrames = 64;

struct Free {
  void operator()(void* memory) const { std::free(memory); }
};

// "module(mangled+0x12) [0x34]" with the name as it stands in the source.
std::string readable(const std::string& frame) {
  const size_t open = frame.find('('), plus = frame.find('+', open);
  if (plus == frame.npos) return frame;
  const std::string mangled = frame.substr(open + 1, plus - open - 1);
  const std::unique_ptr<char, Free> name(
      abi::__cxa_demangle(mangled.c_str(), nullptr, nullptr, nullptr));
  return name ? frame.substr(0, open + 1) + name.get() + frame.substr(plus) : frame;
}

}  // namespace

void Tmr_StackTrace::TraceStack() {
  if (!logger.is_on(LOG_LEVEL_ERROR)) return;
  void* frames[kMaxFrames];
  const int count = backtrace(frames, kMaxFrames);
  const std::unique_ptr<char*, Free> texts(backtrace_symbols(frames, count));
  std::string trace;
  for (int i = 1; texts && i < count; ++i) {  // 0 is this function
    trace += "  #" + std::to_string(i) + " " + readable(texts.get()[i]) + "\n";
  }
  logger.error("stack trace:\n%s", trace);
}
