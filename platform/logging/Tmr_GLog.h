// The process-wide log object.
#pragma once

#include <atomic>
#include <string>

#include <logging/Log_Format.h>
#include <strings/Export.h>

struct Log_Settings;

enum Log_Level {
  LOG_LEVEL_SEVERE = 2,
  LOG_LEVEL_ERROR = 3,
  LOG_LEVEL_WARNING = 4,
  LOG_LEVEL_INFORMATION = 5,
  LOG_LEVEL_DETAIL = 6,
  LOG_LEVEL_TRACE = 7,
};

// Where a message comes from. Refers to texts that live as long as the process.
struct Log_Origin {
  const char* file;
  const char* function;
  int line;
  int level;
  int module;
};

// Decides by level and module whether a message is written, and writes it. There is
// one, TmrGLog, usable from the first static constructor to the last destructor; the
// settings are read from the environment when the first message asks.
// Any thread may call any operation. Nothing throws: a line that can't be written
// (full disk, no memory) is dropped.
class HALVORIA_API Tmr_GLog {
 public:
  static constexpr int kModules = 1024;

  constexpr Tmr_GLog() : m_shut{} {}
  Tmr_GLog(const Tmr_GLog&) = delete;
  Tmr_GLog& operator=(const Tmr_GLog&) = delete;

  // The module that `module` counts as: itself, or 0 outside 0..1023.
  static constexpr int KnownModule(int module) {
    return module >= 0 && module < kModules ? module : 0;
  }

  // False when no message of that level and module is written: one load and a compare.
  // `module` is in 0..1023. May be true for a message that StoreParams then refuses.
  bool IsOpen(int level, int module) const {
    return level + m_shut[module].load(std::memory_order_relaxed) <= LOG_LEVEL_TRACE;
  }

  // The gate. Non-zero when the message is to be written: this thread's next Log then
  // writes it with these parameters. The last parameter has no meaning.
  int StoreParams(const char* file, const char* function, int line, int level, int module,
                  int) noexcept;
  template <class... A>
  void Log(Log_Format<A...> format, const A&... args) noexcept {
    // Read first, since a callable argument may log by itself.
    const Log_Origin origin = stored_params();
    try {
      write(origin, format.text, {Log_Argument(value_of(args))...});
    } catch (...) {
      // No memory for an argument: the line is dropped.
    }
  }

  // Levels 0..7: messages up to that level are written. A module keeps its own level
  // when the general one changes. Values outside are taken as the nearest inside.
  void SetLevel(int level);
  void SetModuleLevel(int module, int level);
  int GetLevel(int module);

  // What the environment calls this application (HALVORIA_LOG_APPLICATION), else its program's
  // name.
  static std::string GetApplicationName();

  // Replaces all settings. False when the output can't be opened: one line on standard
  // error says why, and messages go there.
  bool Apply(const Log_Settings& settings);

  // An output writes the same line a few times a second at most; how often it came besides
  // follows with the first line of a later second, or with this. Called when the process exits.
  void Flush() noexcept;

 private:
  friend class Log_Capture;

  template <class T>
  static decltype(auto) value_of(const T& arg) {
    if constexpr (std::is_invocable_v<const T&>) {
      return arg();
    } else {
      return (arg);
    }
  }

  static const Log_Origin& stored_params() noexcept;
  void write(const Log_Origin& origin, const char* format,
             std::initializer_list<Log_Argument> args) noexcept;
  void read_settings_once();
  bool replace_settings(const Log_Settings& settings);
  void count_capture(int change);
  void set_gates();  // the caller holds the settings mutex

  // Per module 7 less its level, so that zero, which is there before any constructor
  // runs, lets every message through to StoreParams and the settings get read.
  std::atomic<unsigned char> m_shut[kModules];
};

extern HALVORIA_API Tmr_GLog TmrGLog;
