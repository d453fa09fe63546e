// A request on its way to the service, and whose connection it takes. This source holds what
// concerns connections: connectors, transactions and updates.
//
//   CFG_Repository    replaces placeholders in the path, refuses what can be refused here; the
//                     operations themselves stand in ..._Reads and ..._Writes
//   connector_lease   GetConnector and FreeConnector around one request
//   connector_pool    the connector that is bound to the thread, else a free one, else none: then
//                     MakeNewConnector makes one, from the properties of the process
//   CFG_Connector     the fields that the command's row in CFG_Protocol names, and its answer
//   Conn_...          connects where there is no connection, sends a frame, waits for one
//
// Between the two ends of its lease a connector belongs to one thread, so nothing is locked
// during a request. StartTransaction binds it to the thread until EndTransaction: all requests of
// the thread then reach one session of the service, which is what makes its changes its own.
// An update is a transaction with more time for it and the store locked; when one of its steps
// fails, the connection is closed, and with its session goes what was pending.
//
// A connection that breaks is opened anew by the next request, but not within a transaction: its
// session is gone, and the rest of the transaction fails.
#include <CFG/CFG_Repository.h>

#include <cstdlib>
#include <mutex>

#include <CFG/CFG_Connector.h>
#include <CFG/CFG_RepositoryTransaction.h>
#include <CFG/detail/answered.h>
#include <CFG/remote/connection_properties.h>
#include <CFG/remote/connector_lease.h>
#include <CFG/remote/connector_pool.h>
#include <logging/Logger.h>
#include <system/Sys_Environment.h>
#include <system/Sys_Process.h>
#include <thread/ForkHandler.h>
#include <utility/Tmr_CfgINI.h>
#include <utility/Tmr_StackTrace.h>

using cfg::connector_lease;

namespace {

constexpr Log_Logger logger("src/CFG/CFG_Repository", 502);

enum { MONITOR_STACK = 2, MONITOR_EXIT = 3 };

// The name of the service's node: the service is the same for all repositories of the process.
struct ServerNodeName {
  ForkReleasedMutex mutex;  // held while it is asked for
  RWCString name THREADAPI_GUARDED_BY(mutex);
  bool is_cached THREADAPI_GUARDED_BY(mutex) = false;
};

ServerNodeName& server_node_name() {
  static ServerNodeName& kept = *new ServerNodeName;
  return kept;
}
[[maybe_unused]] const ServerNodeName& made_early = server_node_name();  // before any fork

// Whoever set the monitor so wants to know who calls the server, and nothing else.
[[noreturn]] void end_process() {
  TmrGLog.Flush();
  Sys_EndProcess(1);
}

}  // namespace

CFG_Repository::CFG_Repository() : m_connectors(std::make_shared<cfg::connector_pool>()) {
  logger.detail("create CFG_Repository\n");
}

CFG_Repository::~CFG_Repository() {
  ServerNodeName& node = server_node_name();
  const MutexGuard guard(node.mutex);
  node.is_cached = false;
}

// --- connectors --------------------------------------------------------------------------------

CFG_Connector* CFG_Repository::GetConnector() {
  CFG_Connector* const bound = m_connectors->bound();
  if (bound) logger.trace("CFG_Repository::GetConnector() Using transaction connector\n");
  const char* const kind = bound ? "existing connection" : "new connection";
  if (const int level = GetMonitorConnStatus()) {
    logger.warning("calling server monitor level %d using %s connection\n", level,
                   bound ? "existing" : "new");
    if (level >= MONITOR_STACK) Tmr_StackTrace::TraceStack();
    if (level == MONITOR_EXIT) end_process();
  }
  read_statistics_switch();
  std::unique_ptr<CFG_Connector> free = bound ? nullptr : m_connectors->take();
  if (!bound && !free) free = MakeNewConnector();
  CFG_Connector& connector = bound ? *bound : *free;
  connector.SetUser(GetProperty("CurrUser"));
  connector.SetApplication(GetProperty("CurrApp"));
  connector.SetConnectionKind(kind);
  logger.trace("End get connector\n");
  return bound ? bound : free.release();
}

// A key of the parameters file of the process, read once, or by threads that come at the same time:
// a child of a fork must not wait for one that is just reading.
void CFG_Repository::read_statistics_switch() {
  static constinit std::atomic<bool> is_read{false};
  if (is_read) return;
  RWCString text = "no";
  Tmr_CfgINI::Instance().GetValue("cfg_report_to_cache", text);
  CFG_Connector::m_report_to_cache = text.compareTo("yes", RWCString::ignoreCase) == 0;
  logger.trace("report_to_cache = [%s],m_report_to_cache=[%d]\n", text,
               CFG_Connector::m_report_to_cache.load());
  is_read = true;
}

std::unique_ptr<CFG_Connector> CFG_Repository::MakeNewConnector() {
  auto connector = std::make_unique<CFG_Connector>();
  RWCString server = GetProperty("HALVORIA_REMOTE_SERVER_NAME");
  RWCString port = GetProperty("HALVORIA_REMOTE_SERVER_PORT");
  RWCString type = GetProperty("HALVORIA_CONNECTION_TYPE");
  const cfg::connection_properties properties(GetProperty("HALVORIA_CONNECTION_PROPERTIES").str());
  RWCString local, local_server, local_port;
  if (Sys_Environment::Get("HALVORIA_USE_LOCAL_SVCFG", local) &&
      Sys_Environment::Get("HALVORIA_USE_LOCAL_SVCFG_SERVER", local_server) &&
      Sys_Environment::Get("HALVORIA_USE_LOCAL_SVCFG_PORT", local_port)) {
    server = local_server;
    port = local_port;
    type.clear();
  }
  connector->SetTimeOuts(properties.time_outs);
  connector->InitConn(server, std::atoi(port.data()), type, "cfg", properties.token_property, 1);
  return connector;
}

void CFG_Repository::FreeConnector(CFG_Connector* connector) { m_connectors->give_back(connector); }

int CFG_Repository::Connect() try {
  const RecursiveThreadMutexWrapper::WriteGuard guard(m_connection_lock);
  if (m_is_connected) return m_is_connected;
  SetProperty("CurrUser", "CFG");
  SetProperty("CurrApp", "CFG");
  m_is_connected = true;
  return TRUE;
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_Repository::DisConnect() try {
  logger.trace("DisConnect()\n");
  m_connectors->disconnect_free();
  return TRUE;
} catch (...) {
  return cfg::answered(logger, FALSE);
}

void CFG_Repository::Interrupt() { m_connectors->interrupt(); }

RWCString CFG_Repository::GetServerNodeName() try {
  ServerNodeName& node = server_node_name();
  const MutexGuard guard(node.mutex);
  if (node.is_cached) return node.name;
  const connector_lease connector(*this);
  logger.trace("Start GetServerNodeName()\n");
  node.name = connector->GetServerNodeName();
  node.is_cached = true;
  logger.trace(" GetServerNodeName() - node name is %s\n", node.name);
  return node.name;
} catch (...) {
  return cfg::answered(logger, RWCString());
}

// --- transactions --------------------------------------------------------------------------------

int CFG_Repository::StartTransaction() try {
  const connector_lease connector(*this);
  logger.trace("StartTransaction()\n");
  return StartTransaction(connector.get());
} catch (...) {
  // Within a transaction it counts even so: whoever began ends it, whatever the answer was.
  if (CFG_Connector* bound = m_connectors->bound()) StartTransaction(bound);
  return cfg::answered(logger, FALSE);
}

int CFG_Repository::StartTransaction(CFG_Connector* connector) {
  connector->CountConnect();
  const bool is_first = m_connectors->bind(connector);
  if (m_connectors->bound() == connector) connector->Conn_SyncConnector::StartTransaction();
  return is_first;
}

int CFG_Repository::EndTransaction() try {
  const connector_lease connector(*this);
  logger.trace("EndTransaction()\n");
  return EndTransaction(connector.get());
} catch (...) {
  cfg::log_exception(logger, __func__);
  return end_bound();  // which needs no memory: the thread would stay bound for ever
}

int CFG_Repository::EndTransaction(CFG_Connector* connector) {
  const int is_ended = connector->Conn_SyncConnector::EndTransaction();
  if (!is_ended) return is_ended;
  m_connectors->unbind();
  return TRUE;
}

int CFG_Repository::end_bound() {
  CFG_Connector* const bound = m_connectors->bound();
  if (!bound) return FALSE;
  const int is_ended = EndTransaction(bound);
  FreeConnector(bound);
  return is_ended;
}

int CFG_Repository::IsInTransaction() { return m_connectors->bound() != nullptr; }

// --- the lock, and updates -------------------------------------------------------------------

int CFG_Repository::Lock() try {
  const connector_lease connector(*this);
  logger.trace("Lock() = disable auto commit\n");
  return connector->Lock();
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_Repository::UnLock() try {
  const connector_lease connector(*this);
  logger.trace("UnLock() = enable auto commit\n");
  return connector->UnLock();
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_Repository::Rollback() try {
  const connector_lease connector(*this);
  logger.trace("Rollback() = undo changes\n");
  return connector->Rollback();
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_Repository::EnableExtendedTimeout() try {
  const connector_lease connector(*this);
  logger.trace("EnableExtendedTimeout() = allow long timeout in SVCFG for long update\n");
  return connector->EnableExtendedTimeout();
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_Repository::DisableExtendedTimeout() try {
  const connector_lease connector(*this);
  logger.trace("DisableExtendedTimeout() = revert to regular SVCFG timeout after long update\n");
  return connector->DisableExtendedTimeout();
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_Repository::StartTransactionUpdate() try {
  logger.trace("StartTransactionUpdate \n");
  if (IsInTransaction()) return FALSE;  // and nothing is counted: who gets 0 has nothing to end
  if (!StartTransaction()) return FALSE;
  logger.trace("StartTransactionUpdate: started transaction \n");
  if (!EnableExtendedTimeout()) return abandon_update();
  logger.trace("StartTransactionUpdate: started extended timeout \n");
  const int is_locked = Lock();
  if (!is_locked) return abandon_update();
  logger.trace("StartTransactionUpdate: disabled auto commit \n");
  return is_locked;
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_Repository::EndTransactionUpdate(bool failed) try {
  logger.trace("EndTransactionUpdate \n");
  if (failed) {
    if (!Rollback()) return abandon_update();
    logger.trace("EndTransactionUpdate: rollback following error \n");
  }
  if (!UnLock()) return abandon_update();
  logger.trace("EndTransactionUpdate: enabled auto commit \n");
  if (!DisableExtendedTimeout()) return abandon_update();
  logger.trace("EndTransactionUpdate: stopped extended timeout \n");
  const int is_ended = EndTransaction();
  if (is_ended) logger.trace("EndTransactionUpdate: ended transaction \n");
  return is_ended;
} catch (...) {
  return cfg::answered(logger, FALSE);
}

// Nobody sees one of the changes without the others. Of an update that is open already the caller
// keeps or undoes the whole; all of it goes over the connection that the service is locked for.
int CFG_Repository::in_one_update(const std::function<int()>& asked) {
  const auto change = [&] {
    try {
      return asked();
    } catch (...) {
      return cfg::answered(logger, FALSE, "in_one_update");  // a failed one, that has its end
    }
  };
  const auto is_locked = [this] { return connector_lease(*this)->IsLocked(); };
  if (is_locked()) {
    const CFG_RepositoryTransaction transaction(this);
    return is_locked() ? change() : FALSE;
  }
  if (!IsInTransaction()) {
    if (!StartTransactionUpdate()) return FALSE;
    const int is_done = change();
    return EndTransactionUpdate(!is_done) && is_done;
  }
  if (!Lock()) return FALSE;
  const int is_done = change();
  if (!is_done) Rollback();
  return UnLock() && is_done;
}

// What the service holds of an update goes with the connection, and the thread is free for the
// next one: nobody ends an update that failed to begin or to end.
int CFG_Repository::abandon_update() {
  m_connectors->give_up_bound();
  return FALSE;
}

int CFG_Repository::StartTransactionUpdateBaseRep() try {
  logger.trace("StartTransactionUpdateBaseRep \n");
  return StartTransactionUpdate();
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_Repository::EndTransactionUpdateBaseRep(bool failed) try {
  logger.trace("EndTransactionUpdateBaseRep \n");
  return EndTransactionUpdate(failed);
} catch (...) {
  return cfg::answered(logger, FALSE);
}
