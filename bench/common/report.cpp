#include <common/report.h>

#include <algorithm>
#include <cstdio>

namespace bench {
namespace {

nlohmann::json or_null(std::optional<double> value) {
  return value ? nlohmann::json(*value) : nlohmann::json();
}

std::optional<double> or_none(const nlohmann::json& value) {
  return value.is_null() ? std::nullopt : std::optional(value.get<double>());
}

bool misses(const row& r) { return r.what.target && r.ratio > *r.what.target; }

std::string target_text(const row& r) {
  const auto with = [](const char* format, double target) {
    char text[48];
    std::snprintf(text, sizeof text, format, target);
    return std::string(text);
  };
  if (r.what.stretch && r.ratio <= *r.what.stretch)
    return with("<= %.2f, stretch met", *r.what.stretch);
  if (misses(r)) return with("<= %.2f, MISSED", *r.what.target);
  if (r.what.target) return with("<= %.2f, met", *r.what.target);
  return r.what.stretch ? with("<= %.2f, stretch, not met", *r.what.stretch) : std::string();
}

}  // namespace

std::string grouped(size_t number) {
  std::string digits = std::to_string(number);
  for (size_t at = digits.size(); at > 3; at -= 3) digits.insert(at - 3, 1, ',');
  return digits;
}

void report::add(const claim& what, const samples& ours, const samples& theirs) {
  samples ratios;
  for (size_t i = 0; i < std::min(ours.size(), theirs.size()); ++i) {
    ratios.push_back(ours[i] / theirs[i]);
  }
  m_rows.push_back({what, median(ratios), median(ours), median(theirs)});
}

void report::append(const std::string& title, const report& other) {
  for (row r : other.m_rows) {
    r.what.subject = title + ": " + r.what.subject;
    m_rows.push_back(std::move(r));
  }
}

void report::print_missed() const {
  long targets = 0, missed = 0;
  for (const row& r : m_rows) {
    targets += r.what.target.has_value();
    missed += misses(r);
  }
  std::printf("%ld of %ld targets met\n", targets - missed, targets);
  for (const row& r : m_rows) {
    if (!misses(r)) continue;
    std::printf("missed: %s against %s: %.2f, target %.2f\n", r.what.subject.c_str(),
                r.what.peer.c_str(), r.ratio, *r.what.target);
  }
}

void report::print() const {
  size_t subject = 0, peer = 0;
  for (const row& r : m_rows) {
    subject = std::max(subject, r.what.subject.size());
    peer = std::max(peer, r.what.peer.size());
  }
  const int widths[] = {static_cast<int>(subject), static_cast<int>(peer)};
  std::printf("%-*s  %-*s  %8s  %8s  %-11s  %5s  %s\n", widths[0], "subject", widths[1], "peer",
              "ours", "theirs", "unit", "ratio", "target");
  for (const row& r : m_rows) {
    std::printf("%-*s  %-*s  %8.4g  %8.4g  %-11s  %5.2f  %s\n", widths[0], r.what.subject.c_str(),
                widths[1], r.what.peer.c_str(), r.ours, r.theirs, r.what.unit.c_str(), r.ratio,
                target_text(r).c_str());
  }
  std::fflush(stdout);
}

nlohmann::json report::to_json() const {
  nlohmann::json list = nlohmann::json::array();
  for (const row& r : m_rows) {
    list.push_back({{"subject", r.what.subject},
                    {"peer", r.what.peer},
                    {"ratio", r.ratio},
                    {"target", or_null(r.what.target)},
                    {"stretch", or_null(r.what.stretch)},
                    {"ours", r.ours},
                    {"theirs", r.theirs},
                    {"unit", r.what.unit}});
  }
  return list;
}

report report::from_json(const nlohmann::json& list) {
  report result;
  for (const nlohmann::json& r : list) {
    result.m_rows.push_back({{r.at("subject"), r.at("peer"), r.at("unit"), or_none(r.at("target")),
                              or_none(r.at("stretch"))},
                             r.at("ratio"),
                             r.at("ours"),
                             r.at("theirs")});
  }
  return result;
}

}  // namespace bench
