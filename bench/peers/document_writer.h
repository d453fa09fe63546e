// A document written straight from a list of records.
#pragma once

#include <string>

#include <common/installation.h>

namespace bench {

// Texts are escaped by runs into one buffer of 256 KB, which is written when it is full. The
// same bytes as an export. `synced`: the file is on the disk before the call returns.
void write_document(const records& all, const std::string& file, bool synced);

}  // namespace bench
