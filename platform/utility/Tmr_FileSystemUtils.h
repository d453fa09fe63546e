// Questions to the file system.
#pragma once

#include <strings/Export.h>
#include <strings/RWWString.h>

class HALVORIA_API Tmr_FileSystemUtils {
 public:
  // Whether no file can be made in a folder: on a read-only file system, by its permissions, or
  // since nobody may write it, the administrator included. False, with one line in the log (3) and
  // `read_only` left alone, when that cannot be found out: no such folder. Any thread.
  static bool GetReadOnly(const RWWString& folder, bool& read_only);
};
