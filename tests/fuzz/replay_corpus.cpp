// Runs a fuzz target once over every file named, or below the folders named, on
// the command line: the stored corpus as a test, with any compiler.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fs = std::filesystem;

static void replay(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), {});
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

int main(int argc, char** argv) {
  size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    if (!fs::is_directory(argv[i])) {
      replay(argv[i]);
      ++count;
      continue;
    }
    for (const auto& entry : fs::recursive_directory_iterator(argv[i])) {
      if (!entry.is_regular_file()) continue;
      replay(entry.path());
      ++count;
    }
  }
  std::printf("%zu inputs\n", count);
  return count == 0;  // an empty corpus tests nothing
}
