#include <peers/wire_peer.h>

#ifdef HALVORIA_BENCH_ETCD
#include <unistd.h>

#include <filesystem>
#include <thread>

#include <grpcpp/grpcpp.h>

#include <common/need.h>
#include <etcd_kv.grpc.pb.h>

namespace bench {
namespace {

using store = etcdserverpb::KV::Stub;

// Each over a connection of its own.
std::unique_ptr<store> connect_to(int port) {
  grpc::ChannelArguments arguments;
  arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
  return etcdserverpb::KV::NewStub(grpc::CreateCustomChannel(
      "127.0.0.1:" + std::to_string(port), grpc::InsecureChannelCredentials(), arguments));
}

class etcd_client final : public wire_client {
 public:
  explicit etcd_client(int port) : m_store(connect_to(port)) {}
  size_t get(const std::string& path) override {
    grpc::ClientContext context;
    etcdserverpb::RangeRequest request;
    etcdserverpb::RangeResponse answer;
    request.set_key(path);
    need(m_store->Range(&context, request, &answer).ok() && answer.kvs_size() == 1,
         "an answer of etcd");
    return answer.kvs(0).value().size();
  }

 private:
  std::unique_ptr<store> m_store;
};

void fill(int port, const wire_data& data) {
  constexpr size_t kMost = 128;  // in one transaction, as etcd is set up
  const auto target = connect_to(port);
  for (size_t from = 0; from < data.size(); from += kMost) {
    etcdserverpb::TxnRequest request;
    etcdserverpb::TxnResponse answer;
    for (size_t i = from; i < std::min(data.size(), from + kMost); ++i) {
      auto* put = request.add_success()->mutable_request_put();
      put->set_key(data[i].first);
      put->set_value(data[i].second);
    }
    grpc::ClientContext context;
    context.set_wait_for_ready(true);
    context.set_deadline(std::chrono::system_clock::now() + std::chrono::seconds(20));
    need(target->Txn(&context, request, &answer).ok() && answer.succeeded(), "filling etcd");
  }
}

}  // namespace

std::unique_ptr<wire_peer> etcd_range(const wire_data& data, const std::string& folder) {
  if (::system("command -v etcd > /dev/null") != 0) return nullptr;
  const std::string own = folder + "/etcd_bench";
  std::filesystem::remove_all(own);
  const auto server = std::make_shared<wire_server>([&](const auto& told) {
    const int port = free_port(), other_port = free_port();
    told(port);
    const std::string clients = "http://127.0.0.1:" + std::to_string(port);
    const std::string members = "http://127.0.0.1:" + std::to_string(other_port);
    const std::string cluster = "default=" + members;
    ::execlp("etcd", "etcd", "--data-dir", own.c_str(), "--logger", "zap", "--log-level", "panic",
             "--listen-client-urls", clients.c_str(), "--advertise-client-urls", clients.c_str(),
             "--listen-peer-urls", members.c_str(), "--initial-advertise-peer-urls",
             members.c_str(), "--initial-cluster", cluster.c_str(), nullptr);
  });
  const int port = server->port();
  fill(port, data);
  return std::make_unique<wire_peer>(wire_peer{
      "etcd range over gRPC", [port] { return std::make_unique<etcd_client>(port); }, server});
}

}  // namespace bench
#else
namespace bench {
std::unique_ptr<wire_peer> etcd_range(const wire_data&, const std::string&) { return nullptr; }
}  // namespace bench
#endif
