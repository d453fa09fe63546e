// A repository in the central configuration service.
#pragma once

#include <functional>
#include <memory>

#include <CFG/CFG_RepositoryServicesImp.h>

class CFG_Connector;
namespace cfg {
class connector_pool;
struct key_renaming;
}  // namespace cfg

// Keeps no tree: each operation is one request to the service. Where that is, and who asks, is
// said by the properties HALVORIA_REMOTE_SERVER_NAME, ..._PORT, HALVORIA_CONNECTION_TYPE,
// HALVORIA_CONNECTION_PROPERTIES, CurrUser and CurrApp. With HALVORIA_USE_LOCAL_SVCFG in the
// environment, HALVORIA_USE_LOCAL_SVCFG_SERVER and HALVORIA_USE_LOCAL_SVCFG_PORT win.
//
// Connections are made when they are needed, one for each thread that asks at the same time,
// and used again; what was needed for a while only is closed. A thread that started a transaction
// keeps its connection until it ends it: start, writes and end come from one thread, and a thread
// that ends itself before undoes what it did. Transactions nest by count; an inner end answers 0.
//
// Any thread may call any operation. When the service does not answer, an operation gives its
// empty result; the next request opens the connection anew, but not within a transaction: the
// rest of that fails.
class HALVORIA_API CFG_Repository : public CFG_RepositoryServicesImp {
 public:
  using CFG_RepositoryServicesImp::AddOrReplaceSubTree;
  using CFG_RepositoryServicesImp::GetSubTree;
  using CFG_RepositoryServicesImp::GetSubTreeNum;
  using CFG_RepositoryServicesImp::GetSubTreeOnlyWithValues;
  using CFG_RepositoryServicesImp::GetSubTreeOnlyWithValuesLong;
  using CFG_RepositoryServicesImp::GetSubTreeOnlyWithValuesWithPrecentAndWildcard;
  using CFG_RepositoryServicesImp::GetSubTreeWithPrecentAndWildcard;
  using CFG_RepositoryServicesImp::GetValue;
  using CFG_RepositoryServicesImp::GetValueName;
  using CFG_RepositoryServicesImp::GetValueNum;

  CFG_Repository();
  ~CFG_Repository() override;

  // --- CFG_Services ------------------------------------------------------------------------

  [[nodiscard]] CFG_SubTree* GetSubTree(RWCString name, const char** search_rule, int merge,
                                        int search_num) override;
  [[nodiscard]] CFG_SubTree* GetSubTree(RWCString name, const char** search_rule,
                                        int search_num) override;
  [[nodiscard]] CFG_SubTree* GetSubTree(RWCString& path, int index) override;
  [[nodiscard]] CFG_SubTree* GetSubTree(RWCString& path) override;
  [[nodiscard]] Tree_ValueAndPath* GetValue(RWCString name, const char** search_rule,
                                            int search_num) override;
  RWCString GetValue(RWCString& path, int index) override;
  RWCString GetValue(const RWCString& path) override;
  RWCString GetValueName(RWCString& path, int index) override;
  int GetValueNum(RWCString& path) override;
  int GetSubTreeNum(RWCString& path) override;
  int GetSubTreeEntriesCount(const RWCString& path) override;
  [[nodiscard]] Tree_PathAndValueArray* GetSubTreeValues(const RWCString& path) override;
  [[nodiscard]] String_Arr* GetSubTreePaths(const RWCString& path) override;
  int SetValue(const RWCString& path, const RWCString& value) override;
  int AddOrReplaceSubTree(CFG_SubTree* sub_tree, const RWCString& path) override;
  int DeleteSubTree(const RWCString& path) override;
  int DeleteValue(const RWCString& path) override;
  int IsSubTreeExist(const RWCString& path) override;

  // --- CFG_RepositoryServices --------------------------------------------------------------

  RWCString GetNodeName(RWCString ae) override;
  RWCString GetNodeNameByIp(RWCString ip) override;
  [[nodiscard]] String_Arr* FillPath(RWCString path) override;
  RWCString FillPath(RWCString path, RWCString value_name, RWCString value_data) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeWithPrecentAndWildcard(const RWCString& path) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyWithValuesLong(const RWCString& path) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyWithValues(const RWCString& path,
                                                      const char** search_rule, int merge,
                                                      int search_num) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyWithValues(
      const RWCString& path) override;  // long values included
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyWithValuesWithPrecentAndWildcard(
      const RWCString& path) override;
  // Opens no connection yet: TRUE.
  int Connect() override;
  // Closes the connections that nobody uses; requests open them again.
  int DisConnect() override;
  int Lock() override;
  int UnLock() override;
  int StartTransaction() override;
  int IsInTransaction() override;
  int EndTransaction() override;
  [[nodiscard]] CFG_SubTree* GetSubTreeWithLongValues(const RWCString& path) override;
  RWCString GetDbServerDateTime() override;
  RWCString GetServerNodeName() override;  // asked for once in the process
  RWCString GetMinSeqNumberOfDeletedEntry() override;
  RWCString GetMaxSeqNumber(const RWCString& path) override;
  RWCString GetMaxSeqNumber() override;
  [[nodiscard]] CFG_SubTree* GetSubTreeBySeqNumber(const RWCString& path,
                                                   RWCString& seq_number) override;
  void SetWorkCompressed(bool compressed) override;
  [[nodiscard]] CFG_SubTree* GetSubTreeOnlyDeletedNodes(const RWCString& path,
                                                        RWCString& seq_number, bool) override;
  int Rollback() override;
  // A transaction with the store locked for this thread, and more time for it. 0 when the thread
  // is in a transaction already, which goes on as it was, or the service refuses; then there is
  // nothing to end.
  int StartTransactionUpdate() override;
  // The update is over either way. 0: nothing of it was kept, nor when it was not to be.
  int EndTransactionUpdate(bool failed) override;
  int StartTransactionUpdateBaseRep() override;
  int EndTransactionUpdateBaseRep(bool failed) override;
  RWCString GetServerSyncID() override;

  // --- added here ------------------------------------------------------------------------------

  // Lets this thread's transaction take longer, or no longer. 1 when the service was told.
  virtual int EnableExtendedTimeout();
  virtual int DisableExtendedTimeout();

  // From any thread, before the end: transactions fail at once, whatever they wait for, those that
  // begin later as well.
  void Interrupt();
  // The connector for the calling thread, to be given back by FreeConnector on the same thread.
  CFG_Connector* GetConnector();
  void FreeConnector(CFG_Connector* connector);

 protected:
  // A tree whose byte array would be large is written in parts, in one update.
  int WriteSubTree(Tree_NodePtr& sub_tree, const RWCString& path) override;
  [[nodiscard]] String_Arr* SearchKeyOrValueName(const RWCString& name,
                                                 const RWCString& path) override;
  int SetOrRanameKeyName(const RWCString& path, const RWCString& key_name) override;
  // There is no tree to be read in place: null, all of them.
  Tree_NodePtr GetTreeNode(const RWCString& path) override;
  Tree_NodePtr GetTreeNodeOnlyWithValuesLong(const RWCString& path) override;
  Tree_NodePtr GetTreeNodeOnlyWithValues(const RWCString& path) override;
  Tree_NodePtr GetTreeNodeWithPrecentAndWildcard(const RWCString& path) override;
  Tree_NodePtr GetTreeNodeOnlyWithValuesWithPrecentAndWildcard(const RWCString& path) override;

 private:
  std::unique_ptr<CFG_Connector> MakeNewConnector();
  int StartTransaction(CFG_Connector* connector);
  int EndTransaction(CFG_Connector* connector);
  int end_bound();
  void read_statistics_switch();
  int abandon_update();
  int in_one_update(const std::function<int()>& change);
  int write_array(Tree_NodePtr& sub_tree, const RWCString& path);
  int write_in_parts(const Tree_NodePtr& sub_tree, const RWCString& path);
  int rename(const cfg::key_renaming& asked);
  bool is_taken(const RWCString& path);

  const std::shared_ptr<cfg::connector_pool> m_connectors;
  bool m_work_compressed = false;
};
