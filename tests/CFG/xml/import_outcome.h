// All that comes of reading a document, as text.
#pragma once

#include <string>
#include <string_view>

#include <CFG/CFG_SAXImport.h>
#include <CFG/xml/branch_list.h>
#include <CFG/xml/own_layout.h>
#include <tree/Tree_Walk.h>
#include <xercesc/framework/MemBufInputSource.hpp>

// The short way takes the document.
inline bool is_own_layout(std::string_view document, uint64_t flags) {
  cfg::branch_list branches(flags);
  return cfg::read_own_layout(document, branches);
}

inline int parse_document(CFG_SAXImport& import, std::string_view document, uint64_t flags) {
  CFG_SAXImport::InitXercescPlatformUtils();
  return import.Init(xercesc::MemBufInputSource(reinterpret_cast<const XMLByte*>(document.data()),
                                                document.size(), "Fake_ID"),
                     flags);
}

// `result` is what Init returned.
inline std::string outcome(int result, CFG_SAXImport& import, uint64_t flags) {
  import.SetClearVectorAtDtor(true);
  std::string text = "result " + std::to_string(result);
  text += " errors " + std::to_string(import.GetErrorCount()) + " " +
          std::to_string(import.GetErrorLine()) + ":" + std::to_string(import.GetErrorColumn()) +
          " " + import.GetErrorMessage().str();
  for (int i = 0; i < import.GetNumOfVectors(); ++i) {
    text += "\nbranch " + import.GetRootPathIndex(i).str() + " of " +
            std::to_string(import.GetNodesNumIndex(i));
    const CFG_SAXImport::NodesVec* records = import.GetNodesVecIndex(i);
    for (size_t at = 0; records && at < records->entries(); ++at) {
      const Tree_NodeInfo& record = *(*records)[at];
      text.append("\n").append(record.PathView()).append(": ").append(record.ValueView());
      text += " " + std::to_string(record.IsChange());
    }
    if (!(flags & CFG_SAX_VALUE_LIST)) {
      const Tree_NodePtr tree = import.BuildSubTreeIndex(i);
      if (!tree) text += "\nno tree";
      if (tree) text += "\nbelow " + tree->GetVirtualParentPath().str();
      for (Tree_PathsWalk walk(tree.get(), ""); walk; walk.Next()) {
        text.append("\n").append(walk.Path()).append(walk->IsLeaf() ? "=" : "");
        text.append(walk->GetText());
      }
    }
  }
  return text;
}
