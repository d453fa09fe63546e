// Reads over the network: what the connection library adds to a lookup, beside the least that
// sockets cost and beside redis.
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include <absl/container/flat_hash_map.h>

#include <common/clock.h>
#include <common/installation.h>
#include <common/need.h>
#include <common/suite.h>
#include <connection/Conn_Helper.h>
#include <connection/Conn_Server.h>
#include <peers/wire_peer.h>

namespace bench {
namespace {

enum : uint32_t { USER = 5020002, APPLICATION, PATH, RESULT = 5020009 };

// --- ours: forms over Conn_Server and Conn_SyncConnector ---------------------------------------

struct lookup_handler final : Conn_Handler {
  explicit lookup_handler(const wire_data& data) : map(data.begin(), data.end()) {}
  void request(Conn_Session& session, std::string_view, std::string_view fields) override {
    Conn_FormReader reader(fields);
    std::string_view user, application, path;
    if (!reader.ReadString(USER, user) || !reader.ReadString(APPLICATION, application) ||
        !reader.ReadString(PATH, path)) {
      return session.refuse("no path");
    }
    const auto found = map.find(absl::string_view(path.data(), path.size()));
    session.answer().WriteString(RESULT, found == map.end() ? std::string_view() : found->second);
    session.finish();
  }
  const absl::flat_hash_map<std::string, std::string> map;
};

struct read_params final : ConnHelper_Params {
  using ConnHelper_Params::ConnHelper_Params;
  const RWCString& GetCommandName() const override { return name; }
  const char* GetResponsePrefix() const override { return "CFG_RES_"; }
  int GetServiceId() const override { return 5020000; }
  const RWCString name = "CFG_GET_VAL";
};

class form_client final : public wire_client, Conn_SyncConnector {
 public:
  explicit form_client(int port) {
    m_service_name = "CFG_SERVICE";
    InitConn("127.0.0.1", port, "", "bench", 1, 1);
  }
  size_t get(const std::string& path) override {
    read_params params(m_user, m_application);
    Conn_Helper request("bench", *this, params, true, true);
    request.Writer().WriteString(USER, params.GetTmrUserName());
    request.Writer().WriteString(APPLICATION, params.GetAppName());
    request.Writer().WriteString(PATH, path);
    RWCString value;
    need(request.GetResponseHeaders() == 0 && request.Read(RESULT, value), "an answer of ours");
    return value.length();
  }

 private:
  const RWCString m_user = "service.user", m_application = "image_viewer";
};

wire_peer forms(const wire_data& data) {
  const auto server = std::make_shared<wire_server>([&](const auto& told) {
    lookup_handler handler(data);
    Conn_ServerSettings settings;
    settings.service_name = "CFG_SERVICE";
    settings.response_prefix = "CFG_RES_";
    Conn_Server ours(settings, handler);
    std::string reason;
    need(ours.start(reason), reason);
    told(ours.port());
    for (;;) ::pause();
  });
  return {"connection library and a hash lookup",
          [port = server->port()] { return std::make_unique<form_client>(port); }, server};
}

// --- measuring ---------------------------------------------------------------------------------

struct driven {
  double per_read, p50, p99;  // us
};

driven drive(const wire_peer& peer, const wire_data& data, int clients, double seconds) {
  std::vector<std::vector<double>> times(static_cast<size_t>(clients));
  std::vector<std::thread> threads;
  std::atomic<int> ready{0};
  std::atomic<bool> has_begun{false}, has_ended{false}, has_failed{false};
  for (std::vector<double>& own : times) {
    threads.emplace_back([&, number = threads.size()]() mutable {
      try {
        const auto client = peer.connect();
        own.reserve(1 << 16);
        const auto read = [&] {
          number = number * 1664525 + 1013904223;
          const auto& [path, value] = data[(number >> 8) % data.size()];
          keep(client->get(path));
        };
        for (int i = 0; i < 20; ++i) read();
        ++ready;
        while (!has_begun) std::this_thread::yield();
        while (!has_ended) own.push_back(time_ns(WALL, read) / 1000);
      } catch (const std::exception&) {
        has_failed = true, ++ready;
      }
    });
  }
  while (ready < clients) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  const double start = now_ns(WALL);
  has_begun = true;
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  has_ended = true;
  for (std::thread& thread : threads) thread.join();
  const double taken = (now_ns(WALL) - start) / 1000;
  need(!has_failed, std::string("reads of ") + peer.name);
  samples all;
  for (const auto& own : times) all.insert(all.end(), own.begin(), own.end());
  std::sort(all.begin(), all.end());
  const auto at = [&](double part) {
    return all[std::min(all.size() - 1,
                        static_cast<size_t>(part * static_cast<double>(all.size())))];
  };
  return {taken / static_cast<double>(all.size()), at(0.5), at(0.99)};
}

void check_answers(const wire_peer& peer, const wire_data& data) {
  const auto client = peer.connect();
  for (const auto& [path, value] : data) {
    need(client->get(path) == value.size(), std::string("the same answers of ") + peer.name);
  }
}

// What is compared: a figure of ours with one of a peer, and how it may stand.
struct comparison {
  const char* peer;
  std::optional<double> target, stretch;
};
struct subject {
  std::string name;
  const char* unit;
  size_t figure;  // 0: per read, 1: p50, 2: p99
  std::vector<comparison> peers;
};

constexpr char kBare[] = "bare TCP, 160 and 48 bytes";
constexpr char kFields[] = "numbered fields and a hash lookup, epoll";
constexpr char kRedis[] = "redis GET";

class wire_rows {
 public:
  wire_rows(const wire_data& data, const scale& s) : m_data(data), m_scale(s) {
    m_peers.push_back(forms(data));
    m_peers.push_back(bare_tcp());
    m_peers.push_back(bare_fields(data));
    if (const auto redis = redis_get(data, s.scratch)) m_peers.push_back(*redis);
    for (const wire_peer& peer : m_peers) {
      if (peer.name != std::string_view(kBare)) check_answers(peer, data);
    }
  }

  void measure(report& result, int clients, const std::vector<subject>& subjects) {
    rounds reads;
    std::vector<rounds::id> ids;
    for (const wire_peer& peer : m_peers) {
      ids.push_back(reads.add([&, clients]() -> std::vector<double> {
        const driven d = drive(peer, m_data, clients, m_scale.wire_seconds);
        return {d.per_read, d.p50, d.p99};
      }));
    }
    reads.run(m_scale.few_rounds);
    for (const subject& what : subjects) {
      for (const comparison& with : what.peers) {
        for (size_t i = 1; i < m_peers.size(); ++i) {
          if (m_peers[i].name != std::string_view(with.peer)) continue;
          result.add({what.name, with.peer, what.unit, with.target, with.stretch},
                     reads.of(ids[0], what.figure), reads.of(ids[i], what.figure));
        }
      }
    }
  }

 private:
  const wire_data& m_data;
  const scale& m_scale;
  std::vector<wire_peer> m_peers;
};

wire_data values_of(const records& all, size_t most) {
  wire_data data;
  for (const record& r : all) {
    if (!r.value.empty() && data.size() < most) data.emplace_back(r.path, r.value);
  }
  return data;
}

// Waking a second processor costs more than a request does, and not always the same.
class on_one_processor {
 public:
  on_one_processor() {
    sched_getaffinity(0, sizeof m_before, &m_before);
    int first = 0;
    while (!CPU_ISSET(first, &m_before)) ++first;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(first, &one);
    sched_setaffinity(0, sizeof one, &one);
  }
  ~on_one_processor() { sched_setaffinity(0, sizeof m_before, &m_before); }

 private:
  cpu_set_t m_before;
};

}  // namespace

report wire_suite(const scale& s) {
  report result;
  const wire_data data = values_of(make_installation(std::min(s.hosts, 110)), 4800);
  {
    const on_one_processor pinned;
    wire_rows rows(data, s);
    rows.measure(result, 1,
                 {{"read, one client, all on one processor, p50",
                   "us",
                   1,
                   {{kBare, {}, {}}, {kFields, 1.10, 1.05}, {kRedis, 1.0, 0.9}}}});
  }
  wire_rows rows(data, s);
  const std::vector<comparison> peers = {{kBare, {}, {}}, {kFields, {}, {}}, {kRedis, 1.0, 0.87}};
  rows.measure(result, 8, {{"reads, 8 clients", "us/read", 0, peers}});
  rows.measure(result, 32,
               {{"reads, 32 clients", "us/read", 0, peers},
                {"read, 32 clients, p99", "us", 2, {{kBare, 1.2, 1.05}, {kRedis, {}, {}}}}});
  return result;
}

}  // namespace bench
