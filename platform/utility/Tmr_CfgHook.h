// Where the platform's own code gets its settings from.
#pragma once

#include <atomic>

#include <strings/Export.h>
#include <strings/RWCString.h>

// Implemented by whoever keeps the configuration.
class HALVORIA_API Tmr_CfgHookInterface {
 public:
  virtual ~Tmr_CfgHookInterface() = default;
  // The value stored at `path`, or `default_value`. Any thread may call.
  virtual RWCString GetValue(RWCString path, RWCString default_value) = 0;
};

// Any thread may call. An object that is being asked while it is unregistered must
// live on until that answer is given.
class HALVORIA_API Tmr_CfgHook {
 public:
  // The one to ask from now on, not owned; NULL for none.
  static void RegisterInterface(Tmr_CfgHookInterface* hook) { m_hook = hook; }

  // What the registered object answers; `default_value` without one.
  static RWCString GetValue(const RWCString& path, const RWCString& default_value) {
    Tmr_CfgHookInterface* hook = m_hook;
    return hook ? hook->GetValue(path, default_value) : default_value;
  }

 private:
  static std::atomic<Tmr_CfgHookInterface*> m_hook;
};
