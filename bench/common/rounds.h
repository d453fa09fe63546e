// Measurements that can be compared although the machine is shared.
#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include <common/clock.h>

namespace bench {

using samples = std::vector<double>;  // of one figure, one a round

// Every case is measured once a round, and each round begins with another case. What drifts
// slowly - other programs, the processor's clock - then weighs on all cases alike, and ratios
// taken inside a round are free of it.
class rounds {
 public:
  using id = size_t;
  // Measures a case once: one or more costs, always as many.
  using measure = std::function<std::vector<double>()>;

  id add(measure case_) { return m_cases.push_back({std::move(case_), {}}), m_cases.size() - 1; }
  void run(int count);
  samples of(id case_, size_t figure = 0) const;

 private:
  struct entry {
    measure once;
    std::vector<std::vector<double>> measured;
  };
  std::vector<entry> m_cases;
};

// Measures processor time: the cost of one of the calls that the work makes.
template <class Work>
rounds::measure per_call(size_t calls, Work work) {
  return [=]() -> std::vector<double> { return {time_ns(CPU, work) / static_cast<double>(calls)}; };
}

double median(samples values);

}  // namespace bench
