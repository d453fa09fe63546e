#include <logging/Log_Capture.h>

#include <algorithm>

#include <thread/ForkHandler.h>

namespace {

// All captures that live, and what they hold.
struct Captures {
  ForkMutex mutex{ForkHandler::LOG};
  std::vector<Log_Capture*> living;  // guarded by mutex
};
Captures& captures() {
  static Captures* const the_captures = new Captures;
  return *the_captures;
}
// Made when the library is loaded: the child of a fork would wait for ever for a thread that was
// just making it.
[[maybe_unused]] const Captures& made_early = captures();

}  // namespace

Log_Capture::Log_Capture() {
  {
    const std::lock_guard lock(captures().mutex);
    captures().living.push_back(this);
  }
  TmrGLog.count_capture(+1);
}

Log_Capture::~Log_Capture() {
  TmrGLog.count_capture(-1);
  const std::lock_guard lock(captures().mutex);
  auto& living = captures().living;
  living.erase(std::find(living.begin(), living.end(), this));
}

void Log_Capture::record(const Log_Origin& origin, const std::string& text) {
  const std::lock_guard lock(captures().mutex);
  for (Log_Capture* capture : captures().living) {
    capture->m_lines.push_back(
        {origin.level, origin.module, origin.file, origin.function, origin.line, text});
  }
}

std::vector<Log_Capture::Line> Log_Capture::lines() const {
  const std::lock_guard lock(captures().mutex);
  return m_lines;
}

std::string Log_Capture::text() const {
  std::string all;
  for (const Line& line : lines()) all += line.text;
  return all;
}

std::string Log_Capture::last() const {
  const std::lock_guard lock(captures().mutex);
  return m_lines.empty() ? std::string() : m_lines.back().text;
}

bool Log_Capture::has(std::string_view part) const {
  const std::lock_guard lock(captures().mutex);
  return std::any_of(m_lines.begin(), m_lines.end(), [part](const Line& line) {
    return line.text.find(part) != std::string::npos;
  });
}

void Log_Capture::clear() {
  const std::lock_guard lock(captures().mutex);
  m_lines.clear();
}
