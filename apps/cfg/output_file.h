// Files that the command writes.
#pragma once

#include <string>
#include <string_view>

#include "store.h"

namespace cli {

// "-" is standard output.
inline bool is_standard(std::string_view file) { return file == "-"; }

// A Failure when the file, by whatever name, is the one that the tree itself lives in.
void require_other_file(const Store& store, const std::string& file);

// Replaces the file as a whole. When that fails what was there stays: a Failure.
void write_file(const std::string& file, std::string_view bytes);

}  // namespace cli
