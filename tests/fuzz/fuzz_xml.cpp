// XML documents: any bytes are read without a fault, in every mode, and a tree that was read
// is written to a document that gives the same tree again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include <CFG/CFG_SAXImport.h>
#include <logging/Tmr_GLog.h>
#include <tree/Tree_Walk.h>
#include <xercesc/framework/MemBufInputSource.hpp>
#include "reach.h"
#include "written_document.h"

namespace {

Reach tree_compared("a document becomes a tree that is written and read again");
Reach document_refused("a document is refused");
Reach records_sorted("a document has records");

bool read(CFG_SAXImport& import, std::string_view document, uint64_t flags) {
  const xercesc::MemBufInputSource source(reinterpret_cast<const XMLByte*>(document.data()),
                                          document.size(), "fuzz");
  import.SetClearVectorAtDtor(true);
  const bool is_good = import.Init(source, flags) == 0;
  if (is_good != (import.GetErrorCount() == 0)) abort();
  document_refused(!is_good);
  return is_good;
}

Tree_NodePtr read_tree(std::string_view document) {
  CFG_SAXImport import;
  if (!read(import, document, 0) || import.GetRootPath().isNull()) return nullptr;
  return import.BuildSubTreeIndex(0);
}

// The same nodes. Siblings may stand in another order where a key had no node of its own.
void check_equal(Tree_Node& a, Tree_Node& b) {
  if (a.GetVirtualParentPath() != b.GetVirtualParentPath()) abort();
  if (a.NameView() != b.NameView() || a.GetNodeNum() != b.GetNodeNum()) abort();
  const size_t below_top = a.NameView().size() + 1;
  Tree_PathsWalk walk(&a, "");
  for (walk.Next(); walk; walk.Next()) {
    const Tree_Node* same = b.Find(std::string_view(walk.Path()).substr(below_top));
    if (!same || same->IsLeaf() != walk->IsLeaf() || same->GetText() != walk->GetText()) abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  TmrGLog.SetLevel(0);
  static const bool is_ready = CFG_SAXImport::InitXercescPlatformUtils();
  if (!is_ready) abort();
  const std::string_view document(reinterpret_cast<const char*>(data), size);

  if (const Tree_NodePtr tree = read_tree(document)) {
    const Tree_NodePtr again = read_tree(written(*tree));
    if (!again) abort();
    check_equal(*tree, *again);
    const std::string document_again = written(*again);
    if (written(*read_tree(document_again)) != document_again) abort();
    tree_compared();
  }
  for (const uint64_t flags : {CFG_SAX_MULTI_BRANCH, CFG_SAX_VALUE_LIST}) {
    CFG_SAXImport import;
    read(import, document, flags);
    for (int i = 0; i < import.GetNumOfVectors(); ++i) {
      const CFG_SAXImport::NodesVec* records = import.GetNodesVecIndex(i);
      records_sorted(records && records->entries() > 1);
      for (size_t at = 1; records && at < records->entries(); ++at) {
        if (*(*records)[at] < *(*records)[at - 1]) abort();
      }
      if (flags == CFG_SAX_MULTI_BRANCH) import.BuildSubTreeIndex(i);
    }
  }
  return 0;
}
