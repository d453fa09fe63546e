// What the library has to say about a failure.
#pragma once

#include <string>

#include <logging/Log_Capture.h>

namespace cli {

// Severe messages only, unless the environment says what is logged; more with `verbosity`
// above 0.
void set_log_level(int verbosity);

// Hears what the library logs while this object lives.
class Reasons {
 public:
  // The first error: later ones are its consequences. Without its line end and without what
  // the operation returned; empty when there was none.
  std::string first() const;
  std::string last() const;  // what it comes to in the end

 private:
  Log_Capture m_capture;
};

// Hears from where the library took what was read while this object lives.
class Origin {
 public:
  // "the datagrid", "the in-process cache"; empty when no cache had it.
  std::string cache() const;

 private:
  Log_Capture m_capture;
};

// `text`, a colon and the reason when there is one.
std::string with_reason(std::string text, const Reasons& reasons);

}  // namespace cli
