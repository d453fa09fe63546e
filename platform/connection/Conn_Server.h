// The serving end of connections.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <string_view>

#include <connection/Conn_Form.h>

struct Conn_ServerSettings {
  std::string address = "127.0.0.1";
  int port = 0;  // 0: any that is free
  std::string service_name;
  std::string response_prefix;          // of the names of answers, as the clients expect it
  int threads = 2;                      // that wait for requests
  size_t max_frame = size_t{64} << 20;  // bytes of one request
  int max_sessions = 2000;
  // A connection that would get this descriptor or a higher one is refused and closed at once.
  int first_kept_descriptor = std::numeric_limits<int>::max();
  std::chrono::milliseconds idle{std::chrono::minutes(60)};      // between requests
  std::chrono::milliseconds progress{std::chrono::seconds(30)};  // of a frame begun, either way
};

// One client's connection, seen by whoever answers its requests. A request is answered by one
// form, of as many frames as it needs, or by none; only then the next one is read. Every
// operation may be called by any thread, by one at a time for one request. Whoever answers may
// hold the session longer than the connection lives: what is sent then is dropped.
class HALVORIA_API Conn_Session : public std::enable_shared_from_this<Conn_Session> {
 public:
  virtual ~Conn_Session() = default;
  virtual uint64_t id() const = 0;              // counts up from 1
  virtual const std::string& peer() const = 0;  // "127.0.0.1:51234"
  virtual int thread() const = 0;               // the waiting thread, from 0, that has it for good
  // Whether the client closed the connection, or its end of it, while its request runs: seen after
  // a second or so. Nobody waits for an answer then.
  virtual bool is_gone() const = 0;
  // The next frame of the answer. Begun anew after every send.
  virtual Conn_FormWriter& answer() = 0;
  // Begins the frame anew, and gives the memory back that it took.
  virtual void drop_answer() = 0;
  // Sends the frame as the last of the answer, and goes on to the next request. What is kept goes
  // when the network has taken the frame, or the connection is gone.
  void finish() { finish(nullptr); }
  virtual void finish(std::shared_ptr<void> kept) = 0;
  // Sends the frame and calls back, on the session's waiting thread and never from within this
  // call, when the network took it: more follows. The argument is false when the connection is
  // gone; then nothing more is sent, but the request is still to be ended by one of the others.
  // Until it is called back, the answer is the network's.
  virtual void send_part(std::function<void(bool)> sent) = 0;
  // Goes on to the next request without an answer.
  virtual void skip() = 0;
  // Answers with an error form, also behind parts that were sent, and goes on to the next
  // request.
  virtual void refuse(std::string_view reason) = 0;
  // Closes the connection, once what is under way has been answered.
  virtual void close() = 0;
  // Closes it at once when the network does not take a part of an answer; else nothing. The reason
  // is for the log.
  virtual void break_off(const char* reason) = 0;

  // What the handler keeps with the connection.
  std::shared_ptr<void> attachment;
};

// What a service does with requests. Called on the waiting threads; a request that takes long
// is handed to another thread. `fields` are behind the connection's own ones and hold until
// the request is answered.
class HALVORIA_API Conn_Handler {
 public:
  virtual ~Conn_Handler() = default;
  virtual void opened(Conn_Session&) {}
  virtual void request(Conn_Session& session, std::string_view name, std::string_view fields) = 0;
  // The connection is gone, for whatever reason. Called once, when no request is unanswered.
  virtual void closed(Conn_Session&) {}
};

// Listens, and reads requests from any number of connections with few threads. Frames that are
// too long, not well formed, or meant for another service are refused with a line in the log
// and end their connection alone. Answers pings itself. Started once; started, stopped and
// destroyed by one thread, which is none of those that wait.
class HALVORIA_API Conn_Server {
 public:
  // The handler must outlive this object.
  Conn_Server(const Conn_ServerSettings& settings, Conn_Handler& handler);
  Conn_Server(const Conn_Server&) = delete;
  Conn_Server& operator=(const Conn_Server&) = delete;
  ~Conn_Server();  // stops

  // False with the reason when the address cannot be listened on, or the system gives too little.
  bool start(std::string& reason);
  int port() const;
  int sessions() const;
  // Accepts no more, lets running requests finish for at most so long, closes every connection.
  // No handler is called any more then, not even for a request that still runs in a thread of
  // the service when the grace is over: its connection is never said to be closed.
  void stop(std::chrono::milliseconds grace);
  // Has each waiting thread make the call once, between requests. Waits for none.
  void post_to_each(const std::function<void()>& call);

 private:
  struct Inside;
  std::unique_ptr<Inside> m_inside;
};
