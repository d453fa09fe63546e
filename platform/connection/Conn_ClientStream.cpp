#include <connection/Conn_ClientStream.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <asio.hpp>
#include <cerrno>
#include <system_error>

namespace {

using asio::ip::tcp;
using clock_type = std::chrono::steady_clock;
using std::chrono::milliseconds;

std::string text_of(int error) { return std::system_category().message(error); }

std::string no_answer(milliseconds time_out) {
  return "no answer within " + std::to_string(time_out.count()) + " ms";
}

std::string text_of(const asio::error_code& error) {
  if (error.category() == asio::error::get_netdb_category()) return "host unknown";
  return error.message();
}

// Of a connection to a free port of this host, the system may make one that ends where it begins.
bool is_own_echo(const tcp::socket& socket) {
  asio::error_code ignored;
  return socket.local_endpoint(ignored) == socket.remote_endpoint(ignored);
}

asio::error_code connect_one(asio::io_context& io, tcp::socket& socket,
                             const tcp::endpoint& address, milliseconds time_out) {
  asio::error_code result;
  socket.open(address.protocol(), result);
  if (result) return result;
  // A program that is started would keep the connection, and what is locked over it.
  fcntl(socket.native_handle(), F_SETFD, FD_CLOEXEC);
  result = asio::error::timed_out;
  bool is_decided = false;
  socket.async_connect(address, [&](const asio::error_code& error) {
    result = error;
    is_decided = true;
  });
  io.restart();
  io.run_for(time_out);
  if (!is_decided) {
    asio::error_code ignored;
    socket.close(ignored);
    io.restart();
    io.run();
    return asio::error::timed_out;
  }
  return !result && is_own_echo(socket) ? asio::error::connection_refused : result;
}

timeval in_seconds(milliseconds time) {
  timeval value{};
  // Zero would mean without end.
  const auto some = std::max<milliseconds::rep>(time.count(), 1);
  value.tv_sec = static_cast<time_t>(some / 1000);
  value.tv_usec = static_cast<suseconds_t>(some % 1000 * 1000);
  return value;
}

void set_time_out(int socket, int option, milliseconds time_out) {
  const timeval value = in_seconds(time_out);
  setsockopt(socket, SOL_SOCKET, option, &value, sizeof value);
}

}  // namespace

bool Conn_ClientStream::open(const std::string& host, int port, milliseconds connect_time_out,
                             milliseconds time_out, bool keep_alive, std::string& reason) {
  close();
  const auto deadline = clock_type::now() + connect_time_out;
  asio::io_context io(1);
  asio::error_code error;
  tcp::resolver resolver(io);
  const auto addresses =
      resolver.resolve(host, std::to_string(port), tcp::resolver::numeric_service, error);
  size_t left = addresses.size();
  if (!error && left == 0) error = asio::error::host_not_found;
  tcp::socket socket(io);
  for (const auto& address : addresses) {
    const auto rest = std::chrono::duration_cast<milliseconds>(deadline - clock_type::now());
    if (socket.is_open()) socket.close(error);
    error = connect_one(io, socket, address.endpoint(),
                        std::max(rest, milliseconds(1)) / static_cast<int>(left--));
    if (!error) break;
  }
  if (error) {
    reason = error == asio::error::timed_out ? no_answer(connect_time_out) : text_of(error);
    return false;
  }
  asio::error_code ignored;
  socket.set_option(tcp::no_delay(true), ignored);
  socket.set_option(asio::socket_base::keep_alive(keep_alive), ignored);
  socket.native_non_blocking(false, ignored);
  m_socket = socket.release(error);
  if (error) return reason = text_of(error), false;
  set_time_out(m_socket, SO_SNDTIMEO, time_out);
  m_receive_time_out = milliseconds(0);
  set_receive_time_out(time_out);
  return true;
}

void Conn_ClientStream::close() {
  if (m_socket >= 0) ::close(m_socket);
  m_socket = -1;
}

bool Conn_ClientStream::is_live() const {
  char byte;
  const ssize_t count = ::recv(m_socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  return count > 0 || (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR));
}

bool Conn_ClientStream::send(std::string_view bytes, size_t& sent, std::string& reason) {
  sent = 0;
  while (sent < bytes.size()) {
    const ssize_t count = ::send(m_socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count > 0) {
      sent += static_cast<size_t>(count);
    } else if (errno != EINTR) {
      const bool is_late = errno == EAGAIN || errno == EWOULDBLOCK;
      reason = is_late ? "the request was not taken in time" : text_of(errno);
      return false;
    }
  }
  return true;
}

size_t Conn_ClientStream::receive(char* bytes, size_t size, std::string& reason) {
  ssize_t count;
  do {
    count = ::recv(m_socket, bytes, size, 0);
  } while (count < 0 && errno == EINTR);
  if (count > 0) return static_cast<size_t>(count);
  if (count == 0) {
    reason = "the connection was closed by the other side";
  } else {
    const bool is_late = errno == EAGAIN || errno == EWOULDBLOCK;
    reason = is_late ? no_answer(m_receive_time_out) : text_of(errno);
  }
  return 0;
}

size_t Conn_ClientStream::receive_at_once(char* bytes, size_t size) {
  const ssize_t count = ::recv(m_socket, bytes, size, MSG_DONTWAIT);
  return count > 0 ? static_cast<size_t>(count) : 0;
}

void Conn_ClientStream::set_receive_time_out(milliseconds time_out) {
  if (time_out == m_receive_time_out) return;
  m_receive_time_out = time_out;
  set_time_out(m_socket, SO_RCVTIMEO, time_out);
}
