#include "service_address.h"

#include <algorithm>
#include <charconv>

#include "library_log.h"

namespace cli {

namespace {

constexpr int DEFAULT_PORT = 5020;
constexpr std::chrono::milliseconds PING_TIME(5000);

bool parse_port(std::string_view text, int& port) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  return error == std::errc() && end == text.data() + text.size() && port > 0 && port < 65536;
}

}  // namespace

ServiceAddress ServiceAddress::of(const std::string& text) {
  const Failure wrong(USAGE, "--server wants HOST:PORT or [ADDRESS]:PORT and not '" + text + "'");
  ServiceAddress address{text, DEFAULT_PORT};
  std::string port;
  if (text.rfind('[', 0) == 0) {
    const size_t end = text.find(']');
    if (end == text.npos) throw wrong;
    address.host = text.substr(1, end - 1);
    const std::string rest = text.substr(end + 1);
    if (!rest.empty() && rest[0] != ':') throw wrong;
    if (!rest.empty()) port = rest.substr(1);
    if (!rest.empty() && port.empty()) throw wrong;
  } else if (const size_t cut = text.find(':'); cut != text.npos && cut == text.rfind(':')) {
    address.host = text.substr(0, cut);
    port = text.substr(cut + 1);
    if (port.empty()) throw wrong;
  }
  if (address.host.empty() || (!port.empty() && !parse_port(port, address.port))) throw wrong;
  return address;
}

ServiceAddress ServiceAddress::of(const CFG_ConnectionParameters& parameters) {
  ServiceAddress address{parameters.remote_server_name.str(), 0, parameters.connection_type,
                         parameters.connection_properties};
  if (address.host.empty() || !parse_port(parameters.remote_server_port.str(), address.port)) {
    throw Failure(UNREACHABLE,
                  "the parameters name no service: remote_server_name and remote_server_port say "
                  "where it is");
  }
  return address;
}

std::string ServiceAddress::text() const {
  const bool is_v6 = host.find(':') != host.npos;
  return (is_v6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

ServiceConnection::ServiceConnection(const ServiceAddress& address) : m_address(address) {
  const std::pair<const char*, RWCString> properties[] = {
      {"HALVORIA_REMOTE_SERVER_NAME", address.host},
      {"HALVORIA_REMOTE_SERVER_PORT", std::to_string(address.port)},
      {"HALVORIA_CONNECTION_TYPE", address.connection_type},
      {"HALVORIA_CONNECTION_PROPERTIES", address.connection_properties}};
  for (const auto& [name, text] : properties) {
    if (!text.isNull()) m_repository.SetProperty(name, text);
  }
  const Reasons reasons;
  m_connector.reset(m_repository.GetConnector());
  const std::string fault = m_connector->LastError().str();
  if (fault.empty()) return;
  throw Failure(UNREACHABLE, "cannot connect to the service at " + address.text() + ": " + fault);
}

Conn_PingClient::Answer ServiceConnection::ping() {
  auto time_outs = m_connector->GetTimeOuts();
  time_outs.answer = std::min(time_outs.answer, PING_TIME);
  m_connector->SetTimeOuts(time_outs);
  const Conn_PingClient::Answer answer = Conn_PingClient::Ping(*m_connector);
  if (answer.is_alive) return answer;
  const std::string at = m_address.text(), reason = answer.reason.str();
  if (answer.is_refused) {
    throw Failure(UNREACHABLE, "the service at " + at + " refuses: " + reason);
  }
  throw Failure(UNREACHABLE,
                "no service answers at " + at + ": " + reason + " ('svcfg' serves a tree)");
}

}  // namespace cli
