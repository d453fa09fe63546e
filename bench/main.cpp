// Runs the suites and prints how the library stands beside its peers.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>

#include <CLI/CLI.hpp>

#include <common/child.h>
#include <common/machine.h>
#include <common/suite.h>

namespace {

struct suite {
  const char* name;
  const char* title;  // stands before the subjects of its rows
  bench::report (*run)(const bench::scale&);
};
constexpr suite suites[] = {
    {"memory", "memory", bench::memory_suite},
    {"bulk", "whole trees", bench::bulk_suite},
    {"merge", "whole trees", bench::merge_suite},
    {"read", "reads", bench::read_suite},
    {"services", "typed reads", bench::services_suite},
    {"xml", "XML", bench::xml_suite},
    {"start", "start to first value, whole process", bench::start_suite},
    {"bytes", "byte arrays", bench::bytes_suite},
    {"crypto", "ciphers", bench::crypto_suite},
    {"store", "stored tree", bench::store_suite},
    {"children", "many children", bench::children_suite},
    {"growth", "growth", bench::growth_suite},
    {"wire", "over the network", bench::wire_suite},
    {"service", "reads of the service", bench::service_suite},
    {"service_trees", "trees and writes of the service", bench::service_trees_suite},
    {"sync", "synced files", bench::sync_suite},
    {"sync_service", "synced files, the service's side", bench::sync_service_suite},
    {"cache", "the cache of a process", bench::cache_suite},
    {"datagrid", "datagrid", bench::datagrid_suite},
};

void write_json(const nlohmann::json& content, const std::filesystem::path& name) {
  std::ofstream file(name);
  file << content.dump(1) << '\n';
  if (!file.flush()) throw std::runtime_error("cannot write " + name.string());
}

}  // namespace

int main(int argc, char** argv) try {
  CLI::App app("Measures the library beside its peers.");
  bool quick = false;
  std::string scratch = ".", out = ".";
  std::vector<std::string> names, wanted;
  for (const suite& s : suites) names.push_back(s.name);
  app.add_flag("--quick", quick, "small trees: shows that everything runs");
  app.add_option("--scratch", scratch, "folder for files");
  app.add_option("--out", out, "folder for results.json and machine.json");
  app.add_option("suites", wanted, "all when none is named")->check(CLI::IsMember(names));
  CLI11_PARSE(app, argc, argv);

  bench::scale scale = quick ? bench::quick_scale() : bench::full_scale();
  scale.scratch = scratch;
  const bench::machine machine;
  bench::report all;
  for (const suite& s : suites) {
    if (!wanted.empty() && std::ranges::count(wanted, s.name) == 0) continue;
    std::printf("# %s\n", s.title);
    const std::string rows = bench::in_child([&] { return s.run(scale).to_json().dump(); });
    const auto done = bench::report::from_json(nlohmann::json::parse(rows));
    done.print();
    all.append(s.title, done);
  }
  std::printf("\n");
  all.print_missed();
  std::filesystem::create_directories(out);
  write_json(all.to_json(), std::filesystem::path(out) / "results.json");
  write_json(machine.to_json(), std::filesystem::path(out) / "machine.json");
  return 0;
} catch (const std::exception& fault) {
  std::fprintf(stderr, "halvoria_bench: %s\n", fault.what());
  return 1;
}
