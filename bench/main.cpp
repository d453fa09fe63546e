// Runs the suites and prints how the library stands beside its peers.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <fstream>

#include <CLI/CLI.hpp>

#include <common/child.h>
#include <common/suite.h>

namespace {

struct suite {
  const char* name;
  bench::report (*run)(const bench::scale&);
};
constexpr suite suites[] = {
    {"memory", bench::memory_suite}, {"bulk", bench::bulk_suite},     {"read", bench::read_suite},
    {"xml", bench::xml_suite},       {"growth", bench::growth_suite},
};

}  // namespace

int main(int argc, char** argv) try {
  CLI::App app("Measures the library beside its peers.");
  bool quick = false;
  std::string scratch = ".", out = "results.json";
  std::vector<std::string> names, wanted;
  for (const suite& s : suites) names.push_back(s.name);
  app.add_flag("--quick", quick, "small trees: shows that everything runs");
  app.add_option("--scratch", scratch, "folder for files");
  app.add_option("--out", out, "where the rows go, as JSON");
  app.add_option("suites", wanted, "all when none is named")->check(CLI::IsMember(names));
  CLI11_PARSE(app, argc, argv);

  bench::scale scale = quick ? bench::quick_scale() : bench::full_scale();
  scale.scratch = scratch;
  bench::report all;
  for (const suite& s : suites) {
    if (!wanted.empty() && std::ranges::count(wanted, s.name) == 0) continue;
    std::printf("# %s\n", s.name);
    const std::string rows = bench::in_child([&] { return s.run(scale).to_json().dump(); });
    const auto done = bench::report::from_json(nlohmann::json::parse(rows));
    done.print();
    all.append(done);
  }
  std::printf("\n");
  all.print_missed();
  std::ofstream file(out);
  file << all.to_json().dump(1) << '\n';
  if (!file.flush()) throw std::runtime_error("cannot write " + out);
  return 0;
} catch (const std::exception& fault) {
  std::fprintf(stderr, "halvoria_bench: %s\n", fault.what());
  return 1;
}
