// What is measured, and how large.
#pragma once

#include <string>
#include <vector>

#include <common/report.h>

namespace bench {

struct scale {
  int hosts;                  // of the tree that is read, built and copied
  int document_hosts;         // of the XML document
  size_t calls;               // reads a sample
  size_t hot_paths;           // distinct paths that are read all the time
  size_t cold_paths;          // and all over the tree
  std::vector<int> children;  // of one key, growing
  int few_rounds;             // of samples that take about a second
  int many_rounds;            // of samples that take milliseconds
  std::string scratch;        // a folder for files
};

inline scale full_scale() {
  return {20000, 7000, 100000, 1000, 90000, {1000, 10000, 100000}, 5, 15, "."};
}
inline scale quick_scale() { return {60, 20, 600, 50, 300, {20, 200, 2000}, 2, 2, "."}; }

// Each runs in a process of its own.
report read_suite(const scale&);
report memory_suite(const scale&);
report bulk_suite(const scale&);
report xml_suite(const scale&);
report bytes_suite(const scale&);
report children_suite(const scale&);

}  // namespace bench
