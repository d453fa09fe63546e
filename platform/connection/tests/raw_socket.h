// Sockets that do what clients and services should not.
#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include <connection/Conn_Form.h>
#include <gtest/gtest.h>

// The fields of a request as a first one, made by the test so that it can be spoilt.
inline std::string raw_request(std::string_view name, std::string_view text = "x",
                               std::string_view service = "ECHO_SERVICE", int version = 1) {
  Conn_FormWriter form;
  form.begin(name);
  form.introduce(service, version);
  form.WriteString(5020004, text);
  return std::string(form.finish());
}
inline std::string raw_length(uint32_t length) {
  const char bytes[] = {static_cast<char>(length >> 24), static_cast<char>(length >> 16),
                        static_cast<char>(length >> 8), static_cast<char>(length)};
  return std::string(bytes, sizeof bytes);
}

class RawSocket {
 public:
  explicit RawSocket(int socket) : m_socket(socket) {
    const timeval enough{20, 0};
    setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &enough, sizeof enough);
  }
  RawSocket(const RawSocket&) = delete;
  ~RawSocket() { close(); }

  static int connect_to(int port) {
    const int made = ::socket(AF_INET, SOCK_STREAM, 0);
    const sockaddr_in to = loopback(port);
    EXPECT_EQ(::connect(made, reinterpret_cast<const sockaddr*>(&to), sizeof to), 0);
    return made;
  }
  static sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
  }

  void send(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t count = ::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (count <= 0) return;
      bytes.remove_prefix(static_cast<size_t>(count));
    }
  }
  // So many bytes, or fewer when the other side closes before.
  std::string receive(size_t size) {
    std::string bytes(size, '\0');
    const ssize_t count = size ? ::recv(m_socket, bytes.data(), size, MSG_WAITALL) : 0;
    bytes.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
    return bytes;
  }
  std::string receive_frame() {
    const std::string head = receive(CONN_LENGTH_SIZE);
    size_t length = 0;
    for (const char c : head) length = length << 8 | static_cast<unsigned char>(c);
    return receive(length);
  }
  // The reason when the next frame is a refusal.
  std::string receive_refusal() {
    const std::string frame = receive_frame();
    Conn_FormReader fields(frame);
    std::string_view name, reason;
    int more;
    EXPECT_TRUE(fields.ReadString(CONN_FLD_NAME, name) && fields.ReadInt(CONN_FLD_MORE, more));
    fields.ReadString(CONN_FLD_ERROR, reason);
    return std::string(reason);
  }
  bool is_closed() { return receive(1).empty(); }
  void end_sending() { ::shutdown(m_socket, SHUT_WR); }
  void close() {
    if (m_socket >= 0) ::close(m_socket);
    m_socket = -1;
  }

 private:
  int m_socket;
};

// Listens, and accepts by hand.
class RawService {
 public:
  RawService() : m_socket(::socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in own = RawSocket::loopback(0);
    socklen_t size = sizeof own;
    EXPECT_EQ(::bind(m_socket, reinterpret_cast<sockaddr*>(&own), size), 0);
    EXPECT_EQ(::listen(m_socket, 16), 0);
    getsockname(m_socket, reinterpret_cast<sockaddr*>(&own), &size);
    m_port = ntohs(own.sin_port);
  }
  RawService(const RawService&) = delete;
  ~RawService() { ::close(m_socket); }
  int port() const { return m_port; }
  int handle() const { return m_socket; }
  int accept() { return ::accept(m_socket, nullptr, nullptr); }

 private:
  int m_socket;
  int m_port;
};
