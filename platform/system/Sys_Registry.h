// The registry: what the installation notes for all its processes.
#pragma once

#include <strings/Export.h>
#include <strings/RWCString.h>
#include <strings/RWWString.h>

// Values by name below keys like HKEY_LOCAL_MACHINE\SOFTWARE\Kestral\install, in one text file
// (Sys_RegistryText.h says its form): the one that the environment variable HALVORIA_REGISTRY
// names, without that /etc/halvoria/registry. A file that is missing is an empty registry. Upper
// and lower case of ASCII letters are the same in keys and names; values and names are
// any bytes.
//
// Every operation reads the file anew. A change replaces it whole, one process and thread after the
// other (the lock file is the file's name and ".LOCK"), and keeps the lines that it does not
// change. What fails is logged (3) with the file; a line that is nothing of a registry is logged
// (4) with its number and otherwise left alone. Any thread.
class HALVORIA_API Sys_Registry {
 public:
  static constexpr size_t MAX_BYTES = size_t{1} << 20;

  Sys_Registry() = delete;

  // True with a copy in `value`, which is left alone when there is no such value.
  static bool GetValue(const RWCString& key, const RWCString& name, RWCString& value);
  // Makes the key, and the file with its folder, where they are missing.
  static bool SetValue(const RWCString& key, const RWCString& name, const RWCString& value);
  // True when it is gone, also when it was not there. A key goes with those below it.
  static bool DeleteValue(const RWCString& key, const RWCString& name);
  static bool DeleteKey(const RWCString& key);

  // The file that holds a key: one for all keys. What belongs to a single user
  // (HKEY_CURRENT_USER) gets a file of its own here.
  static RWWString FileOf(const RWCString& key);
};
