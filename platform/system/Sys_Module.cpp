#include <system/Sys_Module.h>

#include <dlfcn.h>

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
