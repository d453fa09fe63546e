// The short way through exported documents beside the parser's: what it takes, the parser takes
// alike, in every mode, and what an export makes of it, it takes again. An input that does not
// begin as a document is put behind the prologue, so that changes go to what varies.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include <CFG/xml/xml_layout.h>
#include <logging/Tmr_GLog.h>
#include "../CFG/xml/import_outcome.h"
#include "reach.h"
#include "written_document.h"

namespace {

Reach both_compared("a document is read both ways");
Reach written_again("a document is written again");
Reach other_layout("a document has another layout");

void check(bool is_true) {
  if (!is_true) abort();
}

void check_both_ways(std::string_view document, uint64_t flags) {
  CFG_SAXImport read, parsed;
  const std::string outcome_read = outcome(read.InitFromBuffer(document, flags), read, flags);
  both_compared();
  check(outcome_read == outcome(parse_document(parsed, document, flags), parsed, flags));
}

void check_written_again(std::string_view document) {
  CFG_SAXImport import;
  check(import.InitFromBuffer(document, 0) == 0);
  if (import.GetRootPath().isNull()) return;
  const Tree_NodePtr tree = import.BuildSubTreeIndex(0);
  if (!tree) return;
  const std::string again = written(*tree);
  check(is_own_layout(again, 0));
  written_again();
  check_both_ways(again, 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  TmrGLog.SetLevel(0);
  std::string document(reinterpret_cast<const char*>(data), size);
  if (document.substr(0, 5) != "<?xml") document.insert(0, cfg::xml_layout::prologue);
  for (const uint64_t flags : {uint64_t{0}, CFG_SAX_MULTI_BRANCH, CFG_SAX_VALUE_LIST}) {
    const bool is_own = is_own_layout(document, flags);
    other_layout(!is_own);
    if (is_own) check_both_ways(document, flags);
  }
  if (is_own_layout(document, 0)) check_written_again(document);
  return 0;
}
