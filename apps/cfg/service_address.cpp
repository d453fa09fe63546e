#include "service_address.h"

#include <charconv>

namespace cli {

namespace {

constexpr int DEFAULT_PORT = 5020;

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
  ServiceAddress address{parameters.remote_server_name.str(), 0};
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

Failure unreachable(const ServiceAddress& address, const Conn_PingClient::Answer& ping) {
  const std::string reason = ping.reason.str();
  if (ping.is_refused) {
    return {UNREACHABLE, "the service at " + address.text() + " refuses: " + reason};
  }
  return {UNREACHABLE,
          "no service answers at " + address.text() + ": " + reason + " ('svcfg' serves a tree)"};
}

}  // namespace cli
