#include <common/rounds.h>

#include <algorithm>

namespace bench {

void rounds::run(int count) {
  for (int round = 0; round < count; ++round) {
    for (size_t i = 0; i < m_cases.size(); ++i) {
      entry& next = m_cases[(i + static_cast<size_t>(round)) % m_cases.size()];
      next.measured.push_back(next.once());
    }
  }
}

samples rounds::of(id case_, size_t figure) const {
  samples values;
  for (const std::vector<double>& figures : m_cases.at(case_).measured) {
    values.push_back(figures.at(figure));
  }
  return values;
}

double median(samples values) {
  if (values.empty()) return 0;
  const auto middle = values.begin() + static_cast<long>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

}  // namespace bench
