#include <database/Db_Module.h>

#include <map>

#include <system/Sys_ModuleFinder.h>
#include <thread/ForkHandler.h>

namespace {

// Loading takes its time: a fork does not wait for it.
struct Modules {
  ForkReleasedMutex mutex;
  std::map<RWCString, Db_OpenStore> loaded THREADAPI_GUARDED_BY(mutex);
};
Modules& modules() {
  static Modules& all = *new Modules;
  return all;
}
[[maybe_unused]] const Modules& made_early = modules();  // before any fork

// A module is looked for until it was found once.
Db_OpenStore opener(const RWCString& name, std::string& reason) {
  auto& [mutex, loaded] = modules();
  const MutexGuard guard(mutex);
  const auto known = loaded.find(name);
  if (known != loaded.end()) return known->second;
  RWCString why;
  const auto function =
      reinterpret_cast<Db_OpenStore>(Sys_ModuleFunction(name, DB_OPEN_STORE, why));
  if (!function) {
    reason = why.str();
    return nullptr;
  }
  return loaded[name] = function;
}

}  // namespace

std::unique_ptr<Db_Store> Db_Open(const std::string& connection, const std::string& user,
                                  std::string& reason) {
  if (connection.empty()) {
    reason = "no connection string is given";
    return nullptr;
  }
  const bool is_file = connection.compare(0, 7, "sqlite:") == 0;
  const Db_OpenStore open =
      opener(is_file ? "libhalvoria_sqlite.so" : "libhalvoria_postgresql.so", reason);
  if (!open) return nullptr;
  return std::unique_ptr<Db_Store>(open(connection.c_str(), user.c_str(), reason));
}
