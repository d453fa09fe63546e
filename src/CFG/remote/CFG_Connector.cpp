#include <CFG/CFG_Connector.h>

#include <array>

#include <CFG/CFG_Conn_ClientHelper.h>
#include <CFG/detail/answered.h>
#include <CFG/detail/patterns.h>
#include <CFG/remote/request_argument.h>
#include <connection/Conn_TokenManagerHook.h>
#include <logging/Logger.h>
#include <strings/T_Bool.h>
#include <tree/Tree_Node.h>

using namespace cfg::protocol;
using enum cfg::protocol::Command;

namespace {

constexpr Log_Logger logger("src/CFG/CFG_Connector", CFG_SERVICE_ID / 10000);

// What a request calls its command; made once, so that no request makes it.
const RWCString& name_of(Command command) {
  static const auto& names = *[] {
    auto* made = new std::array<RWCString, COMMAND_COUNT>;
    for (int i = 0; i < COMMAND_COUNT; ++i) (*made)[i] = row_of(static_cast<Command>(i)).name;
    return made;
  }();
  return names[static_cast<size_t>(command)];
}
// No child of a fork waits for their making.
[[maybe_unused]] const RWCString& made_early = name_of(Command{});

}  // namespace

CFG_Connector::CFG_Connector() {
  logger.trace("Constructing CFG_Connector\n");
  m_service_name = SERVICE_NAME;
  begin_statistics();
}

CFG_Connector::~CFG_Connector() = default;

// --- one request -----------------------------------------------------------------------------

std::shared_ptr<const std::string> CFG_Connector::get_token() {
  logger.trace("Start");
  if (IsTokenSent()) return nullptr;
  RWCString session_id;
  auto token = Conn_TokenManagerHook::GetToken("cfg_modify", session_id);
  if (token) {
    logger.detail("SID=%s after GetToken()", session_id);
  } else {
    logger.trace("GetToken() returned null");
  }
  return token;
}

bool CFG_Connector::write(CFG_Conn_ClientHelper& helper, cfg::protocol::Argument kind,
                          const Argument& argument) {
  using K = cfg::protocol::Argument;
  Conn_FormWriter& form = helper.Writer();
  const Field field = field_of(kind);
  switch (kind) {
    case K::NONE:
      return true;
    case K::INDEX:
    case K::COMPRESSED:
    case K::MERGE:
      return form.WriteLong(field, argument.number);
    case K::SUBTREE:
      return form.WriteBinary(field, argument.bytes->release(), static_cast<int>(argument.number),
                              CONN_FORM_OWNS);
    case K::RULES:
      if (!form.WriteLong(field, argument.number)) return false;
      for (long i = 0; i < argument.number; ++i) {
        if (!form.WriteString(CFG_FLD_PATH, argument.rule(i))) return false;
      }
      return true;
    default:
      return form.WriteString(field, argument.text);
  }
}

bool CFG_Connector::begin(CFG_Conn_ClientHelper& helper, const CommandRow& row, Arguments arguments,
                          const std::string* token) {
  if (token && helper.IsValid()) {
    const bool is_sent = helper.Writer().WriteString(CFG_FLD_SECURITY_TOKEN, *token);
    if (is_sent) SetTokenSent(true);
    if (!is_sent) logger.error("Could not send security token, cmd_id=%s", row.name);
  }
  if (row.is_counted && m_report_to_cache) {
    report_to_cache(row.name, statistics_key(row, arguments));
  }
  if (!helper.IsValid()) return false;
  const Argument* argument = arguments.begin();
  for (const auto kind : row.arguments) {
    if (kind == cfg::protocol::Argument::NONE) break;
    if (!write(helper, kind, *argument++)) return false;
  }
  return true;
}

template <class Read>
auto CFG_Connector::request(const char* operation, Command command, Arguments arguments, Read read)
    -> std::invoke_result_t<Read, CFG_Conn_ClientHelper&> try {
  const CommandRow& row = row_of(command);
  const auto token = row.has_token ? get_token() : nullptr;
  CFGClientHelper_Params params(*this, name_of(command));
  CFG_Conn_ClientHelper helper(operation, *this, params);
  std::invoke_result_t<Read, CFG_Conn_ClientHelper&> answer{};
  if (begin(helper, row, arguments, token.get())) answer = read(helper);
  if (!helper.IsValid()) cfg::failure_watch::note();
  return answer;
} catch (...) {
  return cfg::answered(logger, std::invoke_result_t<Read, CFG_Conn_ClientHelper&>(), operation);
}

// --- the forms of answers ----------------------------------------------------------------------

template <>
struct CFG_Connector::Form<Reply::NOTHING> {
  static int read(CFG_Conn_ClientHelper& helper) {
    helper.FreeLogGuard();
    return helper.IsValid() ? TRUE : FALSE;
  }
};
template <>
struct CFG_Connector::Form<Reply::SUCCESS_CODE> {
  static int read(CFG_Conn_ClientHelper& helper) { return helper.GetSuccessCode(); }
};
template <>
struct CFG_Connector::Form<Reply::NUMBER> {
  static int read(CFG_Conn_ClientHelper& helper) { return helper.GetResponseLength(); }
};
enum class Wait { AS_ALWAYS, TEN_SECONDS };
template <>
struct CFG_Connector::Form<Reply::STRING> {
  static RWCString read(CFG_Conn_ClientHelper& helper, Wait wait = Wait::AS_ALWAYS) {
    RWCString text;
    wait == Wait::AS_ALWAYS ? helper.GetCFGValue(text) : helper.GetCFGValueTimeOut(text);
    return text;
  }
};
template <>
struct CFG_Connector::Form<Reply::SUBTREE> {
  static char* read(CFG_Conn_ClientHelper& helper, long& length) {
    return helper.get_subtree(length);
  }
};
template <>
struct CFG_Connector::Form<Reply::LIST> {
  static String_Arr* read(CFG_Conn_ClientHelper& helper, CFG_Connector& connector,
                          Log_Format<> otherwise) {
    String_Arr* texts = nullptr;
    if (helper.HasAnswer(otherwise)) connector.ReadFixedMsg(helper, &texts);
    return texts;
  }
};
template <>
struct CFG_Connector::Form<Reply::PATH_VALUES> {
  static Tree_PathAndValueArray* read(CFG_Conn_ClientHelper& helper, CFG_Connector& connector,
                                      Log_Format<> otherwise) {
    Tree_PathAndValueArray* values = nullptr;
    if (helper.HasAnswer(otherwise)) connector.ReadTreePathAndValue(helper, &values);
    return values;
  }
};
template <>
struct CFG_Connector::Form<Reply::FOUND_VALUE> {
  static bool read(CFG_Conn_ClientHelper& helper, char** value, char** path) {
    if (!helper.HasAnswer("GetValue: failed reading response from server\n")) return false;
    int is_found = 0;
    if (!helper.Read(CFG_FLD_SUCCESS_CODE, is_found) || !helper.Read(CFG_FLD_VALUE, value) ||
        !helper.Read(CFG_FLD_PATH, path)) {
      return logger.reject(false, "Failed to get response from server.\n");
    }
    return is_found && **value && **path;
  }
};
template <>
struct CFG_Connector::Form<Reply::TREE> {
  static Tree_NodePtr read(CFG_Conn_ClientHelper& helper, CFG_Connector& connector,
                           RWCString& tree_path) {
    return connector.GetQueryTreePaths(helper, tree_path, false);
  }
};

template <Command command, class... More>
auto CFG_Connector::ask(const char* operation, Arguments arguments, More&&... more) {
  return request(operation, command, arguments, [&](CFG_Conn_ClientHelper& helper) {
    return Form<row_of(command).reply>::read(helper, more...);
  });
}

template <Command command>
char* CFG_Connector::ask_bytes(const char* operation, Arguments arguments, long& length) {
  length = 0;
  return ask<command>(operation, arguments, length);
}

// --- the session ---------------------------------------------------------------------------

// However long what comes then may take, a service that is there answers this in time.
int CFG_Connector::Lock() {
  const bool was_patient = IsPatient();
  SetPatient(false);
  const int is_done = ask<LOCK>("CFG_Connector::Lock", {});
  is_done ? SetLocked(true) : ForgetLostLock();  // a loss has been told by this 0, as below
  SetPatient(was_patient && IsConnected());
  return is_done;
}
int CFG_Connector::UnLock() {
  const int is_done = ask<UNLOCK>("CFG_Connector::UnLock", {});
  SetLocked(false);  // even where it fails: what is written next is not part of that
  return is_done;
}
int CFG_Connector::Rollback() {
  const int is_done = ask<ROLLBACK>("CFG_Connector::Rollback", {});
  ForgetLostLock();
  return is_done;
}
int CFG_Connector::EnableExtendedTimeout() {
  const int is_told = ask<ENABLE_EXTENDED_TIMEOUT>("CFG_Connector::EnableExtendedTimeout", {});
  if (is_told) SetPatient(true);
  return is_told;
}
int CFG_Connector::DisableExtendedTimeout() {
  SetPatient(false);
  return ask<DISABLE_EXTENDED_TIMEOUT>("CFG_Connector::DisableExtendedTimeout", {});
}

// --- writes --------------------------------------------------------------------------------

int CFG_Connector::SetValue(const RWCString& path, const RWCString& value) {
  return ask<SET_VALUE>("CFG_Connector::SetValue", {path, value});
}
int CFG_Connector::DeleteValue(const RWCString& path) {
  return ask<DEL_VAL>("CFG_Connector::DeleteValue", {path});
}
int CFG_Connector::DeleteSubTree(const RWCString& path) {
  return ask<DEL_SUB>("CFG_Connector::DeleteSubTree", {path});
}

int CFG_Connector::WriteSubTree(Tree_NodePtr& tree, const RWCString& path) try {
  if (!tree) return 0;
  logger.trace("Calling SerializeSubTree in the CFG\n");
  int length = 0;
  std::unique_ptr<char[]> bytes(Tree_Node::GetSerializedTreeNode(tree, length, false));
  if (!bytes) return logger.reject(0, "Fail to write subtree, return NULL\n");
  return ask<WRITE_SUB>("CFG_Connector::WriteSubTree", {{bytes, length}, path});
} catch (...) {
  return cfg::answered(logger, 0);
}

// --- values and counts -----------------------------------------------------------------------

RWCString CFG_Connector::GetValue(const RWCString& path) {
  return ask<GET_VAL>("CFG_Connector::GetValue", {path});
}
RWCString CFG_Connector::GetValue(const RWCString& path, long index) {
  return ask<GET_VAL_INX>("CFG_Connector::GetValue", {path, index});
}
RWCString CFG_Connector::GetValueName(const RWCString& path, long index) {
  return ask<GET_VAL_NAME>("CFG_Connector::GetValueName", {path, index});
}
int CFG_Connector::GetValueNum(const RWCString& path) {
  return ask<GET_VAL_NUM>("CFG_Connector::GetValueNum", {path});
}
int CFG_Connector::GetSubTreeNum(const RWCString& path) {
  return ask<GET_SUB_NUM>("CFG_Connector::GetSubTreeNum", {path});
}
int CFG_Connector::GetSubTreeEntriesCount(const RWCString& path) {
  return ask<GET_SUB_ENTRIES_COUNT>("CFG_Connector::GetSubTreeEntriesCount", {path});
}
int CFG_Connector::IsSubTreeExist(const RWCString& path) {
  return ask<GET_SUB_EXISTS>("CFG_Connector::IsSubTreeExist", {path});
}

int CFG_Connector::GetValue(const char* value_name, const char** search_paths, int count,
                            char** value, char** path) {
  *value = *path = nullptr;
  const std::string_view name = value_name ? value_name : "";
  if (ask<GET_VALUE_BY_SEARCH_RULE>("CFG_Connector::GetValue", {name, {search_paths, count}}, value,
                                    path)) {
    return 0;
  }
  delete[] std::exchange(*value, nullptr);
  delete[] std::exchange(*path, nullptr);
  return -1;
}

String_Arr* CFG_Connector::GetSubTreePaths(const RWCString& path) {
  return ask<GET_SUB_PATHS>("CFG_Connector::GetSubTreePaths", {path}, *this,
                            Log_Format<>("GetSubTreePaths: failed reading response from server\n"));
}

Tree_PathAndValueArray* CFG_Connector::GetSubTreeValues(const RWCString& path) {
  return ask<GET_SUB_TREE_VALUES>(
      "CFG_Connector::GetSubTreeValues", {path}, *this,
      Log_Format<>("GetSubTreeValues: failed reading response from server\n"));
}

// --- subtrees as byte arrays -----------------------------------------------------------------

char* CFG_Connector::GetSubTree(const RWCString& path, long index, long& length) {
  return ask_bytes<GET_SUB_INX>("CFG_Connector::GetSubTree", {path, index}, length);
}
char* CFG_Connector::GetSubTree(const RWCString& name, const char** search_rules, int count,
                                int merge, long& length) {
  return ask_bytes<GET_SUB_MERGE>("CFG_Connector::GetSubTree",
                                  {name, {search_rules, count}, long{merge}}, length);
}
char* CFG_Connector::GetSubTreeOnlyWithValues(const RWCString& name, const char** search_rules,
                                              int count, int merge, long& length) {
  return ask_bytes<GET_SUB_TREE_ONLY_WITH_VALUES>("CFG_Connector::GetSubTreeOnlyWithValues",
                                                  {name, {search_rules, count}, long{merge}},
                                                  length);
}
char* CFG_Connector::GetSubTreeWithLongValues(const RWCString& path, long& length) {
  return ask_bytes<GET_SUB_LONG_VALUE>("CFG_Connector::GetSubTreeWithLongValues", {path}, length);
}
char* CFG_Connector::GetSubTreeWithPrecentAndWildcard(const RWCString& path, long& length) {
  return ask_bytes<GET_SUB_LONG_VALUE_WILDCARD>("CFG_Connector::GetSubTreeWithPrecentAndWildcard",
                                                {path}, length);
}
char* CFG_Connector::GetSubTreeOnlyWithValuesWithPrecentAndWildcard(const RWCString& path,
                                                                    long& length) {
  return ask_bytes<GET_SUB_WITH_VALUE_PRECENT_WILDCARD>(
      "CFG_Connector::GetSubTreeOnlyWithValuesWithPrecentAndWildcard", {path}, length);
}

// --- streamed trees --------------------------------------------------------------------------

// What is behind the three arguments is only counted.
Tree_NodePtr CFG_Connector::GetSubTreeBySeqNumber(const RWCString& path, RWCString& seq_number,
                                                  RWCString& tree_path, bool compressed) {
  return ask<GET_SUB_SEQ>("CFG_Connector::GetSubTreeBySeqNumber",
                          {path, seq_number, long{compressed}, tree_path}, *this, tree_path);
}
Tree_NodePtr CFG_Connector::GetSubTreeOnlyDeletedNodes(const RWCString& path, RWCString& seq_number,
                                                       RWCString& tree_path, bool compressed) {
  return ask<GET_SUB_DEL_SEQ>("CFG_Connector::GetSubTreeOnlyDeletedNodes",
                              {path, seq_number, long{compressed}}, *this, tree_path);
}

// --- wildcards, nodes, the store -------------------------------------------------------------

String_Arr* CFG_Connector::FillPath(RWCString path) {
  return ask<FILL_PATH>("CFG_Connector::FillPath", {path}, *this,
                        Log_Format<>("FillPath: failed reading server response\n"));
}
RWCString CFG_Connector::FillPath(RWCString path, RWCString value_name, RWCString value) {
  return ask<FILL_PATH_NAME_VALUE>("CFG_Connector::FillPath", {path, value_name, value});
}
RWCString CFG_Connector::GetNodeName(const RWCString& ae) {
  return ask<GET_NODE_NAME>("CFG_Connector::GetNodeName", {ae});
}
RWCString CFG_Connector::GetNodeNameByIp(const RWCString& ip) {
  return ask<GET_NODE_NAME_BY_IP>("CFG_Connector::GetNodeNameByIp", {ip});
}
RWCString CFG_Connector::GetServerNodeName() {
  return ask<SERV_NODE_NAME>("CFG_Connector::GetServerNodeName", {});
}
RWCString CFG_Connector::GetMaxSeqNumber() {
  return ask<GET_MAX_SEQ>("CFG_Connector::GetMaxSeqNumber", {});
}
RWCString CFG_Connector::GetMaxSeqNumber(const RWCString& path) {
  return ask<GET_MAX_SEQ_PATH>("CFG_Connector::GetMaxSeqNumber", {path});
}
RWCString CFG_Connector::GetMinSeqNumberOfDeletedEntry() {
  return ask<GET_DEL_MIN_SEQ>("CFG_Connector::GetMinSeqNumberOfDeletedEntry", {});
}
RWCString CFG_Connector::GetDbServerDateTime() {
  return ask<GET_DB_DATETIME>("CFG_Connector::GetDbServerDateTime", {});
}
RWCString CFG_Connector::GetServerSyncID() {
  return ask<GET_SERVER_SYNC_ID>("CFG_Connector::GetServerSyncID", {}, Wait::TEN_SECONDS);
}

RWCString CFG_Connector::GetPathBeforeFirstPrecent(RWCString& path) {
  return RWCString(cfg::before_wildcard(path));
}
