// How a public operation answers what it could not do.
#pragma once

#include <exception>
#include <new>

#include <logging/Logger.h>

namespace cfg {

// The empty answer of an operation that failed reads like that of one that found nothing. Who goes
// on with something else then looks here first.
class failure_watch {
 public:
  // Whether an operation of this thread has ended with an exception since this was made, or a
  // request to the service without an answer to it.
  bool has_failed() const { return s_failures != m_before; }
  // Throws then.
  void check() const {
    if (has_failed()) throw read_failed();
  }
  static void note() { ++s_failures; }

 private:
  struct read_failed : std::exception {
    const char* what() const noexcept override { return "a read that it needs failed"; }
  };
  static inline constinit thread_local unsigned s_failures = 0;
  const unsigned m_before = s_failures;
};

// Called while an exception is handled: writes the line that says why.
inline void log_exception(const Log_Logger& logger, const char* op) noexcept {
  failure_watch::note();
  try {
    throw;
  } catch (const std::bad_alloc&) {
    logger.severe("%s : memory ran out\n", op);
  } catch (const std::exception& e) {
    logger.severe("%s : %s\n", op, e.what());
  } catch (...) {
    logger.severe("%s : an unknown exception\n", op);
  }
}

// Nothing leaves a public operation but its answer. One that allocates is written
//   int CFG_SubTree::SetValue(...) try {
//     ...
//   } catch (...) {
//     return cfg::answered(logger, FALSE);
//   }
// and answers with its documented empty answer and a line of level 2 that names it. Its
// changes must be such that the tree is then as before, or changed as a whole.
template <class Answer>
#if defined(__GNUC__)
[[gnu::noinline, gnu::cold]]
#endif
Answer
answered(const Log_Logger& logger, Answer nothing, const char* op = __builtin_FUNCTION()) noexcept {
  log_exception(logger, op);
  return nothing;
}

}  // namespace cfg
