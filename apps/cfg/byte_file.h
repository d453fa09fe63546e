// Files that hold the byte array of a tree (docs/byte-format.md).
#pragma once

#include <memory>
#include <string>

#include <CFG/CFG_SubTree.h>

#include "input_file.h"

namespace cli {

enum class Form { XML, BYTES, BYTES_WITH_HEADER, SYNCED };

// "xml", "bytes", "bytes with header", "synced file".
const char* form_name(Form form);

// What a file holds, by its first bytes: a byte array begins with two zero bytes, those of
// a small number, and without a header with the ids 0 and -1 of its top record; a synced file with
// its own sign. Anything else is taken for XML.
Form form_of(const InputFile& file);

// The tree of a byte array, with the path of its header as virtual parent path. A faulty
// array is a Failure.
std::unique_ptr<CFG_SubTree> read_byte_file(const InputFile& file, Form form);

// The bytes of the key and everything below; with a header they begin with the path of
// the key above. A tree that no array can hold is a Failure.
std::string byte_array_of(Tree_Node& key, bool with_header);

}  // namespace cli
