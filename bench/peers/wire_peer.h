// Someone who answers reads over the network.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace bench {

using wire_data = std::vector<std::pair<std::string, std::string>>;  // paths and their values

// A connection, used by one thread. Throws std::runtime_error when there is no answer.
class wire_client {
 public:
  virtual ~wire_client() = default;
  virtual size_t get(const std::string& path) = 0;  // the length of the value
};

// A service in a process of its own, which ends with this object.
class wire_server {
 public:
  // `serve` listens, tells its port, and stays.
  using told = std::function<void(int port)>;
  explicit wire_server(const std::function<void(const told&)>& serve);
  wire_server(const wire_server&) = delete;
  wire_server& operator=(const wire_server&) = delete;
  ~wire_server();
  int port() const { return m_port; }

 private:
  pid_t m_process;
  int m_port = 0;
};

// One that was free a moment ago, for servers that are told theirs.
int free_port();

struct wire_peer {
  const char* name;
  std::function<std::unique_ptr<wire_client>()> connect;
  std::shared_ptr<void> server;
};

// 160 bytes there and 48 back, with nothing in them.
wire_peer bare_tcp();
// A frame of numbered fields of fixed length, and a lookup in a hash table.
wire_peer bare_fields(const wire_data& data);
// The same with a prepared read of SQLite, from a file in the folder, in the place of the lookup.
wire_peer bare_fields_and_sqlite(const wire_data& data, const std::string& folder);
// Null when no redis-server is installed.
std::unique_ptr<wire_peer> redis_get(const wire_data& data, const std::string& folder);
// Null when no PostgreSQL server is installed.
std::unique_ptr<wire_peer> postgresql_select(const wire_data& data);
// Null when etcd, or gRPC when this was built, is not installed. There are threads from then on:
// start what is forked first.
std::unique_ptr<wire_peer> etcd_range(const wire_data& data, const std::string& folder);

}  // namespace bench
