// What a benchmark relies on.
#pragma once

#include <stdexcept>
#include <string>

namespace bench {

// Throws std::runtime_error: figures of wrong work mean nothing.
inline void need(bool done, const std::string& what) {
  if (!done) throw std::runtime_error("failed: " + what);
}

}  // namespace bench
