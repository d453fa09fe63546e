// Answers the platform libraries' requests for configuration values.
#pragma once

#include <strings/RWCString.h>
#include <utility/Tmr_CfgHook.h>

// The factory registers one instance when a repository has connected and takes it back at
// the disconnect. The factory's repository answers; without one the default does. Any thread may
// call at any time: a disconnect waits for the calls that are being answered.
class HALVORIA_API CFG_Extern_hook : public Tmr_CfgHookInterface {
 public:
  RWCString GetValue(RWCString path, RWCString default_value) override;
};
