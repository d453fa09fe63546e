// Where the installation's libraries keep what they write.
#pragma once

#include <strings/Export.h>
#include <strings/RWCString.h>
#include <strings/RWWString.h>

class HALVORIA_API Tmr_System {
 public:
  // The folder for the files of a library of ours ("CFG.dll"), which has no backslash at its end.
  // All libraries share one: /var/lib/halvoria for the administrator, else `halvoria` in the
  // user's folder for state ($XDG_STATE_HOME, without that or where it is no absolute name
  // ~/.local/state). Made when it is missing, the user's for nobody else to read; when that
  // fails one line in the log (3) says why, and the name comes back nevertheless. Empty, with such
  // a line, for a user without a home. Any thread.
  static RWWString GetWorkPath(const RWCString& library);
};
