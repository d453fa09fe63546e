// The one repository of the process.
#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include <CFG/CFG_RepositoryServices.h>
#include <thread/ForkHandler.h>

class Tmr_INI;
struct CFG_ConnectionParameters;

// Which cache stands before the repositories that the factory builds from now on: none, that of
// the process (CFG_InProcessCacheRepository), or a datagrid (CFG_Cache; not before files). What is
// in a tree in memory, synchronized ones included, needs none. The parameters
// `use_in_process_cache` and `use_datagrid_cache` set it, too, with the text `yes`; the latter
// wins.
enum CFG_MODE { CFG_MODE_DIRECT = 0, CFG_MODE_INPROCESS_CACHE = 1, CFG_MODE_DATAGRID_CACHE = 2 };

// Reads the connection parameters, builds the repository of the configured type, connects
// it, and hands the same object to every later caller until it is disconnected or shut
// down; parameters are not looked at again before that. The types are "file", "db",
// "remote" and "synced_file", and "memory" over a subtree. The environment's
// KESTRAL_G_Connection_Type, KESTRAL_G_Server_Name and KESTRAL_G_Server_Port win over what the
// parameters say.
//
// Ownership: the repository is the factory's. Callers never delete it, nor use it after a call
// that disconnects or replaces it, or while the process ends.
//
// Threads: initialisation and disconnection run under one mutex, so that the repository is
// built once however many threads ask. The form for a subtree and SetCFGMode take no lock;
// call them before other threads use the factory.
//
// A "synced_file" repository without usable files waits for the service, with the mutex held.
//
// Failure: null after a line in the log; the next call tries again from the start.
class HALVORIA_API CFG_Factory {
 public:
  CFG_Factory() = delete;

  // From the parameters file of the process: the one that HALVORIA_CFG_FILE names, else
  // CfgConnectionParams.txt.
  static CFG_RepositoryServices* GetRepositoryServices();
  // The same with the type forced to `cfg_type` when `force` is set. What is said here, also
  // that nothing is forced, stays in force for later initialisations of any form but the last.
  static CFG_RepositoryServices* GetRepositoryServices(const char* cfg_type, bool force);
  // From the named parameters file; the narrow name is UTF-8.
  static CFG_RepositoryServices* GetRepositoryServices(const char* file_name);
  static CFG_RepositoryServices* GetRepositoryServices(const wchar_t* file_name);
  // A repository over `sub_tree`, which stays the caller's and must outlive it. Deletes the current
  // repository, if there is one, and works after ShutdownRepositoryServices, too.
  static CFG_RepositoryServices* GetRepositoryServices(CFG_SubTree* sub_tree);

  // Deletes the repository; false when there is none. A later GetRepositoryServices builds
  // a new one.
  static bool DisconnectRepositoryServices();
  static void SetCFGMode(CFG_MODE mode);

  // Who gives out the session id that requests to the service carry as their token; see
  // Conn_TokenManagerHook.
  static void RegisterSecmSessionIdGetter(RWCString (*getter)(), int kind);

 private:
  friend class CFG_Extern_hook;
  friend HALVORIA_API void ShutdownRepositoryServices();

  // What a parameters file and the environment say, before any of it is used.
  using Parameters = CFG_ConnectionParameters;
  struct AtUnload;
  using RepositoryPtr = std::unique_ptr<CFG_RepositoryServices>;

  // The current repository, else what `init` makes, under the mutex.
  static CFG_RepositoryServices* get_or_init(const std::function<CFG_RepositoryServices*()>& init);
  static CFG_RepositoryServices* init_from_process_parameters();
  static CFG_RepositoryServices* InitInstance(const RWWString& cfg_file_name);
  static CFG_RepositoryServices* InitCfgINI(Tmr_INI& ini);
  static RepositoryPtr build_repository(const Parameters& parameters, CFG_SubTree* sub_tree);
  static CFG_RepositoryServices* ConnectToCfg(const Parameters& parameters, CFG_SubTree* sub_tree);
  static bool set_properties(const Parameters& parameters);  // of the repository just built
  static bool connect(const Parameters& parameters);
  static void replace_repository(RepositoryPtr repository);  // once the hook's calls are answered
  static void drop_repository();
  static void close_when_process_ends();
  // For the hook: the value, or the default where there is none, or no repository.
  static RWCString answer_hook(const RWCString& path, const RWCString& default_value,
                               bool& is_ready);
  static bool disconnect();  // with the mutex held
  static void init_common_values();
  static RWCString get_local_host_listeners_af(const RWCString& node);
  static RWCString choose_listeners_af(const RWCString& node);
  static RWCString get_default_host_listeners_af();

  static RepositoryPtr cfg;                    // the process's repository
  static ForkReleasedMutex cfg_factory_mutex;  // serialises initialisation and disconnection
  static CFG_MODE cfg_mode;
  static std::atomic<int> is_cfg_init;   // 1 while a connected repository is held
  static int is_cfg_shutdown;            // 1 for good after ShutdownRepositoryServices
  static RWCString m_override_cfg_type;  // guarded by cfg_factory_mutex
};

// Disconnects, for good: every GetRepositoryServices but the one for a subtree then gives null.
HALVORIA_API void ShutdownRepositoryServices();
