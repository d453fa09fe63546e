#include <connection/Conn_ClientStream.h>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <system_error>
#include <utility>
#include <vector>

#include <connection/Conn_Lookup.h>
#include <thread/ForkHandler.h>

namespace {

constexpr char kInterrupted[] = "it was interrupted";

using clock_type = std::chrono::steady_clock;
using std::chrono::milliseconds;

std::string text_of(int error) { return std::system_category().message(error); }

std::string no_answer(milliseconds time_out) {
  return "no answer within " + std::to_string(time_out.count()) + " ms";
}

}  // namespace

// What all connections of the process have open. A child that kept them would hide from the other
// side that its parent closed one.
class OpenSockets {
 public:
  static OpenSockets& instance() {
    static OpenSockets& all = *new OpenSockets;
    return all;
  }
  void add(Conn_ClientStream& stream, int socket) {
    const MutexGuard guard(m_mutex);
    m_sockets.insert(socket);
    stream.m_socket = socket;
    stream.m_generation = ForkHandler::Generation();
  }
  void close(Conn_ClientStream& stream) {
    const MutexGuard guard(m_mutex);
    if (stream.is_open()) {
      m_sockets.erase(stream.m_socket);
      ::close(stream.m_socket);
    }
    stream.m_socket = -1;
  }
  void shut_down(const Conn_ClientStream& stream) {
    const MutexGuard guard(m_mutex);
    if (stream.is_open()) ::shutdown(stream.m_socket, SHUT_RDWR);
  }

 private:
  static void told(void* object, ForkHandler::Phase phase) THREADAPI_UNCHECKED {
    auto& self = *static_cast<OpenSockets*>(object);
    if (phase == ForkHandler::BEFORE) return self.m_mutex.lock();
    if (phase == ForkHandler::IN_CHILD) {
      for (const int socket : self.m_sockets) ::close(socket);
      self.m_sockets.clear();
    }
    self.m_mutex.unlock();
  }

  Mutex m_mutex;
  std::set<int> m_sockets THREADAPI_GUARDED_BY(m_mutex);
  ForkHandler m_handler{ForkHandler::CONNECTIONS, told, this};
};

namespace {

// Made when the library is loaded: a child would wait for ever for a thread that was just making
// it.
[[maybe_unused]] const OpenSockets& made_early = OpenSockets::instance();

// Closes what was not handed on.
class Socket {
 public:
  explicit Socket(int socket) : m_socket(socket) {}
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  ~Socket() {
    if (m_socket >= 0) ::close(m_socket);
  }
  int get() const { return m_socket; }
  int release() { return std::exchange(m_socket, -1); }

 private:
  int m_socket;
};

// Of a connection to a free port of this host, the system may make one that ends where it begins.
bool is_own_echo(int socket) {
  sockaddr_storage own{}, other{};
  socklen_t own_size = sizeof own, other_size = sizeof other;
  return getsockname(socket, reinterpret_cast<sockaddr*>(&own), &own_size) == 0 &&
         getpeername(socket, reinterpret_cast<sockaddr*>(&other), &other_size) == 0 &&
         own_size == other_size && std::memcmp(&own, &other, own_size) == 0;
}

// Whether there is something to be had of it in time; 0 or the system's error.
int wait_for(int socket, short events, clock_type::time_point deadline,
             const std::atomic<bool>& is_interrupted) {
  constexpr milliseconds::rep kLooksUpEvery = 100;
  while (!is_interrupted) {
    const auto rest = std::chrono::ceil<milliseconds>(deadline - clock_type::now());
    pollfd asked{socket, events, 0};
    const int found = ::poll(
        &asked, 1, static_cast<int>(std::clamp<milliseconds::rep>(rest.count(), 0, kLooksUpEvery)));
    if (found > 0) return 0;
    if (found == 0 && rest <= milliseconds(kLooksUpEvery)) return ETIMEDOUT;
    if (found < 0 && errno != EINTR) return errno;
  }
  return ECANCELED;
}

timeval in_seconds(milliseconds time) {
  timeval value{};
  // Zero would mean without end.
  const auto some = std::max<milliseconds::rep>(time.count(), 1);
  value.tv_sec = static_cast<time_t>(some / 1000);
  value.tv_usec = static_cast<suseconds_t>(some % 1000 * 1000);
  return value;
}

template <class T>
int set_option(int socket, int level, int option, const T& value) {
  return setsockopt(socket, level, option, &value, sizeof value) == 0 ? 0 : errno;
}

int set_time_out(int socket, int option, milliseconds time_out) {
  return set_option(socket, SOL_SOCKET, option, in_seconds(time_out));
}

// Programs that are started do not get it: they would keep the connection, and what is locked
// over it. 0 or the system's error.
int connect(const Conn_Address& address, clock_type::time_point deadline,
            const std::atomic<bool>& is_interrupted, int& connected) {
  Socket socket(
      ::socket(address.family(), SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_TCP));
  if (socket.get() < 0) return errno;
  int error = ::connect(socket.get(), address.get(), address.size) == 0 ? 0 : errno;
  if (error == EINPROGRESS || error == EINTR) {
    error = wait_for(socket.get(), POLLOUT, deadline, is_interrupted);
    socklen_t size = sizeof error;
    if (!error) getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &error, &size);
  }
  if (error) return error;
  if (is_own_echo(socket.get())) return ECONNREFUSED;
  connected = socket.release();
  return 0;
}

int set_up(int socket, milliseconds time_out, bool keep_alive) {
  const int options = fcntl(socket, F_GETFL);
  if (options < 0 || fcntl(socket, F_SETFL, options & ~O_NONBLOCK) != 0) return errno;
  int error = set_option(socket, IPPROTO_TCP, TCP_NODELAY, int{1});
  if (!error) error = set_option(socket, SOL_SOCKET, SO_KEEPALIVE, int{keep_alive});
  if (!error) error = set_time_out(socket, SO_SNDTIMEO, time_out);
  if (!error) error = set_time_out(socket, SO_RCVTIMEO, time_out);
  return error;
}

}  // namespace

bool Conn_ClientStream::open(const std::string& host, int port, milliseconds connect_time_out,
                             milliseconds time_out, bool keep_alive, std::string& reason) {
  close();
  m_was_late = false;
  if (m_is_interrupted) {
    reason = kInterrupted;
    return false;
  }
  const auto deadline = clock_type::now() + connect_time_out;
  std::vector<Conn_Address> addresses;
  m_was_late = !Conn_Lookup(host, port, deadline, addresses, reason);
  if (m_was_late)
    reason = "the address of " + host + " was not found: " + no_answer(connect_time_out);
  auto left = static_cast<int>(addresses.size());
  for (const Conn_Address& address : addresses) {
    const auto now = clock_type::now();
    int made = -1;
    int error =
        connect(address, now + (std::max(deadline, now) - now) / left--, m_is_interrupted, made);
    Socket socket(made);
    if (!error) error = set_up(made, time_out, keep_alive);
    if (!error) {
      OpenSockets::instance().add(*this, socket.release());
      m_receive_time_out = time_out;
      return true;
    }
    m_was_late = error == ETIMEDOUT;
    if (m_is_interrupted) {
      reason = kInterrupted;
      return false;
    }
    if (addresses.size() > 1) reason += (reason.empty() ? "" : "; ") + address.text() + ": ";
    reason += m_was_late ? no_answer(connect_time_out) : text_of(error);
  }
  return false;
}

void Conn_ClientStream::close() {
  if (m_socket >= 0) OpenSockets::instance().close(*this);
}

void Conn_ClientStream::interrupt() {
  m_is_interrupted = true;
  OpenSockets::instance().shut_down(*this);
}

bool Conn_ClientStream::is_open() const {
  return m_socket >= 0 && m_generation == ForkHandler::Generation();
}

bool Conn_ClientStream::is_live() const {
  char byte;
  const ssize_t count = ::recv(m_socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  return count > 0 || (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR));
}

bool Conn_ClientStream::send(std::string_view bytes, size_t& sent, std::string& reason) {
  sent = 0;
  m_was_late = false;
  while (sent < bytes.size()) {
    const ssize_t count = ::send(m_socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count > 0) {
      sent += static_cast<size_t>(count);
    } else if (errno != EINTR) {
      m_was_late = errno == EAGAIN || errno == EWOULDBLOCK;
      reason = m_was_late ? "the request was not taken in time" : text_of(errno);
      return false;
    }
  }
  return true;
}

size_t Conn_ClientStream::receive(char* bytes, size_t size, std::string& reason) {
  m_was_late = false;
  ssize_t count;
  do {
    count = ::recv(m_socket, bytes, size, 0);
  } while (count < 0 && errno == EINTR);
  if (count > 0) return static_cast<size_t>(count);
  if (m_is_interrupted) {
    reason = kInterrupted;
  } else if (count == 0) {
    reason = "the connection was closed by the other side";
  } else {
    m_was_late = errno == EAGAIN || errno == EWOULDBLOCK;
    reason = m_was_late ? no_answer(m_receive_time_out) : text_of(errno);
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
