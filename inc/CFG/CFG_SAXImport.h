// Reads XML documents of trees into lists of flat records.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include <xercesc/util/XercesDefs.hpp>

#include <strings/Export.h>
#include <strings/RWCString.h>
#include <strings/RWWString.h>
#include <tree/Tree_NodeInfo.h>
#include <tree/Tree_NodePtr.h>
#include <utility/Tmr_PtrSortedVector.h>

XERCES_CPP_NAMESPACE_BEGIN
class InputSource;
XERCES_CPP_NAMESPACE_END
class CFG_SAXImportHandlers;
class Sys_File;
namespace cfg {
class branch_list;
}

// How a document is read; 0 is one branch, as a tree.
constexpr uint64_t CFG_SAX_VALUE_LIST = 1;    // full paths, no root, every node is a value
constexpr uint64_t CFG_SAX_MULTI_BRANCH = 2;  // more than one branch

// The outcome of one parse: per branch, the path of its root and the records below it in
// order of path. A value list is one list, in however many branches it is written. An object
// lives for one import. Imports on different threads are independent.
//
// Nothing beside the document is opened, and its length, its entities and the length and
// depth of its declarations are bounded; a document beyond a bound has an error. Whatever
// is wrong is logged, and the first error can be asked for.
class HALVORIA_API CFG_SAXImport {
 public:
  using NodesVec = Tmr_PtrSortedVector<Tree_NodeInfo>;
  static constexpr int MAX_BRANCHES = 1024;

  CFG_SAXImport();
  CFG_SAXImport(const CFG_SAXImport&) = delete;
  CFG_SAXImport& operator=(const CFG_SAXImport&) = delete;
  ~CFG_SAXImport();

  // Initialises the XML library once in the process; false when it cannot be. Init calls it where
  // the parser is needed; callers that make an input source call it before.
  static bool InitXercescPlatformUtils();

  // Parses a document. 0; 1 when the XML library cannot be initialised; 4 when the document
  // has errors or the file cannot be read; -1 when the parser gave up. Unless it is 0 there
  // are no lists.
  int Init(const XERCES_CPP_NAMESPACE::InputSource& source, uint64_t flags);
  // The same for a file, an open file that was not read yet, and a document in memory. A
  // document that was exported, and not touched since, is read without the XML library, many
  // times faster; what comes of it is the same.
  int Init(const RWWString& file, uint64_t flags);
  int Init(Sys_File& file, uint64_t flags);
  int InitFromBuffer(std::string_view document, uint64_t flags);

  // The records and the root path of branch `i`; null, or empty, when there is no such branch.
  // A branch with only its root has an empty list.
  NodesVec* GetNodesVecIndex(int i);
  int GetNodesNumIndex(int i);  // how many records, -1 without a list
  RWCString GetRootPathIndex(int i);
  RWCString GetRootPath();
  int GetNumOfVectors();
  // The caller now owns list `i` and its records; the branch is empty then.
  [[nodiscard]] NodesVec* TakeOwnershipOfVecIndex(int i);
  // Frees the lists that were not taken when this object goes; otherwise they belong to the
  // caller from the start.
  void SetClearVectorAtDtor(bool clear);

  // The tree of branch `i`, not of a value list; the branch is empty then, but for its root path
  // and a list that was asked for before. The tree keeps the whole root path as the virtual
  // parent path of its top node. Null when there is no such branch, or when its records
  // don't make a tree: one below a value, or one path for both a key and a value.
  Tree_NodePtr BuildSubTreeIndex(int i);

  // After Init: how many errors there were, and where and what the first was. Line and column
  // count from 1; they are 0 for an error that has no place in the document.
  int GetErrorCount() const { return m_error_count; }
  int GetErrorLine() const { return m_error_line; }
  int GetErrorColumn() const { return m_error_column; }
  const RWCString& GetErrorMessage() const { return m_error_text; }

 private:
  struct Branch;
  Branch* branch(int i);
  template <class Source>
  bool read_exported(Source& source, uint64_t flags);
  int parse(const XERCES_CPP_NAMESPACE::InputSource& source, uint64_t flags);
  int fail_to_read(const RWCString& reason);
  void take_branches(cfg::branch_list& branches);
  void take_errors(const CFG_SAXImportHandlers& handlers);
  void start_over();
  void drop_lists();

  std::vector<Branch> m_branches;
  bool m_clear_at_dtor = false;
  int m_error_count = 0;
  int m_error_line = 0;
  int m_error_column = 0;
  RWCString m_error_text;
};
