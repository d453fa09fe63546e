// Files that the command writes.
#pragma once

#include <string>
#include <string_view>

namespace cli {

// "-" is standard output.
inline bool is_standard(std::string_view file) { return file == "-"; }

// Replaces the file as a whole. When that fails what was there stays: a Failure.
void write_file(const std::string& file, std::string_view bytes);

}  // namespace cli
