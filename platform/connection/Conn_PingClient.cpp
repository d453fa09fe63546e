#include <connection/Conn_PingClient.h>

#include <map>
#include <string>

#include <connection/Conn_Helper.h>
#include <thread/ForkHandler.h>

namespace {

using clock_type = std::chrono::steady_clock;
constexpr std::chrono::milliseconds kTimeOut(5000);
constexpr std::chrono::seconds kStatusHolds(10);

struct PingParams final : ConnHelper_Params {
  using ConnHelper_Params::ConnHelper_Params;
  const RWCString& GetCommandName() const override { return name; }
  const char* GetResponsePrefix() const override { return ""; }
  int GetServiceId() const override { return 0; }

  const RWCString name = CONN_PING;
};

struct Status {
  bool is_alive;
  Conn_ServerPingStatus status;
  clock_type::time_point when;
};

ForkMutex& statuses_mutex() {
  static ForkMutex& mutex = *new ForkMutex(ForkHandler::CONNECTIONS);
  return mutex;
}
std::map<std::string, Status>& statuses() {  // guarded by statuses_mutex()
  static auto& all = *new std::map<std::string, Status>;
  return all;
}
[[maybe_unused]] const ForkMutex& made_early = statuses_mutex();  // before any fork, like the next
[[maybe_unused]] const auto& all_made_early = statuses();

std::string key_of(const RWCString& server, int port) {
  return server.str() + ':' + std::to_string(port);
}

void keep_status(const RWCString& server, int port, const Conn_PingClient::Answer& answer) {
  const MutexGuard guard(statuses_mutex());
  statuses()[key_of(server, port)] = {answer.is_alive, answer.status, clock_type::now()};
}

}  // namespace

Conn_PingClient::Answer Conn_PingClient::Ping(Conn_SyncConnector& connector) {
  Answer answer;
  const auto start = clock_type::now();
  const RWCString nobody;
  PingParams params(nobody, nobody);
  Conn_Helper helper("Conn_PingClient::Ping", connector, params, true, true);
  answer.is_alive = helper.IsValid() && helper.GetResponseHeaders() == 0 &&
                    helper.Read(CONN_FLD_SERVICE, answer.service);
  RWCString product;
  int version = 0;
  if (answer.is_alive && helper.Read(CONN_FLD_VERSION, version) && !helper.IsAtEnd() &&
      helper.Read(CONN_FLD_PRODUCT, product)) {
    answer.status = Conn_ServerPingStatus(Tmr_Version(product));
  }
  answer.took = std::chrono::duration_cast<std::chrono::microseconds>(clock_type::now() - start);
  answer.is_refused = helper.IsRefused();
  if (!answer.is_alive) {
    answer.reason = answer.is_refused ? helper.Refusal() : connector.LastError();
  }
  return answer;
}

Conn_PingClient::Answer Conn_PingClient::Ping(const RWCString& server, int port,
                                              const RWCString& connection_type, int token_property,
                                              std::chrono::milliseconds time_out) {
  Conn_SyncConnector connector;
  connector.SetTimeOuts({time_out, time_out, time_out});
  connector.InitConn(server, port, connection_type, "ping", token_property, 0);
  const Answer answer = Ping(connector);
  keep_status(server, port, answer);
  return answer;
}

int Conn_PingClient::PingServer(const RWCString& server, int port, const RWCString& connection_type,
                                int token_property, Conn_ServerPingStatus& status) {
  const Answer answer = Ping(server, port, connection_type, token_property, kTimeOut);
  if (answer.is_alive) status = answer.status;
  return answer.is_alive ? 0 : 1;
}

bool Conn_PingClient::GetServerPingStatus(const RWCString& server, int port,
                                          Conn_ServerPingStatus& status) {
  const MutexGuard guard(statuses_mutex());
  const auto found = statuses().find(key_of(server, port));
  if (found == statuses().end() || !found->second.is_alive) return false;
  if (clock_type::now() - found->second.when > kStatusHolds) return false;
  status = found->second.status;
  return true;
}
