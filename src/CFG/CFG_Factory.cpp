// How a process gets its repository. Under the factory's mutex, unless there is one already:
//
//   parameters   the file, then the environment, then the type that the caller forces
//   check        the type is known, and what it needs is there
//   build        the repository of that type, behind the cache of the mode, becomes `cfg`
//   properties   what it and the services read later: where the service is, which node this is
//   connect      the repository's Connect
//   announce     the platform's requests for values are answered from `cfg`
//   identity     this node's name by its address, and the address family that it listens on; read
//                from the tree in one transaction
//   the end      a module closes a database in good order when the process ends
//
// The order is part of it. Properties belong to the process and are read by Connect; the hook asks
// `cfg` behind a gate that is open from here on, and closed before `cfg` goes. A
// step that fails drops `cfg`, and the next call begins with the parameters again. A repository
// over a subtree takes the same way from "build" on, with no parameters and no mutex.
#include <CFG/CFG_Factory.h>

#include <CFG/CFG_Cache.h>
#include <CFG/CFG_ConnectionParameters.h>
#include <CFG/CFG_DBRepository.h>
#include <CFG/CFG_Extern_hook.h>
#include <CFG/CFG_FileRepository.h>
#include <CFG/CFG_InProcessCacheRepository.h>
#include <CFG/CFG_MemoryRepository.h>
#include <CFG/CFG_Repository.h>
#include <CFG/CFG_RepositoryTransaction.h>
#include <CFG/CFG_SubTree.h>
#include <CFG/CFG_SynchronizedFileRepository.h>
#include <CFG/detail/answered.h>
#include <CFG/detail/use_gate.h>
#include <connection/Conn_TokenManagerHook.h>
#include <logging/Logger.h>
#include <system/Sys_ModuleFinder.h>
#include <system/Sys_Process.h>
#include <utility/Tmr_CfgHook.h>
#include <utility/Tmr_CfgINI.h>
#include <utility/Tmr_Legend.h>
#include <utility/Tmr_PerformanceMonitorCounters.h>
#include <utility/Tmr_SocketWrapper.h>
#include <utility/Tmr_StackTrace.h>

namespace {

constexpr Log_Logger logger("src/CFG/CFG_Factory", 502);

constexpr int kCounters = 2;  // the type of performance monitoring that counts us

CFG_Extern_hook extern_hook;

// What the hook asks goes through here.
cfg::UseGate hook_gate;

// A repository with the cache before it that the mode asks for. Files are not in the datagrid.
template <class Plain, class... Given>
std::unique_ptr<CFG_RepositoryServices> with_cache(CFG_MODE mode, Given... given) {
  if (mode == CFG_MODE_INPROCESS_CACHE) {
    return std::make_unique<CFG_InProcessCacheRepository<Plain>>(given...);
  }
  if constexpr (!std::is_same_v<Plain, CFG_FileRepository>) {
    if (mode == CFG_MODE_DATAGRID_CACHE) return std::make_unique<CFG_Cache<Plain>>(given...);
  }
  return std::make_unique<Plain>(given...);
}

RWCString local_host_name() {
  const RWCString name = Sys_ComputerName();
  if (name.isNull()) {
    logger.error("GetRepositoryServices() : error in GetComputerName , return NULL\n");
  }
  return name;
}

RWCString local_host_ip(const RWCString& host, const RWCString& af) {
  const bool is_v6 = af == Tmr_SocketWrapper::IP_TYPE_V6 || af == Tmr_SocketWrapper::IP_TYPE_DUAL;
  const RWCString ip = Tmr_SocketWrapper::GetLocalIPAsStringByAF(
      host, is_v6 ? Tmr_SocketWrapper::FAMILY_V6 : Tmr_SocketWrapper::FAMILY_V4);
  logger.trace("IP Address of host <%s> is: %s\n", host, ip);
  return ip;
}

}  // namespace

CFG_Factory::RepositoryPtr CFG_Factory::cfg;
ForkReleasedMutex CFG_Factory::cfg_factory_mutex;
CFG_MODE CFG_Factory::cfg_mode = CFG_MODE_DIRECT;
std::atomic<int> CFG_Factory::is_cfg_init{0};
int CFG_Factory::is_cfg_shutdown = 0;
RWCString CFG_Factory::m_override_cfg_type;

// Defined last in this source, so that it goes first: whoever asks the hook while the process
// ends gets the default.
struct CFG_Factory::AtUnload {
  ~AtUnload() { drop_repository(); }
  static AtUnload instance;
};
CFG_Factory::AtUnload CFG_Factory::AtUnload::instance;

// --- entry points --------------------------------------------------------------------------------

CFG_RepositoryServices* CFG_Factory::get_or_init(
    const std::function<CFG_RepositoryServices*()>& init) try {
  const MutexGuard guard(cfg_factory_mutex);
  logger.trace("Start GetRepositoryServices()\n");
  if (is_cfg_init) {
    return logger.reject_at(LOG_LEVEL_TRACE, cfg.get(),
                            "GetRepositoryServices() : Cfg already init, return it\n");
  }
  if (is_cfg_shutdown) {
    logger.error("GetRepositoryServices() : Cfg already shutdown, check stack trace\n");
    Tmr_StackTrace::TraceStack();
    return nullptr;
  }
  logger.detail("GetRepositoryServices() : Cfg was not init, start init\n");
  return init();
} catch (...) {
  return cfg::answered(logger, nullptr, "GetRepositoryServices()");
}

CFG_RepositoryServices* CFG_Factory::GetRepositoryServices() {
  return get_or_init(init_from_process_parameters);
}

CFG_RepositoryServices* CFG_Factory::GetRepositoryServices(const char* cfg_type, bool force) try {
  {
    const MutexGuard guard(cfg_factory_mutex);
    m_override_cfg_type = RWCString(force ? cfg_type : nullptr);
  }
  return GetRepositoryServices();
} catch (...) {
  return cfg::answered(logger, nullptr);
}

CFG_RepositoryServices* CFG_Factory::GetRepositoryServices(const char* file_name) {
  return get_or_init([&] {
    logger.detail("InitInstance(char* cfg_file_name) : Cfg was not init, start Init by file %s\n",
                  file_name);
    return InitInstance(RWWString::fromUTF8(RWCString(file_name)));
  });
}

CFG_RepositoryServices* CFG_Factory::GetRepositoryServices(const wchar_t* file_name) {
  return get_or_init([&] {
    logger.detail("InitInstance(wchar* cfg_file_name) : Cfg was not init, start Init by file %S\n",
                  file_name);
    return InitInstance(RWWString(file_name));
  });
}

CFG_RepositoryServices* CFG_Factory::GetRepositoryServices(CFG_SubTree* sub_tree) try {
  if (!sub_tree) {
    return logger.reject(nullptr, "GetRepositoryServices() : sub_tree is NULL, return NULL\n");
  }
  Parameters parameters;
  parameters.cfg_type = "memory";
  return ConnectToCfg(parameters, sub_tree);
} catch (...) {
  return cfg::answered(logger, nullptr);
}

void CFG_Factory::SetCFGMode(CFG_MODE mode) { cfg_mode = mode; }

void CFG_Factory::RegisterSecmSessionIdGetter(RWCString (*getter)(), int kind) {
  Conn_TokenManagerHook::RegisterSecmSessionIdGetter(getter, kind);
}

bool CFG_Factory::DisconnectRepositoryServices() {
  const MutexGuard guard(cfg_factory_mutex);
  return disconnect();
}

bool CFG_Factory::disconnect() {
  if (!is_cfg_init) {
    return logger.reject(
        false, "CFG_Factory::DisconnectRepositoryServices can't disconnect not connected\n");
  }
  drop_repository();
  return true;
}

void CFG_Factory::drop_repository() {
  Tmr_CfgHook::RegisterInterface(nullptr);
  is_cfg_init = 0;
  replace_repository(nullptr);
}

void CFG_Factory::replace_repository(RepositoryPtr repository) {
  hook_gate.close();
  cfg = std::move(repository);
}

RWCString CFG_Factory::answer_hook(const RWCString& path, const RWCString& default_value,
                                   bool& is_ready) {
  const cfg::UseGate::Use use(hook_gate);
  is_ready = static_cast<bool>(use);
  return is_ready ? cfg->GetValue(path, default_value) : default_value;
}

// Under one lock, so that no thread builds a repository between the two steps.
void ShutdownRepositoryServices() {
  const MutexGuard guard(CFG_Factory::cfg_factory_mutex);
  CFG_Factory::disconnect();
  CFG_Factory::is_cfg_shutdown = 1;
}

// --- parameters ----------------------------------------------------------------------------------

CFG_RepositoryServices* CFG_Factory::init_from_process_parameters() {
  Tmr_CfgINI& ini = Tmr_CfgINI::Instance();
  if (ini.IsInit()) return InitCfgINI(ini);
  return logger.reject_at(
      LOG_LEVEL_SEVERE, nullptr, "Assertion Failed: <%s>, Aborting.\n",
      R"(false && "Critical Error - Missing CfgConnectionParams.txt and HALVORIA_CFG_FILE environment variable\n")");
}

CFG_RepositoryServices* CFG_Factory::InitInstance(const RWWString& cfg_file_name) {
  Tmr_INI ini;
  if (ini.ReadINIFile(cfg_file_name)) return InitCfgINI(ini);
  return logger.reject(
      nullptr, "InitInstance : Fail to open cfg file <%S> (file does not exist), return NULL\n",
      cfg_file_name);
}

CFG_RepositoryServices* CFG_Factory::InitCfgINI(Tmr_INI& ini) {
  Parameters given = Parameters::From(ini);
  CFG_ServicesImp::SetMonitorConnSupport(given.notify_conn_activity);
  CFG_ServicesImp::SetMonitorConnActive(given.notify_conn_activity_status == "1");
  logger.info("cfg monitor conn : config type : %s  config activity %s Current status %d\n",
              given.notify_conn_activity, given.notify_conn_activity_status,
              CFG_ServicesImp::GetMonitorConnStatus());

  if (!m_override_cfg_type.isNull()) given.cfg_type = m_override_cfg_type;
  CFG_ServicesImp::tolower(given.cfg_type);
  given.sql_trace = given.sql_trace == "yes" ? "TRUE" : "FALSE";
  given.set_nls_lang = given.set_nls_lang == "no" ? "FALSE" : "TRUE";

  const RWCString& type = given.cfg_type;
  if (type.isNull()) {
    return logger.reject(
        nullptr, "InitInstance() : cfg file does not contain cfg_type value, return NULL\n");
  }
  if (type != "db" && type != "file" && type != "remote" && type != "synced_file") {
    return logger.reject(nullptr, "InitInstance() : cfg type <%s> is not supported, return NULL\n",
                         type);
  }
  const auto required = [&](const char* for_type, const char* key, const RWCString& value) {
    if (type != for_type || !value.isNull()) return true;
    return logger.reject(false,
                         "InitInstance() : cfg file does not contain %s value, return NULL\n", key);
  };
  const bool is_complete = required("db", "user", given.user) &&
                           required("db", "conn_string", given.conn_string) &&
                           required("file", "xml_file", given.xml_file);
  return is_complete ? ConnectToCfg(given, nullptr) : nullptr;
}

// --- connection ----------------------------------------------------------------------------------

CFG_Factory::RepositoryPtr CFG_Factory::build_repository(const Parameters& parameters,
                                                         CFG_SubTree* sub_tree) {
  if (parameters.cfg_type == "memory") return std::make_unique<CFG_MemoryRepository>(sub_tree);
  if (parameters.cfg_type == "remote") return with_cache<CFG_Repository>(cfg_mode);
  if (parameters.cfg_type == "db") return with_cache<CFG_DBRepository>(cfg_mode);
  if (parameters.cfg_type == "file") {
    return with_cache<CFG_FileRepository>(cfg_mode, RWWString::fromUTF8(parameters.xml_file));
  }
  if (parameters.cfg_type == "synced_file") {
    return std::make_unique<CFG_SynchronizedFileRepository>(
        RWWString::fromUTF8(parameters.xml_file));
  }
  return logger.reject(RepositoryPtr(),
                       "GetRepositoryServices() : not supported cfg type <%s> , return NULL\n",
                       parameters.cfg_type);
}

CFG_RepositoryServices* CFG_Factory::ConnectToCfg(const Parameters& parameters,
                                                  CFG_SubTree* sub_tree) try {
  Tmr_Legend::GetInstance().Register("CFG_ACTION");
  Tmr_Legend::GetInstance().Register("CFG_TYPE");
  if (parameters.use_in_process_cache == "yes") cfg_mode = CFG_MODE_INPROCESS_CACHE;
  if (parameters.use_datagrid_cache == "yes") cfg_mode = CFG_MODE_DATAGRID_CACHE;
  RepositoryPtr built = build_repository(parameters, sub_tree);
  if (!built) return nullptr;
  replace_repository(std::move(built));
  if (!set_properties(parameters) || !connect(parameters)) {
    drop_repository();
    return nullptr;
  }
  logger.trace("GetRepositoryServices() : Connect return TRUE, return cfg\n");
  Tmr_CfgHook::RegisterInterface(&extern_hook);
  init_common_values();
  is_cfg_init = 1;
  hook_gate.open();
  if (parameters.cfg_type == "db") close_when_process_ends();
  return cfg.get();
} catch (...) {
  drop_repository();
  throw;
}

// A repository over a database is closed in good order, even if nobody disconnects: a server would
// take the end of the process for an accident.
void CFG_Factory::close_when_process_ends() {
  using Close = void();
  RWCString reason;
  void* const module = Sys_ModuleFunction("libCfgDbDisconnect.so", "CfgDbDisconnect", reason);
  if (!module) {
    logger.warning("CFGDB_Conn::connect: Cannot load CfgDbDisconnect.dll.");
    return logger.detail("%s\n", reason);
  }
  logger.trace("CFGDB_Conn::connect: loaded CfgDbDisconnect.dll");
  reinterpret_cast<void (*)(Close*)>(module)([] {
    // Whoever is just connecting finds the process gone anyway.
    if (!cfg_factory_mutex.try_lock()) return;
    drop_repository();
    cfg_factory_mutex.unlock();
  });
}

bool CFG_Factory::set_properties(const Parameters& parameters) {
  const auto set_if_given = [](const char* property, const RWCString& text) {
    if (!text.isNull()) cfg->SetProperty(property, text);
    return !text.isNull();
  };
  if (parameters.cfg_type == "db") {
    cfg->SetProperty("conn_string", parameters.conn_string);
    cfg->SetProperty("user", parameters.user);
    cfg->SetProperty("sql_trace", parameters.sql_trace);
    cfg->SetProperty("set_nls_lang", parameters.set_nls_lang);
  }
  cfg->SetProperty("cfg_type", parameters.cfg_type);
  set_if_given("mapping", parameters.mapping);
  set_if_given("client_or_server", parameters.client_or_server);
  if (set_if_given("HALVORIA_REMOTE_SERVER_NAME", parameters.remote_server_name)) {
    logger.info("Remote Server: %s\n", parameters.remote_server_name);
  }
  if (set_if_given("HALVORIA_REMOTE_SERVER_PORT", parameters.remote_server_port)) {
    logger.info("Remote Server Port: %s\n", parameters.remote_server_port);
  }
  set_if_given("HALVORIA_CONNECTION_TYPE", parameters.connection_type);
  set_if_given("HALVORIA_OFFLINE_START", parameters.offline_start);

  RWCString node = parameters.local_host_name;
  if (node.isNull()) node = local_host_name();
  if (node.isNull()) return logger.reject(false, "Failed to get local hostname\n");
  RWCString ip = parameters.local_host_ip;
  if (ip.isNull()) {
    RWCString af = parameters.local_host_af;
    if (af.isNull() && !parameters.remote_server_name.isNull()) {
      af = Tmr_SocketWrapper::GetAFTypeIfSupported(parameters.remote_server_name);
    }
    ip = local_host_ip(node, af);
    if (ip.isNull()) return logger.reject(false, "Failed to get local host ip for AF %s\n", af);
  }

  set_if_given("HALVORIA_CONNECTION_PROPERTIES", parameters.connection_properties);
  Tmr_CfgINI& process_parameters = Tmr_CfgINI::Instance();
  if (process_parameters.IsInit()) {
    RWCString port;
    if (process_parameters.GetValue("remote_server_unsecure_port", port)) {
      logger.info("Setting remote_server_unsecure_port to be %s", port);
      set_if_given("remote_server_unsecure_port", port);
    } else {
      logger.info("remote_server_unsecured_port was not find");
    }
  }
  logger.detail("GetRepositoryServices() : after get current_node, current_node is <%s>\n", node);
  cfg->SetProperty("current_node", node);
  cfg->SetProperty("local_host_ip", ip);
  return true;
}

bool CFG_Factory::connect(const Parameters& parameters) {
  logger.info("GetRepositoryServices() : before connect to cfg repository type %s\n",
              parameters.cfg_type);

  if (Tmr_PerformanceMonitorCounters::IsEnabled(kCounters)) {
    Tmr_PerformanceMonitorCounters::GetInstance().AddCounter(0, "C_CFG_S");
    Tmr_PerformanceMonitorCounters::GetInstance().Start("C_CFG_S");
  }
  if (parameters.compress_data_transfer.isNull() || parameters.compress_data_transfer == "true") {
    logger.info("Working in compression mode\n");
    cfg->SetWorkCompressed(true);
  }
  if (cfg->Connect()) return true;
  return logger.reject(false, "GetRepositoryServices() - fail to connect to cfg, return NULL\n");
}

// --- who we are -----------------------------------------------------------------------------

void CFG_Factory::init_common_values() {
  logger.trace("Start");
  const CFG_RepositoryTransaction transaction(cfg.get());
  logger.info("reading node's properties");
  const RWCString node = cfg->GetNodeNameByIp(cfg->GetLocalHostIP());
  if (node.isNull()) {
    logger.trace(
        "Node name is empty so cfg->SetProperty is not called. Not a problem if its Tessaroon");
  } else {
    cfg->SetProperty("CurrMachine", node);
  }
  get_local_host_listeners_af(node);
}

RWCString CFG_Factory::get_local_host_listeners_af(const RWCString& node) {
  const RWCString af = choose_listeners_af(node);
  logger.info("GetLocalHostListenersAF, AF type selected is [%s], setting as property\n", af);
  cfg->SetProperty("LocalHostListenersAF", af);
  return af;
}

RWCString CFG_Factory::choose_listeners_af(const RWCString& node) {
  if (node.isNull()) {
    const RWCString af = get_default_host_listeners_af();
    logger.info("GetLocalHostListenersAF, no node name for IP [%s], AF type selected is [%s]\n",
                cfg->GetLocalHostIP(), af);
    return af;
  }
  const RWCString path = "halvoria\\system\\nodes\\" + node + "\\properties";
  const std::unique_ptr<CFG_SubTree> properties(cfg->GetSubTree(path));
  if (!properties) {
    logger.error("GetLocalHostListenersAF, failed to read %s\n", path);
    return get_default_host_listeners_af();
  }
  const RWCString address = properties->GetValue("inet_address");
  const RWCString optional = properties->GetValue("inet_address_optional");
  logger.info("GetLocalHostListenersAF, inet_address cfg value %s\n", address);
  logger.info("GetLocalHostListenersAF, inet_address_optional cfg value %s\n", optional);
  if (address.isNull()) {
    const RWCString af = get_default_host_listeners_af();
    return logger.reject(
        af,
        "GetLocalHostListenersAF, could not find inet_address in cfg, critical ERROR!, returning [%s]\n",
        af);
  }

  const RWCString primary = Tmr_SocketWrapper::GetAFTypeIfSupported(address);
  RWCString secondary = primary;
  if (!optional.isNull()) {
    secondary = Tmr_SocketWrapper::GetAFTypeIfSupported(optional);
    if (secondary.isNull()) {
      logger.error(
          "GetLocalHostListenersAF, Secondary AF not supported for IP %s will return primary AF\n",
          optional);
    }
  }
  if (primary.isNull() && secondary.isNull()) {
    const RWCString af = get_default_host_listeners_af();
    return logger.reject(
        af, "GetLocalHostListenersAF, primary AF not supported for ip %s return [%s]\n", address,
        af);
  }
  if (primary.isNull()) return secondary;
  if (secondary.isNull() || secondary == primary) return primary;
  logger.info("GetLocalHostListenersAF, Primary & Secondary AF supported returning DUAL\n");
  return Tmr_SocketWrapper::IP_TYPE_DUAL;
}

RWCString CFG_Factory::get_default_host_listeners_af() {
  logger.detail("get_default_host_listeners_af, trying to init by local_host_ip property\n");
  RWCString host = cfg->GetProperty("local_host_ip");
  if (host.isNull()) {
    logger.detail(
        "GetLocalHostListenersAF, local_host_ip is not set; try to solve using host_name.\n");
    host = cfg->GetProperty("local_host_name");
  }
  RWCString af = Tmr_SocketWrapper::IP_TYPE_V4;
  if (!host.isNull()) {
    const RWCString own = Tmr_SocketWrapper::GetAFTypeIfSupported(host);
    if (own.isNull()) {
      logger.info(
          "GetLocalHostListenersAF, AF type for [%s] is not supported, setting AF to IPv4 - This might cause a mismatch \n",
          host);
    } else {
      af = own;
    }
  }
  logger.detail("GetLocalHostListenersAF, default AF for host [%s] set to [%s]\n", host, af);
  logger.detail("GetLocalHostListenersAF, finished initializing default values\n");
  return af;
}
