// Where the security tokens of requests come from.
#pragma once

#include <memory>
#include <string>

#include <strings/Export.h>
#include <strings/RWCString.h>

// The token of a process is the session id that the security manager of its application gives
// out; without one, requests carry none. Any thread.
class HALVORIA_API Conn_TokenManagerHook {
 public:
  using SessionIdGetter = RWCString (*)();

  Conn_TokenManagerHook() = delete;

  // `kind` is kept for the security manager and is 0 or more. A null getter takes it away.
  static void RegisterSecmSessionIdGetter(SessionIdGetter getter, int kind);
  // The token for a right, such as "cfg_modify", and the session id that it stands for; null when
  // there is none.
  static std::shared_ptr<const std::string> GetToken(const char* right, RWCString& session_id);
};
