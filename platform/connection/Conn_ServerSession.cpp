#include <connection/Conn_ServerSession.h>

#include <exception>
#include <utility>

#include <logging/Logger.h>
#include <utility/Tmr_Version.h>

namespace {

constexpr Log_Logger logger("platform/connection/Conn_Server", 197);
// Most requests are far below it. What a connection takes for good is kept small: what lies between
// the buffers of thousands, once they are gone, holds pages that nobody uses.
constexpr size_t kUsualRequest = 512;
constexpr size_t kUsualAnswer = 128 * 1024;  // holds a chunk of a tree
// A connection that is not used for longer keeps no buffer for its answers.
constexpr std::chrono::milliseconds kBufferTime(2000);
// For how long a client that was refused may go on sending before it is cut off.
constexpr std::chrono::milliseconds kDrainTime(2000);

}  // namespace

Conn_ServerSession::Conn_ServerSession(uint64_t id, std::string peer,
                                       Conn_ServerStream::Socket socket,
                                       std::shared_ptr<Conn_ServerThread> thread)
    : m_id(id),
      m_peer(std::move(peer)),
      m_thread(std::move(thread)),
      m_stream(std::make_unique<Conn_ServerStream>(std::move(socket))),
      m_received(kUsualRequest, m_thread->shared().settings.max_frame) {}

void Conn_ServerSession::start() {
  m_is_admitted = true;
  m_thread->shared().handler.opened(*this);
  set_state(State::READING);
  go_on();
}

void Conn_ServerSession::turn_away(std::string_view reason) { refuse_connection(reason); }

void Conn_ServerSession::set_state(State state) {
  m_state = state;
  m_since = m_thread->now();
}

// --- reading -------------------------------------------------------------------------------------

// Takes requests as long as there are whole ones and each is answered at once.
void Conn_ServerSession::go_on() {
  using Found = Conn_FrameSplitter::Found;
  if (m_is_in_loop) return;
  m_is_in_loop = true;
  while (m_stream && m_state == State::READING) {
    std::string_view frame;
    const Found found = m_received.next(frame);
    if (found == Found::FRAME) {
      m_frame_has_begun = false;
      take(frame);
    } else if (found == Found::TOO_LONG) {
      refuse_connection("a request of " + std::to_string(m_received.claimed()) +
                        " bytes is too large, the limit is " +
                        std::to_string(m_thread->shared().settings.max_frame));
    } else {
      if (m_received.has_begun() && !std::exchange(m_frame_has_begun, true)) {
        m_since = m_thread->now();
      }
      receive();
      break;
    }
  }
  m_is_in_loop = false;
}

void Conn_ServerSession::receive() {
  try {
    size_t size;
    char* room = m_received.room(size);
    m_stream->receive(room, size, [self = self()](const asio::error_code& error, size_t count) {
      self->received(error, count);
    });
  } catch (const std::bad_alloc&) {
    end("there is no memory for its request");
  }
}

void Conn_ServerSession::received(const asio::error_code& error, size_t size) {
  if (!m_stream) return;
  if (m_state == State::DRAINING) {
    if (error) return end(nullptr);
    m_received.clear();
    return receive();
  }
  if (error) return end(m_frame_has_begun ? "it ended within a request" : nullptr);
  m_received.received(size);
  go_on();
}

void Conn_ServerSession::take(std::string_view frame) {
  Conn_FormReader fields(frame);
  std::string_view service;
  int more = 0, version = 0;
  if (!fields.ReadString(CONN_FLD_NAME, m_name) || m_name.empty()) {
    return refuse_connection("the request is not well formed");
  }
  if (fields.ReadInt(CONN_FLD_MORE, more) && more != 0) {
    return refuse_connection("a request of several frames is not supported");
  }
  const bool is_introduced_now =
      fields.ReadString(CONN_FLD_SERVICE, service) && fields.ReadInt(CONN_FLD_VERSION, version);
  const char* const why = objection(service, version, is_introduced_now);
  m_is_introduced = m_is_introduced || !why;
  if (m_name == CONN_PING) return answer_ping();
  if (why) return refuse_connection(why);
  set_state(State::RUNNING);
  begin_answer();
  try {
    m_thread->shared().handler.request(*this, m_name, fields.rest());
  } catch (const std::exception& failure) {
    logger.error("request <%s> of %s failed: %s\n", m_name, m_peer, failure.what());
    if (m_state != State::RUNNING) return end("its request failed");
    m_is_closing = true;
    refuse("the request failed");
  }
}

const char* Conn_ServerSession::objection(std::string_view service, int version,
                                          bool is_introduced_now) const {
  if (!is_introduced_now) {
    return m_is_introduced ? nullptr : "the first request does not say which service it is for";
  }
  if (service != m_thread->shared().settings.service_name) return "this is another service";
  if (version != CONN_PROTOCOL_VERSION) return "this service speaks another version";
  return nullptr;
}

void Conn_ServerSession::answer_ping() {
  m_answer.begin(CONN_PING);
  m_answer.WriteString(CONN_FLD_SERVICE, m_thread->shared().settings.service_name);
  m_answer.WriteInt(CONN_FLD_VERSION, CONN_PROTOCOL_VERSION);
  const RWCString product = Tmr_Version::GetVersion();
  m_answer.WriteString(CONN_FLD_PRODUCT, product);
  set_state(State::RUNNING);
  send_last();
}

// --- answering -----------------------------------------------------------------------------------

bool Conn_ServerSession::on_thread(Done operation) {
  if (!m_thread->is_current()) {
    return m_thread->post([self = self(), operation] { (self.get()->*operation)(); });
  }
  (this->*operation)();
  return true;
}

void Conn_ServerSession::finish(std::shared_ptr<void> kept) {
  m_kept = std::move(kept);
  if (!on_thread(&Conn_ServerSession::send_last)) m_kept.reset();
}
void Conn_ServerSession::skip() { on_thread(&Conn_ServerSession::leave_unanswered); }
void Conn_ServerSession::close() { on_thread(&Conn_ServerSession::close_when_answered); }

void Conn_ServerSession::drop_answer() {
  m_answer.shrink(0);
  begin_answer();
}

void Conn_ServerSession::refuse(std::string_view reason) {
  begin_answer();
  m_answer.WriteString(CONN_FLD_ERROR, reason);
  finish();
}

void Conn_ServerSession::send_part(std::function<void(bool)> sent) {
  m_part_sent = std::move(sent);
  if (!on_thread(&Conn_ServerSession::start_part)) m_part_sent = nullptr;
}

void Conn_ServerSession::break_off(const char* reason) {
  m_thread->post([self = self(), reason] {
    if (self->m_state == State::SENDING_PART) self->end(reason);
  });
}

void Conn_ServerSession::start_part() {
  if (m_state != State::RUNNING) return;
  set_state(State::SENDING_PART);
  send_frame(true);
}

void Conn_ServerSession::send_last() {
  if (m_state != State::RUNNING) return;
  if (!m_answer.is_whole()) return refuse("the answer is too large");
  set_state(State::SENDING_LAST);
  send_frame(false);
}

void Conn_ServerSession::leave_unanswered() {
  if (m_state == State::RUNNING) answered();
}

// What the network takes at once needs no other round through the reactor.
void Conn_ServerSession::send_frame(bool more) {
  if (!m_stream) return sent();
  const std::string_view frame = m_answer.finish(more);
  size_t count;
  if (!m_stream->send_some(frame, count)) return end(nullptr);
  if (count == frame.size()) return sent();
  m_stream->send(frame.substr(count), [self = self()](const asio::error_code& error, size_t) {
    if (!self->m_stream) return;
    error ? self->end(nullptr) : self->sent();
  });
}

void Conn_ServerSession::sent() {
  if (m_state == State::SENDING_LAST) return answered();
  // Not from within send_part, so that a stream does not recurse and others get their turn. Also
  // when the thread is about to end: who sends the part waits for it.
  asio::post(m_thread->io(), [self = self()] { self->report_part(); });
}

void Conn_ServerSession::report_part() {
  set_state(State::RUNNING);
  begin_answer();
  const auto report = std::exchange(m_part_sent, nullptr);
  if (report) report(m_stream != nullptr);
}

void Conn_ServerSession::answered() {
  m_kept.reset();
  if (m_is_refused) {
    m_stream->end_sending();
    set_state(State::DRAINING);
    m_received.clear();
    return receive();
  }
  set_state(State::READING);
  m_name = {};
  m_answer.shrink(kUsualAnswer);
  m_received.shrink(kUsualAnswer);
  if (!m_stream) return leave();
  if (m_is_closing) return end(nullptr);
  go_on();
}

// --- ending --------------------------------------------------------------------------------------

void Conn_ServerSession::close_when_answered() {
  m_is_closing = true;
  if (m_state == State::READING || m_state == State::DRAINING) end(nullptr);
}

// Says why in a form without a name, and reads on for a while, since a connection that is closed
// with bytes unread loses what was sent.
void Conn_ServerSession::refuse_connection(std::string_view reason) {
  logger.warning("connection of %s refused: %s\n", m_peer, reason);
  m_answer.begin({});
  m_answer.WriteString(CONN_FLD_ERROR, reason);
  m_is_refused = true;
  set_state(State::SENDING_LAST);
  send_frame(false);
}

void Conn_ServerSession::check_time() {
  const unsigned passed = m_thread->now() - m_since;
  const Conn_ServerSettings& settings = m_thread->shared().settings;
  const auto is_beyond = [&](std::chrono::milliseconds time) {
    return passed > m_thread->ticks(time);
  };
  if (!m_stream) return;
  if (m_state == State::RUNNING) {
    if (m_stream->is_other_end_closed()) m_is_gone = true;
  } else if (m_state == State::DRAINING) {
    if (is_beyond(kDrainTime)) end(nullptr);
  } else if (m_state == State::SENDING_PART || m_state == State::SENDING_LAST) {
    if (is_beyond(settings.progress)) end("it does not take its answer");
  } else if (m_state == State::READING && m_frame_has_begun) {
    if (is_beyond(settings.progress)) end("it does not finish its request");
  } else if (m_state == State::READING) {
    if (is_beyond(kBufferTime)) m_answer.shrink(kUsualRequest);
    if (is_beyond(settings.idle)) end("it sent nothing for too long");
  }
}

void Conn_ServerSession::end(const char* reason) {
  if (!m_stream) return;
  if (reason) logger.warning("connection of %s closed: %s\n", m_peer, reason);
  m_is_gone = true;
  m_stream->close();
  m_stream.reset();
  // The handler hears of the end when it has answered.
  if (m_state == State::SENDING_PART) return sent();
  if (m_state != State::RUNNING) leave();
}

void Conn_ServerSession::leave() {
  if (m_is_admitted) {
    m_thread->shared().admitted.fetch_sub(1);
    m_thread->shared().handler.closed(*this);
  }
  m_thread->remove(m_id);
}
