#include <utility/Tmr_FileSystemUtils.h>

#include <logging/Logger.h>
#include <system/Sys_Folder.h>

namespace {

constexpr Log_Logger logger("platform/utility/Tmr_FileSystemUtils", 502);

}  // namespace

bool Tmr_FileSystemUtils::GetReadOnly(const RWWString& folder, bool& read_only) {
  RWCString error;
  const Sys_FolderAccess access = Sys_AccessToFolder(folder, error);
  if (access == SYS_FOLDER_UNKNOWN) return logger.reject(false, "GetReadOnly() : %s\n", error);
  read_only = access == SYS_FOLDER_READ_ONLY;
  return true;
}
