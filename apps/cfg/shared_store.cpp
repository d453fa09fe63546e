#include "shared_tree.h"

#include <charconv>

#include <CFG/CFG_DBRepository.h>
#include <CFG/CFG_Repository.h>
#include <connection/Conn_PingClient.h>
#include <system/Sys_Process.h>

#include "failure.h"
#include "library_log.h"
#include "one_update.h"

namespace cli {

namespace {

constexpr int DEFAULT_PORT = 5020;
constexpr std::chrono::seconds PING_TIME(5);

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

std::string ServiceAddress::text() const {
  const bool is_v6 = host.find(':') != host.npos;
  return (is_v6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

std::unique_ptr<SharedTree> SharedTree::of_service(const ServiceAddress& address) {
  const Conn_PingClient::Answer ping =
      Conn_PingClient::Ping(RWCString(address.host), address.port, "", 1, PING_TIME);
  if (!ping.is_alive) {
    throw Failure(UNREACHABLE, "no service answers at " + address.text() + ": " +
                                   ping.reason.str() + " ('svcfg' serves a tree)");
  }
  auto repository = std::make_unique<OneUpdate<CFG_Repository>>();
  repository->SetProperty("HALVORIA_REMOTE_SERVER_NAME", RWCString(address.host));
  repository->SetProperty("HALVORIA_REMOTE_SERVER_PORT", RWCString(std::to_string(address.port)));
  repository->Connect();
  // Whom the service's log names.
  repository->SetProperty("CurrUser", Sys_UserName());
  repository->SetProperty("CurrApp", "cfg");
  return std::unique_ptr<SharedTree>(new SharedTree(std::move(repository), address.text()));
}

std::unique_ptr<SharedTree> SharedTree::of_database(const std::string& name) {
  const Reasons reasons;
  auto repository = std::make_unique<OneUpdate<CFG_DBRepository>>();
  if (!repository->Connect()) {
    throw Failure(UNREACHABLE, with_reason("cannot open the database of " + name, reasons));
  }
  return std::unique_ptr<SharedTree>(new SharedTree(std::move(repository), name));
}

SharedTree::SharedTree(std::unique_ptr<CFG_RepositoryServices> repository, std::string name)
    : m_repository(std::move(repository)),
      m_name(std::move(name)),
      m_mirror(*m_repository, root(), m_name) {}

SharedTree::~SharedTree() {
  const Reasons reasons;  // the service undoes what is left when the connection ends
  if (m_is_begun) m_repository->EndTransactionUpdate(true);
}

void SharedTree::begin() {
  const Reasons reasons;
  m_is_begun = m_repository->StartTransactionUpdate();
  if (!m_is_begun) throw Failure(UNREACHABLE, with_reason("cannot change " + m_name, reasons));
}

void SharedTree::commit() {
  const Reasons reasons;
  m_is_begun = false;
  if (m_repository->EndTransactionUpdate(false)) return;
  throw Failure(REFUSED, with_reason("cannot save the changes to " + m_name, reasons));
}

}  // namespace cli
