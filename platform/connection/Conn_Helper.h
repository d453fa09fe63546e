// One request on a connection.
#pragma once

#include <connection/ConnHelper_Params.h>
#include <connection/Conn_Form.h>
#include <connection/Conn_SyncConnector.h>

// Made for a request and gone after it. The form is sent when its answer is asked for, or else
// when the object goes; sent and received with one call to the system each, as a rule. Fields
// that are read are views into the connection's buffer and hold until the next frame is read.
// Failures are logged; nothing throws but for want of memory. A request that an exception ends,
// whoever throws it, drops the connection, on which it would be half sent or half read.
class HALVORIA_API Conn_Helper {
 public:
  // Opens the connection when it is not. `operation` names the caller in the log; with
  // `keep_open` the connection stays for the next request; `log` writes one line (7) a request.
  Conn_Helper(const char* operation, Conn_SyncConnector& connector, ConnHelper_Params& params,
              bool keep_open, bool log);
  Conn_Helper(const Conn_Helper&) = delete;
  Conn_Helper& operator=(const Conn_Helper&) = delete;
  virtual ~Conn_Helper();

  // Whether the connection is there and nothing has failed yet.
  bool IsValid() const { return m_is_valid; }
  // Takes the fields of the request. A request of which a field was not taken is not sent.
  Conn_FormWriter& Writer();
  // Sends the request and waits for the first frame of the answer: 0, or -1 when there is none
  // (3), or the service refused (4), for which the reason is logged.
  int GetResponseHeaders();
  // The same, waiting at most so long for it.
  int GetResponseHeaders(int seconds, int milliseconds);
  // What the service said when it refused the request; empty when it did not.
  const RWCString& Refusal() const { return m_refusal; }
  bool IsRefused() const { return m_is_refused; }
  // Reads fields across the frames of the answer: false at its end.
  bool Read(uint32_t field, RWCString& text);
  bool Read(uint32_t field, char** text);  // the caller frees it with delete[]
  bool Read(uint32_t field, long& value);
  bool Read(uint32_t field, int& value);
  bool ReadView(uint32_t field, std::string_view& bytes);
  // Whether the answer is whole and every field of it was read.
  bool IsAtEnd();
  // Passes over what is left of the answer.
  void ConsumeForm();
  // Sends the request and ends the line in the log now: no answer is waited for.
  void FreeLogGuard();

 protected:
  // For an answer that says in its own fields why what was asked for is not done (4).
  void take_refusal(std::string_view reason);

  Conn_SyncConnector& m_connector;
  ConnHelper_Params& m_params;

 private:
  struct Limit;

  bool send();
  bool next_frame();
  bool is_at_field();
  void refuse(const char* what, std::string_view reason);
  bool fail();  // logs the reason
  void log_line();
  void finish();

  const char* m_operation;
  const int m_exceptions;  // on their way when this was made
  bool m_is_valid = false;
  bool m_is_sent = false;
  bool m_keep_open;
  bool m_log;
  bool m_is_refused = false;
  bool m_has_more = false;  // frames of the answer
  Conn_FormReader m_reader;
  RWCString m_refusal;
};
