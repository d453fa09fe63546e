// Short numbers for names that are written often.
#pragma once

#include <vector>

#include <strings/Export.h>
#include <strings/RWCString.h>
#include <thread/ForkHandler.h>

// One registry for the process, from 1 on in order of registration. Any thread may call.
class HALVORIA_API Tmr_Legend {
 public:
  static Tmr_Legend& GetInstance();  // never destroyed

  int Register(const RWCString& name);  // the same number for the same name
  RWCString GetName(int id) const;      // empty for a number that was not given

 private:
  mutable ForkMutex m_mutex{ForkHandler::VALUES};
  std::vector<RWCString> m_names THREADAPI_GUARDED_BY(m_mutex);
};
