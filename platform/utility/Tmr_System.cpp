#include <utility/Tmr_System.h>

#include <logging/Logger.h>
#include <system/Sys_Environment.h>
#include <system/Sys_Folder.h>
#include <system/Sys_Process.h>

namespace {

constexpr Log_Logger logger("platform/utility/Tmr_System", 502);

// Empty for a user without a home.
RWCString users_state_folder() {
  RWCString folder;
  if (Sys_Environment::Get("XDG_STATE_HOME", folder) && folder(0) == '/') return folder;
  const RWCString home = Sys_HomeFolder();
  return home.isNull() ? home : home + "/.local/state";
}

}  // namespace

RWWString Tmr_System::GetWorkPath(const RWCString& library) {
  const bool is_for_all = Sys_IsAdministrator();
  const RWCString state = is_for_all ? RWCString("/var/lib") : users_state_folder();
  if (state.isNull()) {
    return logger.reject(RWWString(), "GetWorkPath() : user <%s> has no home for the files of %s\n",
                         Sys_UserName(), library);
  }
  const RWWString folder = RWWString::fromUTF8(state + "/halvoria");
  RWCString error;
  if (!Sys_MakeFolders(folder, is_for_all ? 0755 : 0700, error)) {
    logger.error("GetWorkPath() : no folder for the files of %s: %s\n", library, error);
  }
  return folder;
}
