// Xerces with nothing behind it: what reading a document costs before anything is made of it.
#pragma once

#include <string>

namespace bench {

// Validation auto, as for documents that may or may not carry a DTD; handlers that do nothing.
// Throw std::runtime_error when the document has a fault.
void parse_buffer_bare(const std::string& document);
void parse_file_bare(const std::string& file);

}  // namespace bench
