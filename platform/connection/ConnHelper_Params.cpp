#include <connection/ConnHelper_Params.h>

#include <system/Sys_Process.h>
#include <utility/Tmr_SocketWrapper.h>

ConnHelper_Params::ConnHelper_Params(const RWCString& user, const RWCString& application)
    : m_user(user), m_application(application) {}

ConnHelper_Params::~ConnHelper_Params() = default;

RWCString ConnHelper_Params::GetIP() const {
  const RWCString host = Sys_ComputerName();
  const RWCString v4 =
      Tmr_SocketWrapper::GetLocalIPAsStringByAF(host, Tmr_SocketWrapper::FAMILY_V4);
  if (!v4.isNull()) return v4;
  return Tmr_SocketWrapper::GetLocalIPAsStringByAF(host, Tmr_SocketWrapper::FAMILY_V6);
}

RWCString ConnHelper_Params::GetGroupName() const { return RWCString(); }
