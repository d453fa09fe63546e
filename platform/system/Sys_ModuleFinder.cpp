#include <system/Sys_ModuleFinder.h>

#include <vector>

#include <strings/RWWString.h>
#include <system/Sys_Environment.h>
#include <system/Sys_File.h>
#include <system/Sys_Module.h>

namespace {

std::vector<RWCString> folders() {
  RWCString given;
  if (Sys_Environment::Get("HALVORIA_MODULES", given) && !given.isNull()) return {given};
  static const char here = 0;
  const RWCString folder = Sys_Module::FolderOf(&here);
  return {folder + "/halvoria", folder, folder + "/../" HALVORIA_LIBDIR "/halvoria",
          folder + "/../lib"};
}

RWCString place_of(const RWCString& name, RWCString& reason) {
  RWCString places;
  for (const RWCString& folder : folders()) {
    const RWCString file = folder + "/" + name;
    if (Sys_File::Exists(RWWString::fromUTF8(file))) return file;
    places += (places.isNull() ? "" : ", ") + folder;
  }
  reason = "module " + name + " is not in " + places;
  return RWCString();
}

}  // namespace

void* Sys_ModuleFunction(const RWCString& file, const RWCString& function, RWCString& reason) {
  const RWCString place = place_of(file, reason);
  if (place.isNull()) return nullptr;
  Sys_Module module;  // one that is loaded already is loaded once
  void* address = module.load(place) ? module.symbol(function) : nullptr;
  if (address) {
    module.keep_loaded();
  } else {
    reason = "module " + place + " cannot be used: " + module.error();
  }
  return address;
}
