// The parameters file of the process.
#pragma once

#include <vector>

#include <utility/Tmr_INI.h>

// Read once, on first use: the file named by the environment variable HALVORIA_CFG_FILE, or
// without that the first CfgConnectionParams.txt of the current folder, the folder of the
// program and /etc/halvoria. A file that HALVORIA_CFG_FILE names and that is missing is
// reported (3) and replaced by no other; nor is one that is found and cannot be read.
class HALVORIA_API Tmr_CfgINI : public Tmr_INI {
 public:
  // Never destroyed. Looks for the file again on each call until one was read: IsInit
  // says whether it was.
  static Tmr_CfgINI& Instance();

  RWWString FileName() const;             // the file taken; empty when there was none
  std::vector<RWWString> Places() const;  // the files looked for, in this order

 private:
  Tmr_CfgINI() = default;
  static Tmr_CfgINI& instance();
  void load();

  static const Tmr_CfgINI& made_early;

  mutable ForkReleasedMutex m_load_mutex;  // taken before the base's
  RWWString m_file_name THREADAPI_GUARDED_BY(m_load_mutex);
  std::vector<RWWString> m_places THREADAPI_GUARDED_BY(m_load_mutex);
};
