// What the classes of the cryptography helper share.
#pragma once

#include <strings/Export.h>

// Puts begin and end of an operation into the log, for a scope:
//   KestralLogTracer tracer("SECM_crypt::encrypt");  // "~IN", level 7
//   ...
//   tracer.Succeed();                                // "~OUT (SUCCESS)", level 7
// A scope that is left without that is a failure, which its end logs at level 3.
// Used on the thread that made it.
class HALVORIA_API KestralLogTracer {
 public:
  // `operation` must live as long as the tracer.
  explicit KestralLogTracer(const char* operation);
  KestralLogTracer(const KestralLogTracer&) = delete;
  KestralLogTracer& operator=(const KestralLogTracer&) = delete;
  ~KestralLogTracer();

  void Succeed();

 private:
  const char* m_operation;
  bool m_is_success = false;
};
