// Records log messages, for tests.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <logging/Tmr_GLog.h>

// While one lives, every message of every thread, whatever its level, is recorded with
// its text exactly as rendered. Output goes on as the settings say. Captures nest: each
// records all messages of its own lifetime. Any thread may ask and log at any time.
class HALVORIA_API Log_Capture {
 public:
  struct Line {
    int level;
    int module;
    std::string file;
    std::string function;
    int line;
    std::string text;
  };

  Log_Capture();
  ~Log_Capture();
  Log_Capture(const Log_Capture&) = delete;
  Log_Capture& operator=(const Log_Capture&) = delete;

  std::vector<Line> lines() const;        // in the order in which they were written
  std::string text() const;               // all texts, one behind the other
  std::string last() const;               // the last text; empty when there is none
  bool has(std::string_view part) const;  // whether some text contains `part`
  void clear();                           // forgets what is recorded

 private:
  friend class Tmr_GLog;
  static void record(const Log_Origin& origin, const std::string& text);

  std::vector<Line> m_lines;  // guarded by the mutex of all captures
};
