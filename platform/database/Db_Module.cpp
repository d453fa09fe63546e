#include <database/Db_Module.h>

#include <map>
#include <vector>

#include <system/Sys_Environment.h>
#include <system/Sys_File.h>
#include <system/Sys_Module.h>
#include <thread/Mutex.h>

namespace {

std::vector<RWCString> folders() {
  RWCString given;
  if (Sys_Environment::Get("HALVORIA_MODULES", given) && !given.isNull()) return {given};
  static const char here = 0;
  const RWCString folder = Sys_Module::FolderOf(&here);
  return {folder + "/halvoria", folder, folder + "/../" HALVORIA_LIBDIR "/halvoria",
          folder + "/../lib"};
}

RWCString file_of(const RWCString& name, std::string& reason) {
  std::string places;
  for (const RWCString& folder : folders()) {
    const RWCString file = folder + "/" + name;
    if (Sys_File::Exists(RWWString::fromUTF8(file))) return file;
    places += (places.empty() ? "" : ", ") + folder.str();
  }
  reason = "module " + name.str() + " is not in " + places;
  return RWCString();
}

Db_OpenStore load(const RWCString& name, std::string& reason) {
  const RWCString file = file_of(name, reason);
  if (file.isNull()) return nullptr;
  Sys_Module module;
  void* function = module.load(file) ? module.symbol(DB_OPEN_STORE) : nullptr;
  if (!function) {
    reason = "module " + file.str() + " cannot be used: " + module.error().str();
    return nullptr;
  }
  module.keep_loaded();
  return reinterpret_cast<Db_OpenStore>(function);
}

// A module is looked for until it was found once.
Db_OpenStore opener(const RWCString& name, std::string& reason) {
  static Mutex mutex;
  static std::map<RWCString, Db_OpenStore> loaded;
  const MutexGuard guard(mutex);
  const auto known = loaded.find(name);
  if (known != loaded.end()) return known->second;
  const Db_OpenStore function = load(name, reason);
  if (function) loaded[name] = function;
  return function;
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
