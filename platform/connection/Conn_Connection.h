// A client's connection through its breaks and transactions.
#pragma once

#include <chrono>
#include <string>

#include <connection/Conn_ClientStream.h>
#include <connection/Conn_Form.h>
#include <connection/Conn_FrameSplitter.h>
#include <connection/Conn_Silence.h>
#include <connection/Conn_SyncConnector.h>

// What Conn_SyncConnector keeps and Conn_Helper works with. Of its operations that answer false,
// each leaves the reason in `last_error`. One thread.
struct Conn_SyncConnector::Inside {
  using clock_type = std::chrono::steady_clock;
  using milliseconds = std::chrono::milliseconds;

  // The connection is there, looked at when it was not used for a while and opened when it may
  // be.
  bool prepare();
  bool send(std::string_view service);
  // The next frame, waiting for each piece of it as long as the time-out says.
  bool receive(std::string_view& frame);
  // Between the two, a frame must be there whole within that time.
  void limit_answer(milliseconds time) { answer_by = clock_type::now() + time; }
  void unlimit_answer() { answer_by = clock_type::time_point::max(); }
  // Ends the connection because of what happened to it. Answers false.
  bool break_off(const std::string& reason);
  // Ends a connection that was found broken before anything was sent.
  void drop_when_stale();
  void drop();
  // The service knows nothing of the lock any more.
  void lose_lock();
  bool is_stale(clock_type::time_point now) const { return now - last_used > time_outs.idle; }
  void mark_used() { last_used = clock_type::now(); }

  std::string host;  // empty when nothing can be connected to, for the reason
  RWCString unusable = "no service was named to connect to";
  int port = 0;
  bool keep_alive = false;
  RWCString address;
  Conn_Silence* silence = &Conn_Silence::Of("");  // of the address
  TimeOuts time_outs;

  Conn_ClientStream stream;
  Conn_FrameSplitter received{size_t{64} << 10, CONN_MAX_FRAME};
  Conn_FormWriter writer;
  RWCString last_error;
  clock_type::time_point last_used{};
  clock_type::time_point last_looked_at{};
  clock_type::time_point asked_at{};
  clock_type::time_point answer_by = clock_type::time_point::max();
  bool is_introduced = false;
  bool is_token_sent = false;
  bool is_locked = false;
  bool lock_is_lost = false;            // with its connection, and nobody has been told
  bool lock_is_of_transaction = false;  // was taken within one

  int transactions = 0;                // begun and not ended
  bool transaction_has_begun = false;  // a request of it was sent on the connection
  bool transaction_is_broken = false;  // and that connection is gone
  bool break_is_logged = false;
  bool is_patient = false;  // about answers, as long as the connection lasts

 private:
  bool open();
  milliseconds time_to_wait() const;
  bool refused_meanwhile(std::string& reason);
};
