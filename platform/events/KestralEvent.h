// Events of the installation: what happened, for whoever watches it.
#pragma once

#include <strings/Export.h>
#include <strings/RWCString.h>

namespace KestralEvent {

constexpr int MODULE = 505;  // of the log

// How long an operation on the configuration took. One thread.
class HALVORIA_API CFGPerformance {
 public:
  // `number` says which operation, `source` what answered it ("Remote", "DB", "Cache"). What the
  // flag and the count mean depends on the operation.
  CFGPerformance(int number, RWCString path, RWCString source, RWCString operation,
                 double milliseconds, bool flag, int count)
      : m_number(number),
        m_path(std::move(path)),
        m_source(std::move(source)),
        m_operation(std::move(operation)),
        m_milliseconds(milliseconds),
        m_flag(flag),
        m_count(count) {}

  // Delivers the event. FALSE when nobody listens. Never throws.
  int Send() const;

 private:
  int m_number;
  RWCString m_path;
  RWCString m_source;
  RWCString m_operation;
  double m_milliseconds;
  bool m_flag;
  int m_count;
};

}  // namespace KestralEvent
