// Reads by many clients at a time, of ours and of peers.
#pragma once

#include <sched.h>

#include <optional>
#include <string>
#include <vector>

#include <common/installation.h>
#include <common/suite.h>
#include <peers/wire_peer.h>

namespace bench {

constexpr char kBare[] = "bare TCP, 160 and 48 bytes";
constexpr char kFields[] = "numbered fields and a hash lookup, epoll";
constexpr char kFieldsAndSqlite[] = "numbered fields and a row of SQLite, epoll";
constexpr char kRedis[] = "redis GET";
constexpr char kPostgres[] = "PostgreSQL, prepared";
constexpr char kEtcd[] = "etcd range over gRPC";

// The first values of an installation with their paths.
wire_data values_of(const records& all, size_t most);

// What is compared: a figure of ours with one of a peer, and how it may stand.
struct wire_comparison {
  const char* peer;
  std::optional<double> target, stretch;
};
struct wire_subject {
  enum { PER_READ, P50, P99 };
  std::string name;
  const char* unit;
  size_t figure;
  std::vector<wire_comparison> peers;
};

// Peers that answer the same reads, the first of them ours. Those that are not there have no rows.
class wire_rows {
 public:
  // Throws when an answer is not that of the data.
  wire_rows(const wire_data& data, const scale& s, std::vector<wire_peer> peers);
  // Each client is a thread that sends a request when the one before is answered.
  void measure(report& result, int clients, const std::vector<wire_subject>& subjects);

 private:
  const wire_data& m_data;
  const scale& m_scale;
  const std::vector<wire_peer> m_peers;
};

// Waking a second processor costs more than a request does, and not always the same: as long as
// this lives, this process and those that it starts have one.
class on_one_processor {
 public:
  on_one_processor();
  on_one_processor(const on_one_processor&) = delete;
  on_one_processor& operator=(const on_one_processor&) = delete;
  ~on_one_processor() { sched_setaffinity(0, sizeof m_before, &m_before); }

 private:
  cpu_set_t m_before;
};

}  // namespace bench
