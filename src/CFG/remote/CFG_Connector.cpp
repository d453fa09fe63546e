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
  if (!begin(helper, row, arguments, token.get())) return {};
  return read(helper);
} catch (...) {
  return cfg::answered(logger, std::invoke_result_t<Read, CFG_Conn_ClientHelper&>(), operation);
}

int CFG_Connector::ask_success(const char* operation, Command command, Arguments arguments) {
  return request(operation, command, arguments,
                 [](CFG_Conn_ClientHelper& helper) { return helper.GetSuccessCode(); });
}

int CFG_Connector::ask_number(const char* operation, Command command, Arguments arguments) {
  return request(operation, command, arguments,
                 [](CFG_Conn_ClientHelper& helper) { return helper.GetResponseLength(); });
}

RWCString CFG_Connector::ask_text(const char* operation, Command command, Arguments arguments) {
  return request(operation, command, arguments, [](CFG_Conn_ClientHelper& helper) {
    RWCString text;
    helper.GetCFGValue(text);
    return text;
  });
}

char* CFG_Connector::ask_bytes(const char* operation, Command command, Arguments arguments,
                               long& length) {
  length = 0;
  return request(operation, command, arguments,
                 [&](CFG_Conn_ClientHelper& helper) { return helper.get_subtree(length); });
}

Tree_NodePtr CFG_Connector::ask_tree(const char* operation, Command command, Arguments arguments,
                                     RWCString& tree_path) {
  return request(operation, command, arguments, [&](CFG_Conn_ClientHelper& helper) {
    return GetQueryTreePaths(helper, tree_path, false);
  });
}

int CFG_Connector::tell(const char* operation, Command command) {
  return request(operation, command, {}, [](CFG_Conn_ClientHelper& helper) {
    helper.FreeLogGuard();
    return helper.IsValid() ? TRUE : FALSE;
  });
}

// --- the session ---------------------------------------------------------------------------

// However long what comes then may take, a service that is there answers this in time.
int CFG_Connector::Lock() {
  const bool was_patient = IsPatient();
  SetPatient(false);
  const int is_done = ask_success("CFG_Connector::Lock", LOCK, {});
  is_done ? SetLocked(true) : ForgetLostLock();  // a loss has been told by this 0, as below
  SetPatient(was_patient && IsConnected());
  return is_done;
}
int CFG_Connector::UnLock() {
  const int is_done = ask_success("CFG_Connector::UnLock", UNLOCK, {});
  SetLocked(false);  // even where it fails: what is written next is not part of that
  return is_done;
}
int CFG_Connector::Rollback() {
  const int is_done = ask_success("CFG_Connector::Rollback", ROLLBACK, {});
  ForgetLostLock();
  return is_done;
}
int CFG_Connector::EnableExtendedTimeout() {
  const int is_told = tell("CFG_Connector::EnableExtendedTimeout", ENABLE_EXTENDED_TIMEOUT);
  if (is_told) SetPatient(true);
  return is_told;
}
int CFG_Connector::DisableExtendedTimeout() {
  SetPatient(false);
  return tell("CFG_Connector::DisableExtendedTimeout", DISABLE_EXTENDED_TIMEOUT);
}

// --- writes --------------------------------------------------------------------------------

int CFG_Connector::SetValue(const RWCString& path, const RWCString& value) {
  return ask_success("CFG_Connector::SetValue", SET_VALUE, {path, value});
}
int CFG_Connector::DeleteValue(const RWCString& path) {
  return ask_success("CFG_Connector::DeleteValue", DEL_VAL, {path});
}
int CFG_Connector::DeleteSubTree(const RWCString& path) {
  return ask_success("CFG_Connector::DeleteSubTree", DEL_SUB, {path});
}

int CFG_Connector::WriteSubTree(Tree_NodePtr& tree, const RWCString& path) try {
  if (!tree) return 0;
  logger.trace("Calling SerializeSubTree in the CFG\n");
  int length = 0;
  std::unique_ptr<char[]> bytes(Tree_Node::GetSerializedTreeNode(tree, length, false));
  if (!bytes) return logger.reject(0, "Fail to write subtree, return NULL\n");
  return ask_success("CFG_Connector::WriteSubTree", WRITE_SUB, {{bytes, length}, path});
} catch (...) {
  return cfg::answered(logger, 0);
}

// --- values and counts -----------------------------------------------------------------------

RWCString CFG_Connector::GetValue(const RWCString& path) {
  return ask_text("CFG_Connector::GetValue", GET_VAL, {path});
}
RWCString CFG_Connector::GetValue(const RWCString& path, long index) {
  return ask_text("CFG_Connector::GetValue", GET_VAL_INX, {path, index});
}
RWCString CFG_Connector::GetValueName(const RWCString& path, long index) {
  return ask_text("CFG_Connector::GetValueName", GET_VAL_NAME, {path, index});
}
int CFG_Connector::GetValueNum(const RWCString& path) {
  return ask_number("CFG_Connector::GetValueNum", GET_VAL_NUM, {path});
}
int CFG_Connector::GetSubTreeNum(const RWCString& path) {
  return ask_number("CFG_Connector::GetSubTreeNum", GET_SUB_NUM, {path});
}
int CFG_Connector::GetSubTreeEntriesCount(const RWCString& path) {
  return ask_number("CFG_Connector::GetSubTreeEntriesCount", GET_SUB_ENTRIES_COUNT, {path});
}
int CFG_Connector::IsSubTreeExist(const RWCString& path) {
  return ask_success("CFG_Connector::IsSubTreeExist", GET_SUB_EXISTS, {path});
}

int CFG_Connector::GetValue(const char* value_name, const char** search_paths, int count,
                            char** value, char** path) {
  const auto read = [&](CFG_Conn_ClientHelper& helper) {
    if (!helper.HasAnswer("GetValue: failed reading response from server\n")) return false;
    int is_found = 0;
    if (!helper.Read(CFG_FLD_SUCCESS_CODE, is_found) || !helper.Read(CFG_FLD_VALUE, value) ||
        !helper.Read(CFG_FLD_PATH, path)) {
      return logger.reject(false, "Failed to get response from server.\n");
    }
    return is_found && **value && **path;
  };
  *value = *path = nullptr;
  const std::string_view name = value_name ? value_name : "";
  if (request("CFG_Connector::GetValue", GET_VALUE_BY_SEARCH_RULE, {name, {search_paths, count}},
              read)) {
    return 0;
  }
  delete[] std::exchange(*value, nullptr);
  delete[] std::exchange(*path, nullptr);
  return -1;
}

String_Arr* CFG_Connector::GetSubTreePaths(const RWCString& path) {
  return request("CFG_Connector::GetSubTreePaths", GET_SUB_PATHS, {path},
                 [this](CFG_Conn_ClientHelper& helper) {
                   String_Arr* names = nullptr;
                   if (helper.HasAnswer("GetSubTreePaths: failed reading response from server\n")) {
                     ReadFixedMsg(helper, &names);
                   }
                   return names;
                 });
}

Tree_PathAndValueArray* CFG_Connector::GetSubTreeValues(const RWCString& path) {
  return request(
      "CFG_Connector::GetSubTreeValues", GET_SUB_TREE_VALUES, {path},
      [this](CFG_Conn_ClientHelper& helper) {
        Tree_PathAndValueArray* values = nullptr;
        if (helper.HasAnswer("GetSubTreeValues: failed reading response from server\n")) {
          ReadTreePathAndValue(helper, &values);
        }
        return values;
      });
}

// --- subtrees as byte arrays -----------------------------------------------------------------

char* CFG_Connector::GetSubTree(const RWCString& path, long index, long& length) {
  return ask_bytes("CFG_Connector::GetSubTree", GET_SUB_INX, {path, index}, length);
}
char* CFG_Connector::GetSubTree(const RWCString& name, const char** search_rules, int count,
                                int merge, long& length) {
  return ask_bytes("CFG_Connector::GetSubTree", GET_SUB_MERGE,
                   {name, {search_rules, count}, long{merge}}, length);
}
char* CFG_Connector::GetSubTreeOnlyWithValues(const RWCString& name, const char** search_rules,
                                              int count, int merge, long& length) {
  return ask_bytes("CFG_Connector::GetSubTreeOnlyWithValues", GET_SUB_TREE_ONLY_WITH_VALUES,
                   {name, {search_rules, count}, long{merge}}, length);
}
char* CFG_Connector::GetSubTreeWithLongValues(const RWCString& path, long& length) {
  return ask_bytes("CFG_Connector::GetSubTreeWithLongValues", GET_SUB_LONG_VALUE, {path}, length);
}
char* CFG_Connector::GetSubTreeWithPrecentAndWildcard(const RWCString& path, long& length) {
  return ask_bytes("CFG_Connector::GetSubTreeWithPrecentAndWildcard", GET_SUB_LONG_VALUE_WILDCARD,
                   {path}, length);
}
char* CFG_Connector::GetSubTreeOnlyWithValuesWithPrecentAndWildcard(const RWCString& path,
                                                                    long& length) {
  return ask_bytes("CFG_Connector::GetSubTreeOnlyWithValuesWithPrecentAndWildcard",
                   GET_SUB_WITH_VALUE_PRECENT_WILDCARD, {path}, length);
}

// --- streamed trees --------------------------------------------------------------------------

// What is behind the three arguments is only counted.
Tree_NodePtr CFG_Connector::GetSubTreeBySeqNumber(const RWCString& path, RWCString& seq_number,
                                                  RWCString& tree_path, bool compressed) {
  return ask_tree("CFG_Connector::GetSubTreeBySeqNumber", GET_SUB_SEQ,
                  {path, seq_number, long{compressed}, tree_path}, tree_path);
}
Tree_NodePtr CFG_Connector::GetSubTreeOnlyDeletedNodes(const RWCString& path, RWCString& seq_number,
                                                       RWCString& tree_path, bool compressed) {
  return ask_tree("CFG_Connector::GetSubTreeOnlyDeletedNodes", GET_SUB_DEL_SEQ,
                  {path, seq_number, long{compressed}}, tree_path);
}

// --- wildcards, nodes, the store -------------------------------------------------------------

String_Arr* CFG_Connector::FillPath(RWCString path) {
  return request("CFG_Connector::FillPath", FILL_PATH, {path},
                 [this](CFG_Conn_ClientHelper& helper) {
                   String_Arr* paths = nullptr;
                   if (helper.HasAnswer("FillPath: failed reading server response\n")) {
                     ReadFixedMsg(helper, &paths);
                   }
                   return paths;
                 });
}
RWCString CFG_Connector::FillPath(RWCString path, RWCString value_name, RWCString value) {
  return ask_text("CFG_Connector::FillPath", FILL_PATH_NAME_VALUE, {path, value_name, value});
}
RWCString CFG_Connector::GetNodeName(const RWCString& ae) {
  return ask_text("CFG_Connector::GetNodeName", GET_NODE_NAME, {ae});
}
RWCString CFG_Connector::GetNodeNameByIp(const RWCString& ip) {
  return ask_text("CFG_Connector::GetNodeNameByIp", GET_NODE_NAME_BY_IP, {ip});
}
RWCString CFG_Connector::GetServerNodeName() {
  return ask_text("CFG_Connector::GetServerNodeName", SERV_NODE_NAME, {});
}
RWCString CFG_Connector::GetMaxSeqNumber() {
  return ask_text("CFG_Connector::GetMaxSeqNumber", GET_MAX_SEQ, {});
}
RWCString CFG_Connector::GetMaxSeqNumber(const RWCString& path) {
  return ask_text("CFG_Connector::GetMaxSeqNumber", GET_MAX_SEQ_PATH, {path});
}
RWCString CFG_Connector::GetMinSeqNumberOfDeletedEntry() {
  return ask_text("CFG_Connector::GetMinSeqNumberOfDeletedEntry", GET_DEL_MIN_SEQ, {});
}
RWCString CFG_Connector::GetDbServerDateTime() {
  return ask_text("CFG_Connector::GetDbServerDateTime", GET_DB_DATETIME, {});
}
RWCString CFG_Connector::GetServerSyncID() {
  return request("CFG_Connector::GetServerSyncID", GET_SERVER_SYNC_ID, {},
                 [](CFG_Conn_ClientHelper& helper) {
                   RWCString id;
                   helper.GetCFGValueTimeOut(id);
                   return id;
                 });
}

RWCString CFG_Connector::GetPathBeforeFirstPrecent(RWCString& path) {
  return RWCString(cfg::before_wildcard(path));
}
