// Reads XML documents of trees into lists of flat records.
#pragma once

#include <cstdint>
#include <vector>

#include <xercesc/util/XercesDefs.hpp>

#include <strings/Export.h>
#include <strings/RWCString.h>
#include <tree/Tree_NodeInfo.h>
#include <utility/Tmr_PtrSortedVector.h>

XERCES_CPP_NAMESPACE_BEGIN
class InputSource;
XERCES_CPP_NAMESPACE_END

// How a document is read; 0 is one branch, as a tree.
constexpr uint64_t CFG_SAX_VALUE_LIST = 1;    // full paths, no root, every node is a value
constexpr uint64_t CFG_SAX_MULTI_BRANCH = 2;  // more than one branch

// The outcome of one parse: per branch, the path of its root and the records below it in
// order of path. An object lives for one import. Imports on different threads are
// independent.
class HALVORIA_API CFG_SAXImport {
 public:
  using NodesVec = Tmr_PtrSortedVector<Tree_NodeInfo>;
  static constexpr int MAX_BRANCHES = 1024;

  CFG_SAXImport();
  CFG_SAXImport(const CFG_SAXImport&) = delete;
  CFG_SAXImport& operator=(const CFG_SAXImport&) = delete;
  ~CFG_SAXImport();

  // Initialises the XML library once in the process. Init calls it; so may callers that make
  // an input source before.
  static void InitXercescPlatformUtils();

  // Parses `source`. 0; 1 when the XML library cannot be initialised; 4 when the document has
  // errors; -1 when the parser gave up. Unless it is 0 there are no lists.
  int Init(const XERCES_CPP_NAMESPACE::InputSource& source, uint64_t flags);

  // The records and the root path of branch `i`; null, or empty, when there is no such branch.
  NodesVec* GetNodesVecIndex(int i);
  RWCString GetRootPathIndex(int i);
  RWCString GetRootPath();
  int GetNumOfVectors();
  // The caller now owns list `i` and its records.
  NodesVec* TakeOwnershipOfVecIndex(int i);
  // Frees the lists that were not taken when this object goes; otherwise they belong to the
  // caller from the start.
  void SetClearVectorAtDtor(bool clear);

 private:
  struct Branch {
    NodesVec* records = nullptr;
    RWCString root_path;
  };
  std::vector<Branch> m_branches;
  bool m_clear_at_dtor = false;
};
