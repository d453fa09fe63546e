// The bytes of a connection at the serving end.
#pragma once

#include <poll.h>

#include <asio.hpp>
#include <string>
#include <string_view>
#include <utility>

// What connections are made of is known here only. Used on the thread that runs its io_context;
// nothing waits. An operation under way when the stream is closed is called back with an error.
class Conn_ServerStream {
 public:
  // Bound to its thread's executor by type: one of any type costs each operation more.
  using Socket = asio::basic_stream_socket<asio::ip::tcp, asio::io_context::executor_type>;

  explicit Conn_ServerStream(Socket socket) : m_socket(std::move(socket)) {
    asio::error_code ignored;
    m_socket.non_blocking(true, ignored);
    m_socket.set_option(asio::ip::tcp::no_delay(true), ignored);
  }

  template <class Done>  // (error, size)
  void receive(char* bytes, size_t size, Done done) {
    m_socket.async_read_some(asio::buffer(bytes, size), std::move(done));
  }
  // As much as the network takes at once. False when the connection is broken.
  bool send_some(std::string_view bytes, size_t& sent) {
    asio::error_code error;
    sent = m_socket.write_some(asio::buffer(bytes.data(), bytes.size()), error);
    return !error || error == asio::error::would_block || error == asio::error::try_again;
  }
  template <class Done>  // (error, size)
  void send(std::string_view bytes, Done done) {
    asio::async_write(m_socket, asio::buffer(bytes.data(), bytes.size()), std::move(done));
  }
  // Whether the client sends nothing more, also behind what is not read yet.
  bool is_other_end_closed() {
    pollfd socket{m_socket.native_handle(), POLLRDHUP, 0};
    return ::poll(&socket, 1, 0) > 0;
  }
  // Says that nothing more will be sent.
  void end_sending() {
    asio::error_code ignored;
    m_socket.shutdown(asio::socket_base::shutdown_send, ignored);
  }
  void close() {
    asio::error_code ignored;
    m_socket.close(ignored);
  }

 private:
  Socket m_socket;
};
