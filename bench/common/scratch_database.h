// A SQLite file for a measurement.
#pragma once

#include <filesystem>
#include <string>

namespace bench {

// Not there at first; gone, with what SQLite keeps beside it, at the end.
class scratch_database {
 public:
  scratch_database(const std::string& folder, const std::string& name)
      : m_file(folder + "/" + name + "_bench.sqlite") {
    remove();
  }
  scratch_database(const scratch_database&) = delete;
  scratch_database& operator=(const scratch_database&) = delete;
  ~scratch_database() { remove(); }

  const std::string& file() const { return m_file; }

 private:
  void remove() const {
    std::error_code ignored;
    for (const char* part : {"", "-wal", "-shm"}) std::filesystem::remove(m_file + part, ignored);
  }

  const std::string m_file;
};

}  // namespace bench
