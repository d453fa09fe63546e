#include <system/Sys_Module.h>

#include <dlfcn.h>
#include <link.h>

#include <cstdlib>
#include <memory>

#include <system/Sys_FileName.h>

Sys_Module::~Sys_Module() {
  if (m_handle) dlclose(m_handle);
}

bool Sys_Module::load(const RWCString& name) {
  void* handle = name.isNull() ? nullptr : dlopen(name.data(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) {
    m_error = name.isNull() ? "no module is named" : dlerror();
    return false;
  }
  if (m_handle) dlclose(m_handle);
  m_handle = handle;
  return true;
}

void* Sys_Module::symbol(const RWCString& name) {
  void* address = m_handle ? dlsym(m_handle, name.data()) : nullptr;
  if (!address) m_error = "no symbol " + name + (m_handle ? " in the module" : ": nothing loaded");
  return address;
}

RWCString Sys_Module::FolderOf(const void* address) {
  Dl_info info;
  link_map* map = nullptr;
  if (!dladdr1(address, &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP)) return RWCString();
  // The program itself is listed without a name, and under what it was called with.
  const char* name = map && *map->l_name ? map->l_name : "/proc/self/exe";
  const std::unique_ptr<char, decltype(&std::free)> real(realpath(name, nullptr), &std::free);
  return real ? Sys_FolderOf(RWCString(real.get())) : RWCString();
}
