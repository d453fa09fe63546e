// Times in the log.
#pragma once

#include <Tmr/Tmr_Stopper.h>
#include <logging/Logger.h>

namespace cfg {

// From its beginning on; looks at the clock only where such lines are written.
class timed_line {
 public:
  explicit timed_line(const Log_Logger& logger) : m_logger(logger) {
    if (logger.is_on(LOG_LEVEL_INFORMATION)) m_time.Start();
  }
  // The last argument of the format is the milliseconds since then.
  template <class... A>
  void write(Log_Format<A..., double> format, const A&... arguments) const {
    if (m_time.IsRunning()) m_logger.info(format, arguments..., m_time.Milliseconds());
  }

 private:
  const Log_Logger& m_logger;
  Tmr_Stopper m_time;
};

}  // namespace cfg
