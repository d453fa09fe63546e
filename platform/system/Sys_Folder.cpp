#include <system/Sys_Folder.h>

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <vector>

#include <system/Sys_FileName.h>

namespace {

RWCString reason_of(const char* what, const RWCString& name, int reason) {
  return RWCString(what) + " <" + name + ">: " + std::generic_category().message(reason);
}

bool is_folder(const RWCString& name) {
  struct stat status;
  return stat(name.data(), &status) == 0 && S_ISDIR(status.st_mode);
}

// 0 when a file could be made, which is gone again; else the system's error.
int try_to_make_a_file(const RWCString& folder) {
  int file = open(folder.data(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
  if (file < 0 && (errno == EOPNOTSUPP || errno == EISDIR)) {  // not every file system has such
    std::string name = folder.str() + "/.halvoria.XXXXXX";
    file = mkostemp(name.data(), O_CLOEXEC);
    if (file >= 0) unlink(name.c_str());
  }
  if (file < 0) return errno;
  close(file);
  return 0;
}

}  // namespace

bool Sys_MakeFolders(const RWWString& name, unsigned mode, RWCString& error) {
  const RWCString native = Sys_NativeFileName(name);
  error = Sys_FileNameFault(native);
  if (!error.isNull()) return false;
  std::vector<RWCString> missing;
  for (RWCString folder = native; !is_folder(folder); folder = Sys_FolderOf(folder)) {
    missing.push_back(folder);
    if (folder == Sys_FolderOf(folder)) break;
  }
  for (auto folder = missing.rbegin(); folder != missing.rend(); ++folder) {
    if (mkdir(folder->data(), mode) == 0 || errno == EEXIST) continue;  // or made by others
    error = reason_of("cannot make folder", *folder, errno);
    return false;
  }
  if (is_folder(native)) return true;
  error = reason_of("cannot make folder", native, ENOTDIR);
  return false;
}

Sys_FolderAccess Sys_AccessToFolder(const RWWString& name, RWCString& error) {
  const RWCString native = Sys_NativeFileName(name);
  error = Sys_FileNameFault(native);
  if (!error.isNull()) return SYS_FOLDER_UNKNOWN;
  struct stat status;
  int reason = stat(native.data(), &status) == 0 ? 0 : errno;
  if (reason == 0 && !S_ISDIR(status.st_mode)) reason = ENOTDIR;
  if (reason == 0) {
    const bool anybody_may = (status.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) != 0;
    reason = anybody_may ? try_to_make_a_file(native) : EACCES;
  }
  switch (reason) {
    case 0:
    case ENOSPC:
    case EDQUOT:
      return SYS_FOLDER_WRITABLE;
    case EROFS:
    case EACCES:
    case EPERM:
      return SYS_FOLDER_READ_ONLY;
  }
  error = reason_of("cannot look into folder", native, reason);
  return SYS_FOLDER_UNKNOWN;
}
