// A connection to the configuration service.
#pragma once

#include <atomic>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include <CFG/CFG_Protocol.h>
#include <connection/Conn_SyncConnector.h>
#include <datagrid/IgniteCacheClient.h>
#include <strings/RWCString.h>
#include <tree/String_Arr.h>
#include <tree/Tree_NodePtr.h>
#include <tree/Tree_PathAndValueArray.h>

class CFG_Conn_ClientHelper;

// Each operation is one request and its answer; CFG_Protocol.h says which fields travel.
// Paths are sent as they are given. Results that come as pointers belong to the caller,
// byte arrays (char*) and texts are freed with delete[].
//
// One thread at a time, for one request; CFG_Repository gives each thread its own. A request
// that could not be sent, or was not answered, gives 0, an empty text or a null pointer, after a
// line in the log.
class HALVORIA_API CFG_Connector : public Conn_SyncConnector {
 public:
  // What a search looks at, as a set.
  static constexpr int SEARCH_FLAG_KEY = 1;
  static constexpr int SEARCH_FLAG_VALUE_NAME = 2;
  static constexpr int SEARCH_FLAG_VALUE_VALUE = 4;
  static constexpr int SEARCH_FLAG_VALUE_CASE_SENSITIVE = 8;
  static constexpr int SEARCH_FLAG_MATCH_WHOLE_WORD = 16;
  static constexpr int SEARCH_FLAG_DEFAULT =
      SEARCH_FLAG_KEY | SEARCH_FLAG_VALUE_NAME | SEARCH_FLAG_VALUE_VALUE;

  // Whether requests are counted in the shared cache; read when a connector is made, too.
  static std::atomic<bool> m_report_to_cache;

  CFG_Connector();
  ~CFG_Connector() override;

  // Said with every request.
  void SetUser(RWCString user) { m_user = std::move(user); }
  void SetApplication(RWCString application) { m_application = std::move(application); }
  const RWCString& User() const { return m_user; }
  const RWCString& Application() const { return m_application; }
  // "existing connection" or "new connection", for the statistics.
  void SetConnectionKind(const char* kind) { m_connection_kind = kind; }

  // --- the session ---------------------------------------------------------------------------

  int Lock();
  int UnLock();
  int Rollback();
  // Sent without waiting for anything: 1 when there is a connection. While it is on, answers may
  // take as long as they like.
  int EnableExtendedTimeout();
  int DisableExtendedTimeout();

  // --- writes --------------------------------------------------------------------------------

  int SetValue(const RWCString& path, const RWCString& value);
  int DeleteValue(const RWCString& path);
  int DeleteSubTree(const RWCString& path);
  // As the child of the key at `path`. 0 without a request for a tree that no byte array can hold.
  int WriteSubTree(Tree_NodePtr& tree, const RWCString& path);

  // --- values and counts -----------------------------------------------------------------------

  RWCString GetValue(const RWCString& path);
  RWCString GetValue(const RWCString& path, long index);
  // The first of the paths at which there is such a value: 0 with its text and that path, else
  // -1.
  int GetValue(const char* value_name, const char** search_paths, int count, char** value,
               char** path);
  RWCString GetValueName(const RWCString& path, long index);
  int GetValueNum(const RWCString& path);
  int GetSubTreeNum(const RWCString& path);
  int GetSubTreeEntriesCount(const RWCString& path);
  int IsSubTreeExist(const RWCString& path);
  [[nodiscard]] String_Arr* GetSubTreePaths(const RWCString& path);
  [[nodiscard]] Tree_PathAndValueArray* GetSubTreeValues(const RWCString& path);

  // --- subtrees as byte arrays -----------------------------------------------------------------

  [[nodiscard]] char* GetSubTree(const RWCString& path, long index, long& length);
  // Here the number of rules comes before `merge`.
  [[nodiscard]] char* GetSubTree(const RWCString& name, const char** search_rules, int count,
                                 int merge, long& length);
  [[nodiscard]] char* GetSubTreeOnlyWithValues(const RWCString& name, const char** search_rules,
                                               int count, int merge, long& length);
  [[nodiscard]] char* GetSubTreeWithLongValues(const RWCString& path, long& length);
  [[nodiscard]] char* GetSubTreeWithPrecentAndWildcard(const RWCString& path, long& length);
  [[nodiscard]] char* GetSubTreeOnlyWithValuesWithPrecentAndWildcard(const RWCString& path,
                                                                     long& length);

  // --- streamed trees --------------------------------------------------------------------------

  // What changed, or was deleted, after the sequence number (empty: everything there is);
  // `tree_path` receives the full path of its top. Null when there is nothing.
  Tree_NodePtr GetSubTreeBySeqNumber(const RWCString& path, RWCString& seq_number,
                                     RWCString& tree_path, bool compressed);
  Tree_NodePtr GetSubTreeOnlyDeletedNodes(const RWCString& path, RWCString& seq_number,
                                          RWCString& tree_path, bool compressed);

  // --- wildcards, nodes, the store -------------------------------------------------------------

  [[nodiscard]] String_Arr* FillPath(RWCString path);
  RWCString FillPath(RWCString path, RWCString value_name, RWCString value);
  RWCString GetNodeName(const RWCString& ae);
  RWCString GetNodeNameByIp(const RWCString& ip);
  RWCString GetServerNodeName();
  RWCString GetMaxSeqNumber();
  RWCString GetMaxSeqNumber(const RWCString& path);
  RWCString GetMinSeqNumberOfDeletedEntry();
  RWCString GetDbServerDateTime();
  RWCString GetServerSyncID();

  // --- performance counters ----------------------------------------------------------------------

  // Above 4 requests and connections are counted; fixed when the first connector is made.
  static int CounterLevel();
  // Begins to count a connection, unless it is open already, and ends it. Nothing where nothing
  // is counted.
  void CountConnect();
  void CounterDisconnect();

 protected:
  RWCString GetPathBeforeFirstPrecent(RWCString& path);
  Tree_NodePtr GetQueryTreePaths(CFG_Conn_ClientHelper& helper, RWCString& tree_path, bool);
  // 0, or -1 and no array.
  int ReadFixedMsg(CFG_Conn_ClientHelper& helper, String_Arr** texts);
  int ReadTreePathAndValue(CFG_Conn_ClientHelper& helper, Tree_PathAndValueArray** values);

 private:
  struct Argument;
  using Arguments = std::initializer_list<Argument>;

  // Sends the command with the arguments that its row names; what `read` makes of the answer, or
  // an empty one when the request could not be sent.
  template <class Read>
  auto request(const char* operation, cfg::protocol::Command command, Arguments arguments,
               Read read) -> std::invoke_result_t<Read, CFG_Conn_ClientHelper&>;
  bool begin(CFG_Conn_ClientHelper& helper, const cfg::protocol::CommandRow& row,
             Arguments arguments, const std::string* token);
  static bool write(CFG_Conn_ClientHelper& helper, cfg::protocol::Argument kind,
                    const Argument& argument);
  // The answer in the form that the command's row says, which may take `more` to be read.
  template <cfg::protocol::Reply>
  struct Form;
  template <cfg::protocol::Command, class... More>
  auto ask(const char* operation, Arguments arguments, More&&... more);
  template <cfg::protocol::Command>
  [[nodiscard]] char* ask_bytes(const char* operation, Arguments arguments, long& length);

  std::shared_ptr<const std::string> get_token();
  static RWCString statistics_key(const cfg::protocol::CommandRow& row, Arguments arguments);
  bool report_to_cache(const char* command, RWCString key);
  void increment_cache_key(std::string key);
  void begin_statistics();
  void connect_cache();
  static void search_and_replace(RWCString& text, const char* what, const char* with);

  static std::atomic<int> m_ConectorCnt;  // connectors that have a counter

  RWCString m_user;
  RWCString m_application;
  RWCString m_connection_kind;
  RWCString m_counter;  // name of its performance counter; empty where nothing is counted
  IgniteCacheClient<std::string, int> m_cache;
};
