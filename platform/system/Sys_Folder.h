// Folders.
#pragma once

#include <strings/Export.h>
#include <strings/RWCString.h>
#include <strings/RWWString.h>

// Makes a folder and those above that are missing, with the permissions `mode` as far as the umask
// allows; true when it is there in the end. Else `error`: what was tried, the name and the
// system's reason. Any thread.
HALVORIA_API bool Sys_MakeFolders(const RWWString& name, unsigned mode, RWCString& error);

enum Sys_FolderAccess { SYS_FOLDER_WRITABLE, SYS_FOLDER_READ_ONLY, SYS_FOLDER_UNKNOWN };

// Whether files can be made in a folder, which is found out by making one. Read-only is one on a
// read-only file system, one whose permissions don't let us, and one that nobody may write, the
// administrator included. A full disk is not read-only. Unknown, with `error`, is what there
// is no answer for: no such folder, no folder, no descriptor left. Any thread.
HALVORIA_API Sys_FolderAccess Sys_AccessToFolder(const RWWString& name, RWCString& error);
