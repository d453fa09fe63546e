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
// the same forms of GetSubTree: a candidate is an entry of the rule, a backslash and `path`.
//
// Ownership: subtrees come back as detached copies that the caller owns, like everything
// that is returned by pointer. Null when nothing is there, or after a line in the log.
//
// Threads and failure: as CFG_Services, and as the class of the store says. A lock, an update
// and a transaction are begun, used and ended on one thread. At the service they are that thread's
// alone; in the other stores there is one for all threads.
//
// An update makes writes one: StartTransactionUpdate, writes, EndTransactionUpdate. Updates
// do not nest. Memory and a file cannot take a write back.
//
// A question that a store has no answer to (most of those about a server, about sequence
// numbers and about caches) gets the neutral answer that stands at the operation.
class HALVORIA_API CFG_RepositoryServices : public CFG_ServicesImp {
 public:
  // How ImportXmlFileWithType treats what is stored already.
  enum CFG_XML_IMPORT_TYPE : int {
    CFG_XML_IMPORT_REPLACE = 1,       // each subtree replaces the key at its own place
    CFG_XML_IMPORT_OVERWRITE = 2,     // merged, the file wins
    CFG_XML_IMPORT_NO_OVERWRITE = 3,  // merged, what is stored wins
  };

  // --- node names and wildcard lookups -----------------------------------------------------

  // The name of the node below `halvoria\system\nodes` that has a server of this title (the value
  // `ae`), or this address (`inet_address`); empty when none has.
  virtual RWCString GetNodeName(RWCString name) = 0;
  virtual RWCString GetNodeNameByIp(RWCString ip) = 0;
  // All concrete paths that match a path with `%` components: of keys, and of values with a
  // text. Null when there is none.
  [[nodiscard]] virtual String_Arr* FillPath(RWCString path) = 0;
  // The path of the first key that matches `path` and whose value at `sub_path` is `value`; empty
  // when there is none.
  virtual RWCString FillPath(RWCString path, RWCString sub_path, RWCString value) = 0;
  // The keys that match `path` and the rules: paths below the key, and the text that is there.
  // `first`: whether upper and lower case differ; `second`: whether all rules must hold, or one.
  // Only a database answers; null elsewhere and when there is none.
  [[nodiscard]] virtual String_Arr* FillPathWithRuleList(RWCString path,
                                                         Tree_PathAndValueArray* rules, int first,
                                                         int second) = 0;

  // --- the process ---------------------------------------------------------------------------

  // Gives memory of the tree pools that is not in use back to the system.
  virtual void CollapseTreePools() = 0;
  // Name and address of the core host, the first below `halvoria\system\hosts` whose value
  // `properties\core_enabled` is "yes"; both empty when none is. Once found they stay, as
  // properties of the process.
  virtual std::pair<RWCString, RWCString> GetCoreProperties() = 0;
  // Whether a cache in front of the store answers without asking it; false without a cache.
  virtual bool IsSubTreeInCache(RWCString& path) = 0;
  virtual bool IsValueInCache(RWCString& path) = 0;
  virtual void ClearCache() = 0;  // nothing without a cache

  // --- special reads: wildcards, values only, long values --------------------------------------

  // A long value is one whose text does not fit into the records of a store, which keeps it
  // apart and leaves it out of reads that do not ask for long values. No store here has such a
  // limit: every value is in its record, and reads with and without long values answer alike.
  //
  // "Only with values" leaves out the keys that have no value anywhere below them. Only a
  // database, and so the service, does; memory and file answer with the whole subtree.

  // The subtree at the path before its first `%`, which a store may cut down to what the
  // pattern selects.
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

  // Writes what `current` has and `stored` lacks or holds differently; deletes nothing. Both are
  // trees of one key, which stands under the key at `path`. Writes one by one, in no update of
  // its own; one that fails says so in the log, and the others go on.
  virtual void CompareSubsAndChangeRepository(CFG_SubTree* current, CFG_SubTree* stored,
                                              RWCString path) = 0;
  // The subtree at `path` as a document. The file is replaced as a whole or left as it was. FALSE
  // when there is no such key, or the file could not be written.
  virtual int ExportPath(const RWCString& path, const RWWString& file) = 0;
  // The records of a file of values, in order of path; null when it cannot be read. The caller
  // owns the vector and the records.
  [[nodiscard]] virtual Tmr_PtrSortedVector<Tree_NodeInfo>* ImportXMLValueListAsVector(
      const RWWString& file) = 0;
  // Writes the values of such a file in one update; without `override_values` only those that
  // are missing. FALSE when any of it failed; then the update is rolled back.
  virtual int ImportXMLValueList(const RWWString& file, int override_values) = 0;
  // As ExportPath for a subtree in hand. `root_path` is its full path; when it is empty, the
  // document starts with the subtree's own key.
  virtual int ExportSubTreeToFile(CFG_SubTree* sub_tree, const RWWString& file,
                                  const RWCString& root_path) = 0;
  virtual int ExportSubTreeToFile(CFG_SubTree* sub_tree, const RWWString& file) = 0;
  // The one subtree of a file or of a document in memory; null when any part of it is wrong.
  [[nodiscard]] virtual CFG_SubTree* ImportXmlFileAsCfgSubTree(const RWWString& file) = 0;
  [[nodiscard]] virtual CFG_SubTree* ImportXmlBufferAsCfgSubTree(const unsigned char* const buffer,
                                                                 unsigned int length) = 0;
  // ImportXmlFileWithType with CFG_XML_IMPORT_OVERWRITE, or without `override_values`
  // CFG_XML_IMPORT_NO_OVERWRITE.
  virtual int ImportXmlFile(const RWWString& file, int override_values) = 0;

  // --- connection, lock and transactions ---------------------------------------------------------

  // Opens the store; the factory calls it. TRUE when it is open, also when it was before. The
  // remote repository connects at the first request instead.
  virtual int Connect() = 0;
  virtual int DisConnect() = 0;
  // Holds changes back until UnLock, where the store can: UnLock commits to a database, and saves
  // a file. Lock always answers TRUE there; UnLock FALSE when the changes could not be kept.
  // At the service they are requests within a transaction. Not counted: one UnLock ends it.
  virtual int Lock() = 0;
  virtual int UnLock() = 0;
  // Who works on the store. Nothing here reads it; TRUE.
  virtual int SetSessionInfo(const std::string& session, int info) = 0;
  // Binds requests of this thread to one connection of the service, until EndTransaction. They
  // nest by count: an inner pair answers 0, and the outer one goes on. It neither locks nor rolls
  // back: that is what an update does. TRUE, and nothing else, in the other stores.
  virtual int StartTransaction() = 0;
  virtual int IsInTransaction() = 0;  // of this thread; FALSE where there are none
  virtual int EndTransaction() = 0;
  virtual int StartWriteTransaction() = 0;  // as StartTransaction
  virtual int EndWriteTransaction() = 0;    // as EndTransaction

  // --- application information -------------------------------------------------------------------

  // From `halvoria\system\applications\cfg\info`, which is read once; empty when any of it is
  // missing, and for an application that is not there.
  virtual RWCString GetApplicationDisplayName(RWCString application) = 0;
  virtual RWCString GetApplicationName(RWCString application) = 0;
  virtual RWCString GetVendorName() = 0;

  // --- long values -------------------------------------------------------------------------------

  // GetSubTree(path), AddOrReplaceSubTree(sub_tree, path, merge) and AddMoreInfoToSubTree, in
  // which long values take part.
  [[nodiscard]] virtual CFG_SubTree* GetSubTreeWithLongValues(const RWCString& path) = 0;
  virtual int AddOrReplaceSubTreeWithLongValues(CFG_SubTree* sub_tree, const RWCString& path,
                                                int merge) = 0;
  virtual int AddMoreInfoToSubTreeWithLongValues(CFG_SubTree* sub_tree, const RWCString& path) = 0;

  // --- the store and its server -------------------------------------------------------------

  // What the connection to a database knows of itself. Empty, or null, in other stores.
  virtual RWCString GetCfgPass() = 0;
  virtual RWCString GetConnectionAlias() = 0;
  virtual void* GetOracleContext() = 0;         // owned by the store
  virtual RWCString GetDbServerDateTime() = 0;  // of the database or the service; else empty
  // The name of the node that the configuration server runs on; of a store without a server,
  // this process's own (`current_node`).
  virtual RWCString GetServerNodeName() = 0;
  // Values `grid_name` and `current_domain` of the server's node, with defaults. Computed once in
  // the process.
  virtual RWCString GetCurrentGridName() = 0;
  virtual RWCString GetCurrentDorranceDomainName() = 0;
  // One of those two by its name, or any other property of the server's node, read anew; empty
  // when it is missing.
  virtual RWCString GetServerProperty(RWCString name) = 0;

  // --- sequence numbers and record-by-record reads, for stores that have them ---------------

  // A database numbers its changes; the service passes its numbers on. A number is decimal text,
  // and empty in a store that has none.
  virtual RWCString GetMinSeqNumberOfDeletedEntry() = 0;  // all deletions from there on are known
  virtual RWCString GetMaxSeqNumber(const RWCString& path) = 0;  // of what is at or below `path`
  virtual RWCString GetMaxSeqNumber() = 0;
  // What changed at or below `path` after number `seq`, with the keys leading there.
  [[nodiscard]] virtual CFG_SubTree* GetSubTreeBySeqNumber(const RWCString& path,
                                                           RWCString& seq) = 0;
  // Whether trees may travel compressed. Only the remote repository asks the service for it.
  virtual void SetWorkCompressed(bool compressed) = 0;
  // What was deleted at or below `path` after number `seq`, with `flag` ever: its leaves name it.
  [[nodiscard]] virtual CFG_SubTree* GetSubTreeOnlyDeletedNodes(const RWCString& path,
                                                                RWCString& seq, bool flag) = 0;
  // A tree record by record: start, records until null, close; one query at a time, and all of it
  // on one thread. `flag`: the path may hold `%`. `seq`: only what changed, or with `deleted`
  // what was deleted, after that number; null for all. -1 where it cannot be opened.
  virtual int StartTreeQuery(RWCString& path, bool flag, const RWCString* seq, bool deleted) = 0;
  // A record's path is relative to the query's root path; a key has no text. The caller owns it.
  [[nodiscard]] virtual Tree_NodeInfo* GetNextFromQuery() = 0;
  virtual int CloseTreeQuery() = 0;
  virtual const RWCString& GetQueryRootPath() = 0;  // of the query that was started last

  // --- updates, and the two halves of a repository that has a base and a secondary store ----

  // A repository may consist of a base store and a secondary one, which follows it. The operations
  // "only base" and "only secondary" change one of the two. The stores here are their own base
  // and have no secondary: the former are the ordinary operations, the latter answer TRUE.

  // Takes back what is pending since Lock. FALSE when that failed; TRUE, and nothing is taken back,
  // in memory and in a file.
  virtual int Rollback() = 0;
  virtual int AddOrReplaceSubTreeOnlySecondaryRep(CFG_SubTree* sub_tree, const RWCString& path) = 0;
  virtual int AddOrReplaceSubTreeOnlyBaseRep(CFG_SubTree* sub_tree, const RWCString& path) = 0;
  virtual int DeleteSubTreeOnlySecondaryRep(const RWCString& path) = 0;
  virtual int DeleteSubTreeOnlyBaseRep(const RWCString& path) = 0;
  virtual int DeleteValueOnlySecondaryRep(const RWCString& path) = 0;
  virtual int DeleteValueOnlyBaseRep(const RWCString& path) = 0;
  // Lock, and at the service a transaction around it. FALSE when the update could not start; then
  // there is nothing to end.
  virtual int StartTransactionUpdate() = 0;
  // UnLock, after Rollback when asked for: the update is over either way. FALSE when it could not
  // be rolled back, or not be saved.
  virtual int EndTransactionUpdate(bool rollback) = 0;
  virtual int StartTransactionUpdateBaseRep() = 0;
  virtual int EndTransactionUpdateBaseRep(bool rollback) = 0;
  virtual int StartTransactionUpdateSecondaryRep() = 0;
  virtual int EndTransactionUpdateSecondaryRep(bool rollback) = 0;
  // The value `halvoria\system\applications\plexaris\sync\server_guid`, read once.
  virtual RWCString GetServerGUID() = 0;
  // The path up to the component before its first `%`; a path without `%` is its own answer.
  // Nothing is looked up.
  virtual RWCString GetPathBeforeFirstPrecent(RWCString& path) = 0;

 protected:
  // The trees of the special reads, detached; null when nothing is there, and always where no tree
  // can be had without a handle (the remote repository).
  virtual Tree_NodePtr GetTreeNodeOnlyWithValuesLong(const RWCString& path) = 0;
  virtual Tree_NodePtr GetTreeNodeOnlyWithValues(const RWCString& path) = 0;
  virtual Tree_NodePtr GetTreeNodeWithPrecentAndWildcard(const RWCString& path) = 0;
  virtual Tree_NodePtr GetTreeNodeOnlyWithValuesWithPrecentAndWildcard(const RWCString& path) = 0;
  // The repository that talks to the server; this one, unless it stands before another.
  virtual CFG_RepositoryServices* GetServerRepository() = 0;

 public:
  // Names the database behind the server for life: numbers of one say nothing about another.
  // "tree" in memory, "file" over a file.
  virtual RWCString GetServerSyncID() = 0;
  // One subtree per branch of the file, in document order; null when any part of it is wrong.
  // The caller owns the vector and the subtrees.
  [[nodiscard]] virtual std::vector<CFG_SubTree*>* ImportXmlFileAsSubTreeVector(
      const RWWString& file) = 0;
  // Writes each subtree of the file at its own place, in one update, which is rolled back when one
  // fails. FALSE then, for a file that is wrong or empty, and for an unknown type.
  virtual int ImportXmlFileWithType(const RWWString& file, CFG_XML_IMPORT_TYPE type) = 0;
  // The subtrees, which stay the caller's, as one document of a branch each.
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
