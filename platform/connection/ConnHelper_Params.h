// What a request says about itself and who asks.
#pragma once

#include <strings/Export.h>
#include <strings/RWCString.h>

// Derived for each protocol. Virtual operations are called in this order of slots.
class HALVORIA_API ConnHelper_Params {
 public:
  ConnHelper_Params(const RWCString& user, const RWCString& application);
  ConnHelper_Params(const ConnHelper_Params&) = delete;
  ConnHelper_Params& operator=(const ConnHelper_Params&) = delete;
  virtual ~ConnHelper_Params();

  virtual const RWCString& GetCommandName() const = 0;
  virtual const char* GetResponsePrefix() const = 0;
  virtual int GetServiceId() const = 0;
  virtual const RWCString& GetTmrUserName() const { return m_user; }
  virtual const RWCString& GetAppName() const { return m_application; }
  virtual RWCString GetIP() const;         // of this host; empty when it has none
  virtual RWCString GetGroupName() const;  // empty

 private:
  const RWCString& m_user;         // of the connector, which outlives the request
  const RWCString& m_application;  // likewise
};
