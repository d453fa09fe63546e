#include <CFG/CFG_Conn_ClientHelper.h>

#include <cstdio>
#include <functional>
#include <thread>

#include <CFG/CFG_Connector.h>
#include <logging/Logger.h>
#include <strings/T_Bool.h>
#include <utility/Tmr_PerformanceMonitorCounters.h>

using namespace cfg::protocol;

namespace {

constexpr Log_Logger logger("src/CFG/CFG_Conn_ClientHelper", CFG_SERVICE_ID / 10000);
constexpr char no_response[] = "Failed to get response from server.\n";

constexpr int kCounters = 3;         // the type of performance monitoring that counts requests
constexpr int kCommandCounters = 5;  // above this level each command has a counter, too

RWCString counter_of_thread() {
  char name[32];
  const size_t thread = std::hash<std::thread::id>()(std::this_thread::get_id());
  std::snprintf(name, sizeof name, "CFG_REMOTE_%x_", static_cast<unsigned>(thread));
  return name;
}

void start(const RWCString& counter) {
  auto& counters = Tmr_PerformanceMonitorCounters::GetInstance();
  counters.AddCounter(kCounters, counter);
  counters.Start(counter);
}

// Stopping marks what was started.
void stop(const RWCString& counter) {
  if (!counter.isNull()) Tmr_PerformanceMonitorCounters::GetInstance().Stop(counter);
}

}  // namespace

CFGClientHelper_Params::CFGClientHelper_Params(CFG_Connector& connector, const RWCString& command)
    : ConnHelper_Params(connector.User(), connector.Application()), m_command(command) {
  const int level = CFG_Connector::CounterLevel();
  if (level < kCommandCounters) return;
  connector.CountConnect();
  m_counter = counter_of_thread();
  start(m_counter);
  if (level == kCommandCounters) return;
  m_command_counter = m_counter + command;
  start(m_command_counter);
}

CFGClientHelper_Params::~CFGClientHelper_Params() {
  stop(m_command_counter);
  stop(m_counter);
}

CFG_Conn_ClientHelper::CFG_Conn_ClientHelper(const char* operation, CFG_Connector& connector,
                                             CFGClientHelper_Params& params)
    : Conn_Helper(operation, connector, params, true, true) {
  const bool is_said = IsValid() &&
                       Writer().WriteString(CFG_FLD_USER_NAME, params.GetTmrUserName()) &&
                       Writer().WriteString(CFG_FLD_APPLICATION, params.GetAppName());
  if (!is_said) logger.error("Failed to send User Name & Application to the CFG Service.\n");
}

// Of a refusal, one line has told the reason.
bool CFG_Conn_ClientHelper::HasAnswer(Log_Format<> otherwise) {
  if (GetResponseHeaders() != -1) return true;
  if (!IsRefused()) logger.error(otherwise);
  return false;
}

int CFG_Conn_ClientHelper::GetSuccessCode() {
  if (!HasAnswer("GetSuccessCode: failed reading server response\n")) return 0;
  long code = 0;
  if (!Read(CFG_FLD_SUCCESS_CODE, code)) return logger.reject(0, no_response);
  RWCString reason;
  if (!code && Read(CFG_FLD_REASON, reason)) take_refusal(reason);
  return static_cast<int>(code);
}

int CFG_Conn_ClientHelper::GetResponseLength() {
  if (!HasAnswer("GetResponseLength: failed reading server response\n")) return 0;
  int number = 0;
  return Read(CFG_FLD_NUMBER, number) ? number : logger.reject(0, no_response);
}

int CFG_Conn_ClientHelper::read_value(RWCString& value) {
  if (Read(CFG_FLD_RESULT, value)) return TRUE;
  value.clear();
  return logger.reject(FALSE, no_response);
}

int CFG_Conn_ClientHelper::GetCFGValue(RWCString& value) {
  value.clear();
  return HasAnswer("GetCFGValue: failed reading server response\n") ? read_value(value) : FALSE;
}

int CFG_Conn_ClientHelper::GetCFGValueTimeOut(RWCString& value) {
  value.clear();
  if (GetResponseHeaders(10, 0) != -1) return read_value(value);
  if (!IsRefused()) logger.warning("GetCFGValue: timout reading server response\n");
  return FALSE;
}

char* CFG_Conn_ClientHelper::get_subtree(long& length) {
  length = 0;
  if (!HasAnswer("get_subtree: failed reading server response\n")) return nullptr;
  std::string_view bytes;
  if (!ReadView(CFG_FLD_SUBTREE, bytes)) return logger.reject(nullptr, no_response);
  auto* const copy = new char[bytes.size() + 1];
  copy[bytes.copy(copy, bytes.size())] = '\0';
  length = static_cast<long>(bytes.size());
  return copy;
}
