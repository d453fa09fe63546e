// How a source file writes log messages.
#pragma once

#include <logging/Log_Format.h>
#include <logging/Tmr_GLog.h>

// The name and module under which a source file logs:
//   namespace { constexpr Log_Logger logger("src/CFG/CFG_Factory", 502); }
//   logger.warning("type %s is unknown, %Iu are known\n", type, types.size());
//   return logger.reject(FALSE, "Add: path <%s> is empty, return FALSE\n", path);
// Log_Format.h says what formats and arguments may be; the line and the function are
// captured at the call. With the level off nothing is formatted and no callable
// argument is called. Any thread; nothing throws.
class Log_Logger {
 public:
  // `file` must live as long as the process.
  constexpr Log_Logger(const char* file, int module)
      : m_file(file), m_module(Tmr_GLog::KnownModule(module)) {}

  template <class... A>
  void severe(Log_Format<A...> format, const A&... args) const noexcept {
    log(LOG_LEVEL_SEVERE, format, args...);
  }
  template <class... A>
  void error(Log_Format<A...> format, const A&... args) const noexcept {
    log(LOG_LEVEL_ERROR, format, args...);
  }
  template <class... A>
  void warning(Log_Format<A...> format, const A&... args) const noexcept {
    log(LOG_LEVEL_WARNING, format, args...);
  }
  template <class... A>
  void info(Log_Format<A...> format, const A&... args) const noexcept {
    log(LOG_LEVEL_INFORMATION, format, args...);
  }
  template <class... A>
  void detail(Log_Format<A...> format, const A&... args) const noexcept {
    log(LOG_LEVEL_DETAIL, format, args...);
  }
  template <class... A>
  void trace(Log_Format<A...> format, const A&... args) const noexcept {
    log(LOG_LEVEL_TRACE, format, args...);
  }
  template <class... A>
  void log(int level, Log_Format<A...> format, const A&... args) const noexcept {
    if (TmrGLog.IsOpen(level, m_module)) write(level, format, args...);
  }

  // Writes at level 3, or at `level`, and returns `answer`.
  template <class R, class... A>
  R reject(R answer, Log_Format<A...> format, const A&... args) const {
    log(LOG_LEVEL_ERROR, format, args...);
    return answer;
  }
  template <class R, class... A>
  R reject_at(int level, R answer, Log_Format<A...> format, const A&... args) const {
    log(level, format, args...);
    return answer;
  }

  // True when a message of that level would be written: for a message that needs work
  // a callable argument can't do.
  bool is_on(int level) const { return TmrGLog.IsOpen(level, m_module); }

 private:
  // Out of line, so that a call costs its function no more than the gate.
  template <class... A>
#if defined(__GNUC__)
  __attribute__((noinline, cold))
#endif
  void
  write(int level, Log_Format<A...> format, const A&... args) const noexcept {
    if (TmrGLog.StoreParams(m_file, format.function, format.line, level, m_module, 1)) {
      TmrGLog.Log(format, args...);
    }
  }

  const char* m_file;
  int m_module;
};
