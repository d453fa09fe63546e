#include <connection/Conn_Helper.h>

#include <exception>
#include <new>

#include <connection/Conn_Connection.h>
#include <logging/Logger.h>

namespace {

constexpr Log_Logger logger("platform/connection/Conn_Helper", 197);

// The fields of the connection that stand at the front of an answer's frame.
struct FrameHead {
  std::string_view name;
  std::string_view error;
  int more = 0;
  bool is_refusal = false;

  bool read(Conn_FormReader& fields) {
    if (!fields.ReadString(CONN_FLD_NAME, name)) return false;
    if (!fields.ReadInt(CONN_FLD_MORE, more)) return false;
    is_refusal = fields.ReadString(CONN_FLD_ERROR, error);
    return true;
  }
  bool answers(std::string_view prefix, std::string_view command) const {
    return name.size() == prefix.size() + command.size() &&
           name.substr(0, prefix.size()) == prefix && name.substr(prefix.size()) == command;
  }
};

}  // namespace

Conn_Helper::Conn_Helper(const char* operation, Conn_SyncConnector& connector,
                         ConnHelper_Params& params, bool keep_open, bool log)
    : m_connector(connector),
      m_params(params),
      m_operation(operation),
      m_exceptions(std::uncaught_exceptions()),
      m_keep_open(keep_open),
      m_log(log) {
  Writer().begin(params.GetCommandName());
  m_is_valid = connector.m_inside->prepare() || fail();
}

Conn_Helper::~Conn_Helper() {
  try {
    if (std::uncaught_exceptions() == m_exceptions) {
      finish();
      return;
    }
  } catch (...) {
    // As for the exceptions of others.
  }
  m_connector.m_inside->drop();
}

// What is received of the answer while this lives comes within the time.
struct Conn_Helper::Limit {
  Limit(Conn_SyncConnector::Inside& connection, std::chrono::milliseconds time)
      : inside(connection) {
    inside.limit_answer(time);
  }
  Limit(const Limit&) = delete;
  Limit& operator=(const Limit&) = delete;
  ~Limit() { inside.unlimit_answer(); }
  Conn_SyncConnector::Inside& inside;
};

void Conn_Helper::finish() {
  if (m_is_valid && !m_is_sent) send();
  if (m_has_more) {  // who answers without end would hold whoever has read enough
    const Limit limit(*m_connector.m_inside, m_connector.m_inside->time_outs.answer);
    ConsumeForm();
  }
  if (m_is_sent) m_connector.m_inside->mark_used();
  log_line();
  Writer().shrink();
  m_connector.m_inside->received.shrink();
  if (!m_keep_open) m_connector.Disconnect();
}

Conn_FormWriter& Conn_Helper::Writer() { return m_connector.m_inside->writer; }

// Of a transaction whose connection broke, one line says so, and not one a request.
bool Conn_Helper::fail() {
  auto& inside = *m_connector.m_inside;
  const int level = inside.break_is_logged ? LOG_LEVEL_TRACE
                    : m_is_refused         ? LOG_LEVEL_WARNING
                                           : LOG_LEVEL_ERROR;
  logger.log(level, "%s: %s fails: %s\n", m_operation, m_params.GetCommandName(),
             inside.last_error);
  inside.break_is_logged = inside.transaction_is_broken;
  m_has_more = false;
  return m_is_valid = false;
}

void Conn_Helper::log_line() {
  if (!m_log) return;
  m_log = false;
  logger.trace("%s: %s to %s %s\n", m_operation, m_params.GetCommandName(), m_connector.Address(),
               m_is_valid ? "done" : "failed");
}

bool Conn_Helper::send() {
  m_is_sent = true;
  return m_connector.m_inside->send(m_connector.m_service_name) || fail();
}

void Conn_Helper::FreeLogGuard() {
  if (m_is_valid && !m_is_sent) send();
  log_line();
}

int Conn_Helper::GetResponseHeaders() {
  if (!m_is_valid || (!m_is_sent && !send())) return -1;
  return next_frame() ? 0 : -1;
}

int Conn_Helper::GetResponseHeaders(int seconds, int milliseconds) {
  const Limit limit(*m_connector.m_inside,
                    std::chrono::seconds(seconds) + std::chrono::milliseconds(milliseconds));
  return GetResponseHeaders();
}

void Conn_Helper::refuse(const char* what, std::string_view reason) {
  auto& inside = *m_connector.m_inside;
  m_is_refused = true;
  m_refusal = RWCString(reason);
  inside.last_error = inside.address + " refused the " + what + m_refusal;
}

void Conn_Helper::take_refusal(std::string_view reason) {
  const RWCString kept(reason);  // what follows may move the bytes of the answer
  ConsumeForm();
  if (!m_is_valid) return;
  refuse("request: ", kept);
  fail();
}

bool Conn_Helper::next_frame() {
  auto& inside = *m_connector.m_inside;
  m_has_more = false;
  for (;;) {
    std::string_view frame;
    if (!inside.receive(frame)) return fail();
    m_reader = Conn_FormReader(frame);
    FrameHead head;
    if (!head.read(m_reader)) {
      inside.break_off("the answer is not well formed");
      return fail();
    }
    const bool is_ours = head.answers(m_params.GetResponsePrefix(), m_params.GetCommandName());
    if (is_ours && !head.is_refusal) {
      m_has_more = head.more != 0;
      return true;
    }
    if (head.is_refusal && (is_ours || head.name.empty())) {
      // Without a name, the connection itself is refused.
      refuse(head.name.empty() ? "connection: " : "request: ", head.error);
      if (head.name.empty()) inside.drop();
      return fail();
    }
    if (!head.is_refusal) {
      inside.break_off("the answer is to another request, <" + std::string(head.name) + ">");
      return fail();
    }
    logger.warning("%s: an earlier request was refused, <%s>: %s\n", m_operation, head.name,
                   head.error);
  }
}

// At the next field, in whichever frame of the answer it is.
bool Conn_Helper::is_at_field() {
  while (m_is_valid && m_reader.is_done() && m_has_more) next_frame();
  return m_is_valid;
}

bool Conn_Helper::Read(uint32_t field, RWCString& text) {
  return is_at_field() && m_reader.ReadString(field, text);
}
bool Conn_Helper::Read(uint32_t field, char** text) {
  return is_at_field() && m_reader.ReadString(field, text);
}
bool Conn_Helper::Read(uint32_t field, long& value) {
  return is_at_field() && m_reader.ReadLong(field, value);
}
bool Conn_Helper::Read(uint32_t field, int& value) {
  return is_at_field() && m_reader.ReadInt(field, value);
}
bool Conn_Helper::ReadView(uint32_t field, std::string_view& bytes) {
  return is_at_field() && m_reader.ReadBinary(field, bytes);
}

bool Conn_Helper::IsAtEnd() { return is_at_field() && m_reader.is_done(); }

void Conn_Helper::ConsumeForm() {
  while (m_is_valid && m_has_more) next_frame();
  m_reader = Conn_FormReader();
}
