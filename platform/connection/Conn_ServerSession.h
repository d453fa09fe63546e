// A connection at the serving end.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include <connection/Conn_FrameSplitter.h>
#include <connection/Conn_Server.h>
#include <connection/Conn_ServerStream.h>
#include <connection/Conn_ServerThread.h>

// Reads a request, has it answered, and only then reads the next. Everything but the answer's
// writer belongs to the waiting thread; the operations of Conn_Session hand over to it.
class Conn_ServerSession final : public Conn_Session {
 public:
  Conn_ServerSession(uint64_t id, std::string peer, Conn_ServerStream::Socket socket,
                     std::shared_ptr<Conn_ServerThread> thread);

  uint64_t id() const override { return m_id; }
  const std::string& peer() const override { return m_peer; }
  int thread() const override { return m_thread->number(); }
  bool is_gone() const override { return m_is_gone; }
  Conn_FormWriter& answer() override { return m_answer; }
  void drop_answer() override;
  using Conn_Session::finish;
  void finish(std::shared_ptr<void> kept) override;
  void send_part(std::function<void(bool)> sent) override;
  void skip() override;
  void refuse(std::string_view reason) override;
  void close() override;
  void break_off(const char* reason) override;

  // The rest is called on the waiting thread.
  void start();                             // is one of the server's sessions
  void turn_away(std::string_view reason);  // is one too many
  bool is_admitted() const { return m_is_admitted; }
  void check_time();
  // Ends the connection at once; with a reason, this is a line in the log.
  void end(const char* reason);

 private:
  enum class State {
    READING,       // waits for a request
    RUNNING,       // a request is with the handler
    SENDING_PART,  // of its answer; the handler waits for the end of it
    SENDING_LAST,  // of its answer
    DRAINING,      // refused: reads until the other side has closed, or it took too long
  };
  using Done = void (Conn_ServerSession::*)();

  std::shared_ptr<Conn_ServerSession> self() {
    return std::static_pointer_cast<Conn_ServerSession>(shared_from_this());
  }
  void begin_answer() { m_answer.begin(m_name, m_thread->shared().settings.response_prefix); }
  // Calls the operation on the waiting thread, now when this is it. False when that has ended.
  bool on_thread(Done operation);
  void set_state(State state);
  void go_on();
  void receive();
  void received(const asio::error_code& error, size_t size);
  void take(std::string_view frame);
  const char* objection(std::string_view service, int version, bool is_introduced_now) const;
  void answer_ping();
  void start_part();
  void send_frame(bool more);
  void sent();
  void report_part();
  void send_last();
  void leave_unanswered();
  void close_when_answered();
  void answered();
  void refuse_connection(std::string_view reason);
  void leave();

  const uint64_t m_id;
  const std::string m_peer;
  const std::shared_ptr<Conn_ServerThread> m_thread;
  std::unique_ptr<Conn_ServerStream> m_stream;  // null once the connection is gone
  Conn_FrameSplitter m_received;
  Conn_FormWriter m_answer;
  std::string_view m_name;  // of the request, in what was received
  std::function<void(bool)> m_part_sent;
  std::shared_ptr<void> m_kept;  // until the answer is sent
  std::atomic<bool> m_is_gone{false};
  State m_state = State::READING;
  unsigned m_since = 0;  // the tick at which the state began, or the frame that is read
  bool m_frame_has_begun = false;
  bool m_is_introduced = false;
  bool m_is_admitted = false;
  bool m_is_in_loop = false;
  bool m_is_closing = false;  // once the request is answered
  bool m_is_refused = false;  // once the refusal is sent, it drains
};
