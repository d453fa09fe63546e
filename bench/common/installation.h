// The configuration of a large installation, made up.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

struct record {
  int parent;  // its place in the list, -1 for the root
  std::string name;
  std::string value;  // empty for a key
  std::string path;
};
using records = std::vector<record>;

// Below halvoria\system\nodes so many hosts, each with a key of 16 values and with 4
// applications of 7 values each: 51 nodes a host and three keys above them, every key before
// what is below it. The same at every call.
records make_installation(int hosts);

// That many paths to read, out of so many distinct values, in no order. Each third has
// capitals in it, as callers write them.
std::vector<std::string> paths_to_read(const records& all, size_t count, size_t distinct);

}  // namespace bench
