// One request to the configuration service.
#pragma once

#include <CFG/CFG_Protocol.h>
#include <connection/ConnHelper_Params.h>
#include <connection/Conn_Helper.h>
#include <logging/Log_Format.h>
#include <strings/RWCString.h>

class CFG_Connector;

// Who asks for what. Times the request where performance is monitored.
class HALVORIA_API CFGClientHelper_Params : public ConnHelper_Params {
 public:
  // The connector and the command's name outlive the request.
  CFGClientHelper_Params(CFG_Connector& connector, const RWCString& command);
  ~CFGClientHelper_Params() override;

  const RWCString& GetCommandName() const override { return m_command; }
  const char* GetResponsePrefix() const override { return cfg::protocol::RESPONSE_PREFIX; }
  int GetServiceId() const override { return cfg::protocol::CFG_SERVICE_ID; }

 private:
  const RWCString& m_command;
  // Counters of this thread, and of this command on this thread; empty where nothing is counted.
  RWCString m_counter;
  RWCString m_command_counter;
};

// A request whose form begins with user and application, and the readers of its answers. Each
// waits for the answer and gives the empty result, after a line in the log, when there is
// none, or not the field that is wanted.
class HALVORIA_API CFG_Conn_ClientHelper : public Conn_Helper {
 public:
  CFG_Conn_ClientHelper(const char* operation, CFG_Connector& connector,
                        CFGClientHelper_Params& params);

  // False when there is no answer, with that line (3), or the request was refused.
  bool HasAnswer(Log_Format<> otherwise);
  int GetSuccessCode();
  int GetResponseLength();
  // The text, which is emptied first. TRUE when there was one.
  int GetCFGValue(RWCString& value);
  int GetCFGValueTimeOut(RWCString& value);  // waits ten seconds at most
  // The byte array of a subtree, which the caller frees with delete[].
  [[nodiscard]] char* get_subtree(long& length);

 private:
  int read_value(RWCString& value);
};
