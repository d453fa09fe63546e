// Code loaded while the process runs.
#pragma once

#include <strings/Export.h>
#include <strings/RWCString.h>

// A loaded library, unloaded with this object unless `keep_loaded` was called. One
// thread at a time; what `symbol` returned is good as long as the library is loaded.
class HALVORIA_API Sys_Module {
 public:
  Sys_Module() = default;
  ~Sys_Module();
  Sys_Module(const Sys_Module&) = delete;
  Sys_Module& operator=(const Sys_Module&) = delete;

  // `name`: a file name with a folder, or a bare one that the system's loader searches.
  // False with `error` set when it cannot be loaded; a module loaded before stays then.
  bool load(const RWCString& name);

  // Address of a function or variable, NULL with `error` set when there is none.
  void* symbol(const RWCString& name);

  // The library stays until the process ends.
  void keep_loaded() { m_handle = nullptr; }

  const RWCString& error() const { return m_error; }

  // The folder of the library or program that holds the function or variable at an address,
  // links followed; empty when the system does not tell. Any thread.
  static RWCString FolderOf(const void* address);

 private:
  void* m_handle = nullptr;
  RWCString m_error;
};
