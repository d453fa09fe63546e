// What is measured, and how large.
#pragma once

#include <string>
#include <vector>

#include <common/report.h>

namespace bench {

struct scale {
  int hosts;                       // of the tree that is read, built and copied
  int document_hosts;              // of the XML document
  size_t calls;                    // reads a sample
  size_t hot_paths;                // distinct paths that are read all the time
  size_t cold_paths;               // and all over the tree
  std::vector<int> children;       // of one key, growing
  std::vector<int> growing_hosts;  // of whole trees, growing
  int few_rounds;                  // of samples that take about a second
  int many_rounds;                 // of samples that take milliseconds
  double wire_seconds;             // of reads over the network, a sample
  std::string scratch;             // a folder for files
};

inline scale full_scale() {
  return {.hosts = 20000,
          .document_hosts = 7000,
          .calls = 100000,
          .hot_paths = 1000,
          .cold_paths = 90000,
          .children = {1000, 10000, 100000},
          .growing_hosts = {200, 2000, 20000, 80000},
          .few_rounds = 5,
          .many_rounds = 15,
          .wire_seconds = 0.25,
          .scratch = "."};
}
inline scale quick_scale() {
  return {.hosts = 60,
          .document_hosts = 20,
          .calls = 600,
          .hot_paths = 50,
          .cold_paths = 300,
          .children = {20, 200, 2000},
          .growing_hosts = {2, 20, 60},
          .few_rounds = 2,
          .many_rounds = 2,
          .wire_seconds = 0.02,
          .scratch = "."};
}

// Each runs in a process of its own.
report read_suite(const scale&);
report memory_suite(const scale&);
report bulk_suite(const scale&);
report merge_suite(const scale&);
report xml_suite(const scale&);
report start_suite(const scale&);
report cache_suite(const scale&);
report bytes_suite(const scale&);
report crypto_suite(const scale&);
report children_suite(const scale&);
report growth_suite(const scale&);
report services_suite(const scale&);
report wire_suite(const scale&);
report service_suite(const scale&);
report service_trees_suite(const scale&);
report datagrid_suite(const scale&);
report store_suite(const scale&);
report sync_suite(const scale&);
report sync_service_suite(const scale&);

}  // namespace bench
