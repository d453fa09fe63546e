// The interface of a whole configuration store.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <CFG/CFG_ServicesImp.h>
#include <strings/RWWString.h>
#include <tree/Tree_NodeInfo.h>
#include <utility/Tmr_PtrSortedVector.h>

// What only a repository can answer, beyond the services: connection, lock and
// transactions, node names and server properties, wildcard reads and reads of values
// only, sequence numbers, record-by-record reads, import and export. Callers hold one of
// these from CFG_Factory, which owns it.
//
// Paths are absolute: they start with the root key. A path may hold `%` as a component,
// which stands for any key, where an operation says so. Forms with a search rule work as
// the same forms of GetSubTree. Subtrees come back as detached copies that the caller
// owns, like everything that is returned by pointer. Failure and threads: as CFG_Services,
// and as the class of the store says.
class HALVORIA_API CFG_RepositoryServices : public CFG_ServicesImp {
 public:
  // How ImportXmlFileWithType treats what is stored already.
  enum CFG_XML_IMPORT_TYPE : int {
    CFG_XML_IMPORT_REPLACE = 1,       // each subtree replaces the key at its own place
    CFG_XML_IMPORT_OVERWRITE = 2,     // merged, the file wins
    CFG_XML_IMPORT_NO_OVERWRITE = 3,  // merged, what is stored wins
  };

  // --- node names and wildcard lookups -----------------------------------------------------

  // The name of the node that has this server title, or this address; empty when none has.
  virtual RWCString GetNodeName(RWCString name) = 0;
  virtual RWCString GetNodeNameByIp(RWCString ip) = 0;
  // All concrete paths that match a path with `%` components; null when there is none.
  [[nodiscard]] virtual String_Arr* FillPath(RWCString path) = 0;
  // The first concrete path whose value at `sub_path` is `value`; empty when there is none.
  virtual RWCString FillPath(RWCString path, RWCString sub_path, RWCString value) = 0;
  [[nodiscard]] virtual String_Arr* FillPathWithRuleList(RWCString path,
                                                         Tree_PathAndValueArray* rules, int first,
                                                         int second) = 0;

  // --- the process ---------------------------------------------------------------------------

  // Gives memory of the tree pools that is not in use back to the system.
  virtual void CollapseTreePools() = 0;
  // Name and address of the core host; both empty when none is configured.
  virtual std::pair<RWCString, RWCString> GetCoreProperties() = 0;
  virtual bool IsSubTreeInCache(RWCString& path) = 0;
  virtual bool IsValueInCache(RWCString& path) = 0;
  virtual void ClearCache() = 0;

  // --- special reads: wildcards, values only, long values --------------------------------------

  [[nodiscard]] virtual CFG_SubTree* GetSubTreeWithPrecentAndWildcard(const RWCString& path,
                                                                      const char** search_rule,
                                                                      int merge,
                                                                      int search_num) = 0;
  [[nodiscard]] virtual CFG_SubTree* GetSubTreeWithPrecentAndWildcard(const RWCString& path,
                                                                      const char** search_rule,
                                                                      int search_num) = 0;
  [[nodiscard]] virtual CFG_SubTree* GetSubTreeWithPrecentAndWildcard(const RWCString& path) = 0;
  // Only the keys that lead to values, long values included.
  [[nodiscard]] virtual CFG_SubTree* GetSubTreeOnlyWithValuesLong(const RWCString& path,
                                                                  const char** search_rule,
                                                                  int merge, int search_num) = 0;
  [[nodiscard]] virtual CFG_SubTree* GetSubTreeOnlyWithValuesLong(const RWCString& path,
                                                                  const char** search_rule,
                                                                  int search_num) = 0;
  [[nodiscard]] virtual CFG_SubTree* GetSubTreeOnlyWithValuesLong(const RWCString& path) = 0;
  // Only the keys that lead to values.
  [[nodiscard]] virtual CFG_SubTree* GetSubTreeOnlyWithValues(const RWCString& path,
                                                              const char** search_rule, int merge,
                                                              int search_num) = 0;
  [[nodiscard]] virtual CFG_SubTree* GetSubTreeOnlyWithValues(const RWCString& path,
                                                              const char** search_rule,
                                                              int search_num) = 0;
  [[nodiscard]] virtual CFG_SubTree* GetSubTreeOnlyWithValues(const RWCString& path) = 0;
  // The candidates' direct children in one key; a child comes from the first one that has it.
  [[nodiscard]] virtual CFG_SubTree* GetSubTreeOnlyWithValuesMergeOneLevel(const RWCString& path,
                                                                           const char** search_rule,
                                                                           int search_num) = 0;
  // With merge, this one form lets later candidates win, and answers with a handle on an
  // empty key when there is no candidate.
  [[nodiscard]] virtual CFG_SubTree* GetSubTreeOnlyWithValuesWithPrecentAndWildcard(
      const RWCString& path, const char** search_rule, int merge, int search_num) = 0;
  [[nodiscard]] virtual CFG_SubTree* GetSubTreeOnlyWithValuesWithPrecentAndWildcard(
      const RWCString& path, const char** search_rule, int search_num) = 0;
  [[nodiscard]] virtual CFG_SubTree* GetSubTreeOnlyWithValuesWithPrecentAndWildcard(
      const RWCString& path) = 0;

  // --- comparison, export and import ---------------------------------------------------------

  // Writes what `current` has and `stored` lacks or holds differently; deletes nothing.
  virtual void CompareSubsAndChangeRepository(CFG_SubTree* current, CFG_SubTree* stored,
                                              RWCString path) = 0;
  // The file is replaced as a whole or left as it was. FALSE when it could not be written.
  virtual int ExportPath(const RWCString& path, const RWWString& file) = 0;
  // The records of a file of values, in order of path; null when it cannot be read. The caller
  // owns the vector and the records.
  [[nodiscard]] virtual Tmr_PtrSortedVector<Tree_NodeInfo>* ImportXMLValueListAsVector(
      const RWWString& file) = 0;
  // Writes the values of such a file in one update; without `override_values` only those that
  // are missing.
  virtual int ImportXMLValueList(const RWWString& file, int override_values) = 0;
  virtual int ExportSubTreeToFile(CFG_SubTree* sub_tree, const RWWString& file,
                                  const RWCString& root_path) = 0;
  virtual int ExportSubTreeToFile(CFG_SubTree* sub_tree, const RWWString& file) = 0;
  // The one subtree of a file or of a document in memory; null when any part of it is wrong.
  [[nodiscard]] virtual CFG_SubTree* ImportXmlFileAsCfgSubTree(const RWWString& file) = 0;
  [[nodiscard]] virtual CFG_SubTree* ImportXmlBufferAsCfgSubTree(const unsigned char* const buffer,
                                                                 unsigned int length) = 0;
  // ImportXmlFileWithType with CFG_XML_IMPORT_OVERWRITE or CFG_XML_IMPORT_NO_OVERWRITE.
  virtual int ImportXmlFile(const RWWString& file, int override_values) = 0;

  // --- connection, lock and transactions ---------------------------------------------------------

  virtual int Connect() = 0;
  virtual int DisConnect() = 0;
  virtual int Lock() = 0;
  virtual int UnLock() = 0;
  virtual int SetSessionInfo(const std::string& session, int info) = 0;
  virtual int StartTransaction() = 0;
  virtual int IsInTransaction() = 0;
  virtual int EndTransaction() = 0;
  virtual int StartWriteTransaction() = 0;
  virtual int EndWriteTransaction() = 0;

  // --- application information -------------------------------------------------------------------

  // From `halvoria\system\applications\cfg\info`; empty when it is not there.
  virtual RWCString GetApplicationDisplayName(RWCString application) = 0;
  virtual RWCString GetApplicationName(RWCString application) = 0;
  virtual RWCString GetVendorName() = 0;

  // --- long values -------------------------------------------------------------------------------

  [[nodiscard]] virtual CFG_SubTree* GetSubTreeWithLongValues(const RWCString& path) = 0;
  virtual int AddOrReplaceSubTreeWithLongValues(CFG_SubTree* sub_tree, const RWCString& path,
                                                int merge) = 0;
  virtual int AddMoreInfoToSubTreeWithLongValues(CFG_SubTree* sub_tree, const RWCString& path) = 0;

  // --- the store and its server -------------------------------------------------------------

  virtual RWCString GetCfgPass() = 0;
  virtual RWCString GetConnectionAlias() = 0;
  virtual void* GetOracleContext() = 0;
  virtual RWCString GetDbServerDateTime() = 0;
  virtual RWCString GetServerNodeName() = 0;
  // Computed once in the process.
  virtual RWCString GetCurrentGridName() = 0;
  virtual RWCString GetCurrentDorranceDomainName() = 0;
  virtual RWCString GetServerProperty(RWCString name) = 0;

  // --- sequence numbers and record-by-record reads, for stores that have them ---------------

  virtual RWCString GetMinSeqNumberOfDeletedEntry() = 0;
  virtual RWCString GetMaxSeqNumber(const RWCString& path) = 0;
  virtual RWCString GetMaxSeqNumber() = 0;
  [[nodiscard]] virtual CFG_SubTree* GetSubTreeBySeqNumber(const RWCString& path,
                                                           RWCString& seq) = 0;
  virtual void SetWorkCompressed(bool compressed) = 0;
  [[nodiscard]] virtual CFG_SubTree* GetSubTreeOnlyDeletedNodes(const RWCString& path,
                                                                RWCString& seq, bool flag) = 0;
  virtual int StartTreeQuery(RWCString& path, bool flag, const RWCString* seq, bool deleted) = 0;
  [[nodiscard]] virtual Tree_NodeInfo* GetNextFromQuery() = 0;
  virtual int CloseTreeQuery() = 0;
  virtual const RWCString& GetQueryRootPath() = 0;

  // --- updates, and the two halves of a repository that has a base and a secondary store ----

  virtual int Rollback() = 0;
  virtual int AddOrReplaceSubTreeOnlySecondaryRep(CFG_SubTree* sub_tree, const RWCString& path) = 0;
  virtual int AddOrReplaceSubTreeOnlyBaseRep(CFG_SubTree* sub_tree, const RWCString& path) = 0;
  virtual int DeleteSubTreeOnlySecondaryRep(const RWCString& path) = 0;
  virtual int DeleteSubTreeOnlyBaseRep(const RWCString& path) = 0;
  virtual int DeleteValueOnlySecondaryRep(const RWCString& path) = 0;
  virtual int DeleteValueOnlyBaseRep(const RWCString& path) = 0;
  virtual int StartTransactionUpdate() = 0;
  // FALSE when the update could not be rolled back, or not be saved.
  virtual int EndTransactionUpdate(bool rollback) = 0;
  virtual int StartTransactionUpdateBaseRep() = 0;
  virtual int EndTransactionUpdateBaseRep(bool rollback) = 0;
  virtual int StartTransactionUpdateSecondaryRep() = 0;
  virtual int EndTransactionUpdateSecondaryRep(bool rollback) = 0;
  virtual RWCString GetServerGUID() = 0;
  // The path up to the component before its first `%`; a path without `%` is its own answer.
  virtual RWCString GetPathBeforeFirstPrecent(RWCString& path) = 0;

 protected:
  // The trees of the special reads, detached; null when nothing is there.
  virtual Tree_NodePtr GetTreeNodeOnlyWithValuesLong(const RWCString& path) = 0;
  virtual Tree_NodePtr GetTreeNodeOnlyWithValues(const RWCString& path) = 0;
  virtual Tree_NodePtr GetTreeNodeWithPrecentAndWildcard(const RWCString& path) = 0;
  virtual Tree_NodePtr GetTreeNodeOnlyWithValuesWithPrecentAndWildcard(const RWCString& path) = 0;
  // The repository that talks to the server.
  virtual CFG_RepositoryServices* GetServerRepository() = 0;

 public:
  virtual RWCString GetServerSyncID() = 0;
  // One subtree per branch of the file, in document order; null when any part of it is wrong.
  // The caller owns the vector and the subtrees.
  [[nodiscard]] virtual std::vector<CFG_SubTree*>* ImportXmlFileAsSubTreeVector(
      const RWWString& file) = 0;
  // Writes each subtree of the file at its own place, in one update. FALSE for an unknown type.
  virtual int ImportXmlFileWithType(const RWWString& file, CFG_XML_IMPORT_TYPE type) = 0;
  virtual int ExportSubTreeVectorToFile(std::vector<CFG_SubTree*>* sub_trees,
                                        const RWWString& file) = 0;

  // --- subtrees as byte arrays ---------------------------------------------------------------

  // The subtree of an array that CFG_SubTree::SerializeSubTree or Tree_Node wrote; the caller owns
  // it. NULL, with the reason in the log, when any part of the array is wrong, and when nothing of
  // it is to be kept. An array that is cut between two records, or up to three bytes behind
  // one, is the array of the records before the cut.
  [[nodiscard]] static CFG_SubTree* CreateSubTreeFromByteArray(const char* byteArray, int length);
  // With a virtual path the array begins with the path of the key that the subtree hangs under.
  // A `sub_path`, which starts with the name of the top key, selects one subtree: only that and
  // the keys leading to it are kept or, with `skip_sub_path`, everything else.
  [[nodiscard]] static CFG_SubTree* CreateSubTreeFromByteArray(const char* byteArray, int length,
                                                               bool with_virtual_path,
                                                               RWCString sub_path,
                                                               bool skip_sub_path);

  // --- the same for literals and const paths ---------------------------------------------------

  bool IsSubTreeInCache(const RWCString& path) {
    RWCString copy(path);
    return IsSubTreeInCache(copy);
  }
  bool IsValueInCache(const RWCString& path) {
    RWCString copy(path);
    return IsValueInCache(copy);
  }
  RWCString GetPathBeforeFirstPrecent(const RWCString& path) {
    RWCString copy(path);
    return GetPathBeforeFirstPrecent(copy);
  }
};
