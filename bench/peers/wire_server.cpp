#include <arpa/inet.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <common/need.h>
#include <peers/wire_peer.h>

namespace bench {

wire_server::wire_server(const std::function<void(const told&)>& serve) {
  int ends[2];
  need(::pipe(ends) == 0, "a pipe");
  m_process = ::fork();
  need(m_process >= 0, "a process");
  if (m_process == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    try {
      serve([&](int port) { need(::write(ends[1], &port, sizeof port) > 0, "telling a port"); });
    } catch (...) {
    }
    ::_exit(1);
  }
  ::close(ends[1]);
  const ssize_t size = ::read(ends[0], &m_port, sizeof m_port);
  ::close(ends[0]);
  need(size == sizeof m_port, "a server that listens");
}

wire_server::~wire_server() {
  ::kill(m_process, SIGTERM);
  ::waitpid(m_process, nullptr, 0);
}

int free_port() {
  const int made = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in own{};
  own.sin_family = AF_INET;
  own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof own;
  ::bind(made, reinterpret_cast<sockaddr*>(&own), size);
  getsockname(made, reinterpret_cast<sockaddr*>(&own), &size);
  ::close(made);
  return ntohs(own.sin_port);
}

}  // namespace bench
