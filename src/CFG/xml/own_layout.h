// A short way through documents that were exported.
//
// A program that starts reads its tree from a document that an export wrote, and nobody touched.
// The XML parser takes more than a microsecond for each of its nodes, nearly all of it for
// things such a document does not have. It is told by its bytes: prologue, tags, line ends and
// escapes are exactly those of xml_layout.h and xml_escapes.h. What is left then is to look for
// the end of each text.
//
// Whatever is not so, from the first byte to the last, is no matter for this reader: it gives
// up without a word, what it made is dropped, and the parser reads the document from its start.
// So it need not know what is wrong with a document, only what an export writes; results,
// messages and bounds are the parser's. tests/fuzz/fuzz_xml_layout.cpp holds one to the other.
#pragma once

#include <string_view>

#include <CFG/xml/branch_list.h>
#include <system/Sys_File.h>

namespace cfg {

// Both read a whole document into a new list. False when the parser has to read it.
bool read_own_layout(std::string_view document, branch_list& branches);
// A regular file that was not read yet. It is read by pieces, nothing is mapped: a file that
// others shorten meanwhile is a document that ends too early.
bool read_own_layout(Sys_File& file, branch_list& branches);

}  // namespace cfg
