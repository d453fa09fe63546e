// Where messages go; the only part of the library that knows spdlog.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <logging/Log_Settings.h>
#include <logging/Tmr_GLog.h>

// An open output. Its owner calls it from one thread at a time.
class Log_Sink {
 public:
  virtual ~Log_Sink() = default;
  // Writes one message with exactly one line end, and flushes it. A message that can't
  // be written is dropped.
  virtual void write(const Log_Origin& origin, std::string_view text) noexcept = 0;

  // Null when the output can't be opened; `why` then says why.
  static std::unique_ptr<Log_Sink> open(const Log_Settings& settings, std::string& why);
};
