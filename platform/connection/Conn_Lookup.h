// From a host's name to its addresses.
#pragma once

#include <sys/socket.h>

#include <chrono>
#include <string>
#include <vector>

// Of one end of a connection.
struct Conn_Address {
  sockaddr_storage storage{};
  socklen_t size = 0;

  const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
  int family() const { return storage.ss_family; }
  std::string text() const;  // without the port
};

// All addresses of the host, in the order in which the system prefers them; none with the reason
// when there are none. False when the system does not know by the deadline. It cannot be told to
// give up: a thread of its own waits for it, and whoever asks for the same meanwhile waits for that
// one, too.
bool Conn_Lookup(const std::string& host, int port, std::chrono::steady_clock::time_point deadline,
                 std::vector<Conn_Address>& addresses, std::string& reason);
