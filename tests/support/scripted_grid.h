// A datagrid that answers whatever a test says.
#pragma once

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

// Listens on a free port of 127.0.0.1 and serves one connection after the other. What a new
// connection asks for first is answered in order, everything else with the text that was set.
class ScriptedGrid {
 public:
  ScriptedGrid() {
    m_listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* raw = reinterpret_cast<sockaddr*>(&address);
    if (bind(m_listener, raw, size) == 0 && listen(m_listener, 8) == 0 &&
        getsockname(m_listener, raw, &size) == 0) {
      m_port = ntohs(address.sin_port);
    }
    m_thread = std::thread([this] { serve(); });
  }
  ScriptedGrid(const ScriptedGrid&) = delete;
  ScriptedGrid& operator=(const ScriptedGrid&) = delete;
  ~ScriptedGrid() {
    m_is_over = true;
    m_thread.join();
    close(m_listener);
  }

  int port() const { return m_port; }
  // A byte at a time when it is slow, and from the beginning again at its end; closed behind it
  // when that is asked for.
  void answer(std::string text, bool is_slow = false, bool closes = false) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_answer = std::move(text), m_is_slow = is_slow, m_closes = closes;
  }

 private:
  bool wait_for(int handle) {
    while (!m_is_over) {
      pollfd readable = {handle, POLLIN, 0};
      if (poll(&readable, 1, 20) > 0) return true;
    }
    return false;
  }
  void serve() {
    while (wait_for(m_listener)) {
      const int handle = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
      char asked[65536];
      while (wait_for(handle)) {
        const ssize_t count = recv(handle, asked, sizeof asked, 0);
        if (count <= 0 || !reply(handle, std::string_view(asked, static_cast<size_t>(count)))) {
          break;
        }
      }
      close(handle);
    }
  }
  bool reply(int handle, std::string_view asked) {
    if (asked.find("PING") != asked.npos) return send_all(handle, "+PONG\r\n");
    if (asked.find("INFO") != asked.npos) return send_all(handle, "$-1\r\n");
    std::string text;
    bool is_slow = false, closes = false;
    {
      const std::lock_guard<std::mutex> guard(m_mutex);
      text = m_answer, is_slow = m_is_slow, closes = m_closes;
    }
    while (is_slow && !m_is_over) {
      for (size_t i = 0; i < text.size() && !m_is_over; ++i) {
        if (!send_all(handle, text.substr(i, 1))) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    }
    return send_all(handle, text) && !closes;
  }
  static bool send_all(int handle, std::string_view text) {
    while (!text.empty()) {
      const ssize_t sent = send(handle, text.data(), text.size(), MSG_NOSIGNAL);
      if (sent <= 0) return false;
      text.remove_prefix(static_cast<size_t>(sent));
    }
    return true;
  }

  int m_listener = -1, m_port = 0;
  std::mutex m_mutex;
  std::string m_answer;
  bool m_is_slow = false, m_closes = false;
  std::atomic<bool> m_is_over{false};
  std::thread m_thread;
};
