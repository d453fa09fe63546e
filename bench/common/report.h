// What the benchmarks say.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <common/rounds.h>

namespace bench {

// A cost of ours beside the peer's cost for the same work. Targets are ratios, at most.
struct claim {
  std::string subject;
  std::string peer;
  std::string unit;
  std::optional<double> target;
  std::optional<double> stretch;
};

struct row {
  claim what;
  double ratio;  // median of the ratios of each round; below 1 we are cheaper
  double ours;   // medians
  double theirs;
};

std::string grouped(size_t number);  // 1020003 is 1,020,003

class report {
 public:
  void add(const claim& what, const samples& ours, const samples& theirs);
  // Rows of another report; its title goes before their subjects.
  void append(const std::string& title, const report& other);

  const std::vector<row>& rows() const { return m_rows; }
  void print() const;
  void print_missed() const;  // how many targets are met, and which are not

  // A list of {"subject", "peer", "ratio", "target", "stretch", "ours", "theirs", "unit"}; a
  // target that there is not is null.
  nlohmann::json to_json() const;
  static report from_json(const nlohmann::json& list);

 private:
  std::vector<row> m_rows;
};

}  // namespace bench
