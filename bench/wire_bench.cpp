// Reads over the network: what the connection library adds to a lookup, beside the least that
// sockets cost and beside redis.
#include <unistd.h>

#include <algorithm>

#include <absl/container/flat_hash_map.h>

#include <common/need.h>
#include <common/wire_load.h>
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

std::vector<wire_peer> peers_of(const wire_data& data, const scale& s) {
  std::vector<wire_peer> peers = {forms(data), bare_tcp(), bare_fields(data)};
  if (const auto redis = redis_get(data, s.scratch)) peers.push_back(*redis);
  return peers;
}

}  // namespace

report wire_suite(const scale& s) {
  report result;
  const wire_data data = values_of(make_installation(std::min(s.hosts, 110)), 4800);
  {
    const on_one_processor pinned;
    wire_rows rows(data, s, peers_of(data, s));
    rows.measure(result, 1,
                 {{"read, one client, all on one processor, p50",
                   "us",
                   wire_subject::P50,
                   {{kBare, {}, {}}, {kFields, 1.10, 1.05}, {kRedis, 1.0, 0.9}}}});
  }
  wire_rows rows(data, s, peers_of(data, s));
  const std::vector<wire_comparison> peers = {
      {kBare, {}, {}}, {kFields, {}, {}}, {kRedis, 1.0, 0.87}};
  rows.measure(result, 8, {{"reads, 8 clients", "us/read", wire_subject::PER_READ, peers}});
  rows.measure(
      result, 32,
      {{"reads, 32 clients", "us/read", wire_subject::PER_READ, peers},
       {"read, 32 clients, p99", "us", wire_subject::P99, {{kBare, 1.2, 1.05}, {kRedis, {}, {}}}}});
  return result;
}

}  // namespace bench
