#include "library_log.h"

#include <cstdlib>
#include <string_view>
#include <vector>

#include <logging/Tmr_GLog.h>

namespace cli {

void set_log_level(int verbosity) {
  if (verbosity > 0) {
    TmrGLog.SetLevel(verbosity == 1 ? LOG_LEVEL_INFORMATION : LOG_LEVEL_TRACE);
  } else if (!std::getenv("HALVORIA_LOG") && !std::getenv("HALVORIA_LOG_FILE")) {
    TmrGLog.SetLevel(LOG_LEVEL_SEVERE);
  }
}

namespace {

constexpr int CONNECTION = 197;  // the module that tells why a service refused

void drop_ending(std::string& text, std::string_view ending) {
  if (text.size() < ending.size()) return;
  const size_t rest = text.size() - ending.size();
  if (text.compare(rest, ending.size(), ending) == 0) text.resize(rest);
}

void drop_blanks(std::string& text) { text.resize(text.find_last_not_of(" ,.\n") + 1); }

// What is told about and done all the same: a node longer than usual, a name that holds "<>".
bool is_note(const std::string& text) {
  return text.rfind("Bigoffset", 0) == 0 || text.rfind("GetProperty(", 0) == 0;
}

std::vector<std::string> errors_of(const Log_Capture& capture) {
  std::vector<std::string> errors;
  for (Log_Capture::Line& line : capture.lines()) {
    const bool is_refusal = line.level == LOG_LEVEL_WARNING && line.module == CONNECTION;
    if ((line.level > LOG_LEVEL_ERROR && !is_refusal) || is_note(line.text)) continue;
    drop_blanks(line.text);
    for (const char* ending : {"return NULL", "return FALSE"}) drop_ending(line.text, ending);
    drop_blanks(line.text);
    errors.push_back(std::move(line.text));
  }
  return errors;
}

}  // namespace

std::string Reasons::first() const {
  const std::vector<std::string> errors = errors_of(m_capture);
  return errors.empty() ? "" : errors.front();
}

std::string Reasons::last() const {
  const std::vector<std::string> errors = errors_of(m_capture);
  return errors.empty() ? "" : errors.back();
}

std::string Origin::cache() const {
  for (const char* line : {"found in value cache", "found in subtree cache"}) {
    if (m_capture.has(line)) return "the in-process cache";
  }
  for (const char* line : {"found in cache and is valid", "> found in cache, will load"}) {
    if (m_capture.has(line)) return "the datagrid";
  }
  return "";
}

std::string with_reason(std::string text, const Reasons& reasons) {
  const std::string reason = reasons.first();
  return reason.empty() ? text : text + ": " + reason;
}

}  // namespace cli
