// The bytes of a client's connection.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

// A TCP connection that waits in the system's own calls, so that a request costs one of them to
// send and one to receive. What connections are made of is known here only. One thread. Failures
// come with the system's reason; the connection is of no use then, and the owner closes it.
//
// It belongs to the process that opened it: in a child of that it is not open, and the child's
// copy of the socket is closed as soon as the process forks.
class Conn_ClientStream {
 public:
  Conn_ClientStream() = default;
  Conn_ClientStream(const Conn_ClientStream&) = delete;
  Conn_ClientStream& operator=(const Conn_ClientStream&) = delete;
  ~Conn_ClientStream() { close(); }

  // A name's addresses are tried in turn, all within the time-out, looking them up included. That
  // of sending and receiving is `time_out`.
  bool open(const std::string& host, int port, std::chrono::milliseconds connect_time_out,
            std::chrono::milliseconds time_out, bool keep_alive, std::string& reason);
  void close();
  bool is_open() const;
  // False when the other side has closed, or the connection broke. Does not wait.
  bool is_live() const;

  // Sends all of it. `sent` counts what the system took.
  bool send(std::string_view bytes, size_t& sent, std::string& reason);
  // What is there, waiting for the first byte of it: 0 when nothing more comes.
  size_t receive(char* bytes, size_t size, std::string& reason);
  // What is there already.
  size_t receive_at_once(char* bytes, size_t size);
  // How long receive waits. Kept until it is set anew.
  void set_receive_time_out(std::chrono::milliseconds time_out);
  // Whether the last failure was that the time was over.
  bool was_late() const { return m_was_late; }

  // Any thread: what waits fails at once, and so does everything afterwards.
  void interrupt();

 private:
  friend class OpenSockets;
  int m_socket = -1;          // other threads look at it with the lock of all open sockets
  unsigned m_generation = 0;  // of the process
  std::chrono::milliseconds m_receive_time_out{0};
  bool m_was_late = false;
  std::atomic<bool> m_is_interrupted{false};
};
