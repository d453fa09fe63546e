// Where and when figures were taken.
#pragma once

#include <nlohmann/json.hpp>

namespace bench {

// Made before the first measurement, asked after the last.
class machine {
 public:
  machine();
  // {"date", "processor", "processors", "memory_gb", "system", "compiler", "others"}; `others`
  // is how many processors other programs kept busy meanwhile, on average.
  nlohmann::json to_json() const;

 private:
  double m_start;        // seconds
  double m_busy_before;  // seconds of all processors
};

}  // namespace bench
