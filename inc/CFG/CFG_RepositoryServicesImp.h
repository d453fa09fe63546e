// The common base of every repository.
#pragma once

#include <functional>
#include <list>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <CFG/CFG_BuildTreeState.h>
#include <CFG/CFG_RepositoryServices.h>
#include <thread/ForkHandler.h>
#include <thread/RecursiveThreadMutexWrapper.h>
#include <tree/Tree_IdNodeInfo.h>

class Sys_File;

// A default for each operation of the interface, and those operations that can be built
// from others: reads by search rule, writes with long values, the split into base and
// secondary store, application information, server and core properties, the comparison of
// subtrees, import and export. A repository overrides what its store needs: without a
// server behind it, a store has a good answer to every question about one here.
//
// Threads: grid name, domain name and the performance flag are computed once in the
// process; everything else is as safe as the store.
class HALVORIA_API CFG_RepositoryServicesImp : public CFG_RepositoryServices {
 public:
  using CFG_RepositoryServices::GetPathBeforeFirstPrecent;
  using CFG_RepositoryServices::GetSubTreeOnlyWithValues;
  using CFG_RepositoryServices::GetSubTreeOnlyWithValuesLong;
  using CFG_RepositoryServices::GetSubTreeOnlyWithValuesWithPrecentAndWildcard;
  using CFG_RepositoryServices::GetSubTreeWithPrecentAndWildcard;
  using CFG_RepositoryServices::IsSubTreeInCache;
  using CFG_RepositoryServices::IsValueInCache;

  CFG_RepositoryServicesImp();
  CFG_RepositoryServicesImp(const CFG_RepositoryServicesImp&) = delete;
  CFG_RepositoryServicesImp& operator=(const CFG_RepositoryServicesImp&) = delete;
  ~CFG_RepositoryServicesImp() override;

  // --- CFG_RepositoryServices --------------------------------------------------------------

  RWCString GetNodeName(RWCString ae) override;
  [[nodiscard]] String_Arr* FillPathWithRuleList(RWCString path, Tree_PathAndValueArray* rules,
                                                 int first, int second) override;
  void CollapseTreePools() override;
  std::pair<RWCString, RWCString> GetCoreProperties() override;
  bool IsSubTreeInCache(RWCString& path) override;
  bool IsValueInCache(RWCString& path) override;
  void ClearCache() override;

  [[nodiscard]] CFG_SubTree* GetSubTreeWithPrecentAndWildcard(const RWCString& path,
                                                              const char** search_rule, int merge,
                                                              int search_num) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeWithPrecentAndWildcard(const RWCString& path,
                                                              const char** search_rule,
                                                              int search_num) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyWithValuesLong(const RWCString& path,
                                                          const char** search_rule, int merge,
                                                          int search_num) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyWithValuesLong(const RWCString& path,
                                                          const char** search_rule,
                                                          int search_num) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyWithValues(const RWCString& path,
                                                      const char** search_rule, int merge,
                                                      int search_num) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyWithValues(const RWCString& path,
                                                      const char** search_rule,
                                                      int search_num) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyWithValuesMergeOneLevel(const RWCString& path,
                                                                   const char** search_rule,
                                                                   int search_num) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyWithValuesWithPrecentAndWildcard(
      const RWCString& path, const char** search_rule, int merge, int search_num) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyWithValuesWithPrecentAndWildcard(
      const RWCString& path, const char** search_rule, int search_num) override;

  void CompareSubsAndChangeRepository(CFG_SubTree* current, CFG_SubTree* stored,
                                      RWCString path) override;
  int ExportPath(const RWCString& path, const RWWString& file) override;
  [[nodiscard]] Tmr_PtrSortedVector<Tree_NodeInfo>* ImportXMLValueListAsVector(
      const RWWString& file) override;
  int ImportXMLValueList(const RWWString& file, int override_values) override;
  int ExportSubTreeToFile(CFG_SubTree* sub_tree, const RWWString& file,
                          const RWCString& root_path) override;
  int ExportSubTreeToFile(CFG_SubTree* sub_tree, const RWWString& file) override;
  [[nodiscard]] CFG_SubTree* ImportXmlFileAsCfgSubTree(const RWWString& file) override;
  [[nodiscard]] CFG_SubTree* ImportXmlBufferAsCfgSubTree(const unsigned char* const buffer,
                                                         unsigned int length) override;
  int ImportXmlFile(const RWWString& file, int override_values) override;

  int DisConnect() override;
  int Lock() override;
  int SetSessionInfo(const std::string& session, int info) override;
  int StartTransaction() override;
  int IsInTransaction() override;
  int EndTransaction() override;
  int StartWriteTransaction() override;
  int EndWriteTransaction() override;

  RWCString GetApplicationDisplayName(RWCString application) override;
  RWCString GetApplicationName(RWCString application) override;
  RWCString GetVendorName() override;

  int AddOrReplaceSubTreeWithLongValues(CFG_SubTree* sub_tree, const RWCString& path,
                                        int merge) override;
  int AddMoreInfoToSubTreeWithLongValues(CFG_SubTree* sub_tree, const RWCString& path) override;

  RWCString GetCfgPass() override;
  RWCString GetConnectionAlias() override;
  void* GetOracleContext() override;
  RWCString GetDbServerDateTime() override;
  RWCString GetServerNodeName() override;
  RWCString GetCurrentGridName() override;
  RWCString GetCurrentDorranceDomainName() override;
  RWCString GetServerProperty(RWCString name) override;

  RWCString GetMinSeqNumberOfDeletedEntry() override;
  RWCString GetMaxSeqNumber(const RWCString& path) override;
  RWCString GetMaxSeqNumber() override;
  [[nodiscard]] CFG_SubTree* GetSubTreeBySeqNumber(const RWCString& path, RWCString& seq) override;
  void SetWorkCompressed(bool compressed) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyDeletedNodes(const RWCString& path, RWCString& seq,
                                                        bool flag) override;
  int StartTreeQuery(RWCString& path, bool flag, const RWCString* seq, bool deleted) override;
  [[nodiscard]] Tree_NodeInfo* GetNextFromQuery() override;
  int CloseTreeQuery() override;
  const RWCString& GetQueryRootPath() override;

  int Rollback() override;
  int AddOrReplaceSubTreeOnlySecondaryRep(CFG_SubTree* sub_tree, const RWCString& path) override;
  int AddOrReplaceSubTreeOnlyBaseRep(CFG_SubTree* sub_tree, const RWCString& path) override;
  int DeleteSubTreeOnlySecondaryRep(const RWCString& path) override;
  int DeleteSubTreeOnlyBaseRep(const RWCString& path) override;
  int DeleteValueOnlySecondaryRep(const RWCString& path) override;
  int DeleteValueOnlyBaseRep(const RWCString& path) override;
  int StartTransactionUpdate() override;
  int EndTransactionUpdate(bool rollback) override;
  int StartTransactionUpdateBaseRep() override;
  int EndTransactionUpdateBaseRep(bool rollback) override;
  int StartTransactionUpdateSecondaryRep() override;
  int EndTransactionUpdateSecondaryRep(bool rollback) override;
  RWCString GetServerGUID() override;
  RWCString GetPathBeforeFirstPrecent(RWCString& path) override;

  [[nodiscard]] std::vector<CFG_SubTree*>* ImportXmlFileAsSubTreeVector(
      const RWWString& file) override;
  int ImportXmlFileWithType(const RWWString& file, CFG_XML_IMPORT_TYPE type) override;
  int ExportSubTreeVectorToFile(std::vector<CFG_SubTree*>* sub_trees,
                                const RWWString& file) override;

  // --- added here ------------------------------------------------------------------------------

  // Whether operations report how long they took; read from the tree once in the process.
  virtual bool CFGPerformanceEnabled();

 protected:
  CFG_RepositoryServices* GetServerRepository() override;
  // Writes the subtrees as one document, one branch each. `root_path` is the full path of the
  // one subtree of the list, or empty; in a longer list each subtree's root knows its own.
  virtual int WriteCFG_SubTreeVectorToFile(std::vector<CFG_SubTree*>* sub_trees,
                                           const RWCString& root_path, const RWWString& file);
  // ExportPath of what `read` answers for the path: a handle that is deleted here, which may share
  // nodes with the tree of the store, or NULL.
  int ExportPathRead(const RWCString& path, const RWWString& file,
                     const std::function<CFG_SubTree*(const RWCString& path)>& read);

 public:
  int WriteCFG_SubTreeToFile(CFG_SubTree* sub_tree, const RWCString& root_path,
                             const RWWString& file);

  // A detached subtree of the given (full path, text) pairs, which all lie under `path`. The
  // caller owns it.
  [[nodiscard]] static CFG_SubTree* CreateSubTree(
      const RWCString& path, const std::list<std::pair<RWCString, RWCString>>& values);
  // Puts one record into the tree at `root`: a value when it has a text, else a key.
  static bool AddNodeToTree(Tree_NodePtr& root, Tree_NodeInfo* record, CFG_BuildTreeState& state);

  // The tree of the records of a byte array, each of which stands behind its parent and behind
  // everything below the sibling before it. The first is the top key. Null when there are none,
  // or one has no place; the flag says whether the array had a virtual path and changes nothing.
  static Tree_NodePtr CreateTreeFromNodeIdVec(const std::vector<Tree_IdNodeInfo>& records,
                                              bool with_virtual_path);
  // The node that has the record's parent id: `current`, or a key above it other than the top one.
  // Null, with a message, when there is none.
  static Tree_Node* GetParent(Tree_Node* current, const Tree_IdNodeInfo* record);
  // The big-endian integer at `offset`, which moves behind it. The buffer must hold it.
  static int GetIntFromChar(const char* buffer, int& offset);

 protected:
  // Taken by Connect to test and change the connection state.
  RecursiveThreadMutexWrapper m_connection_lock;
  bool m_is_connected = false;  // guarded by m_connection_lock
  RWCString m_query_root_path;

 private:
  // Lays `sub_tree` over what is stored below `path`, long values included, or what is stored
  // over it, and writes the result.
  int write_with_stored(const char* op, CFG_SubTree* sub_tree, const RWCString& path,
                        bool given_wins);
  int InitAppInfoTable();
  // One entry of the table; empty when there is none.
  RWCString app_info(const RWCString& entry);
  // Of a property of the configuration server's node.
  RWCString server_property_path(const RWCString& name);
  void init_core_properties(RWCString& name, RWCString& address);
  // Opens the file. False when it cannot be opened for reading; the log says why.
  static bool is_xml_file_exists(const RWWString& file, const char* caller, Sys_File& opened);

  ForkMutex m_app_info_lock{ForkHandler::VALUES};  // not held while the tree is read
  // `vendor_name`, `<application>_name` and `<application>_display_name`; guarded by
  // m_app_info_lock.
  std::unordered_map<RWCString, RWCString> m_app_info;
  int m_app_info_ready = 0;      // set once the table was filled completely; guarded alike
  RWCString m_server_guid;       // guarded by the process's lock of once-only values
  bool m_is_guid_known = false;  // likewise: asked for, and empty perhaps
  Mutex m_core_properties_lock;  // held while core properties are looked up
};
