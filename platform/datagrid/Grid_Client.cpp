#include <datagrid/Grid_Client.h>

#include <charconv>
#include <stdexcept>

#include <datagrid/Grid_Open.h>
#include <logging/Logger.h>

namespace {

constexpr Log_Logger logger("platform/datagrid/Grid_Client", 507);

using Clock = std::chrono::steady_clock;

// "host:port", or "[address]:port".
Grid_Address address_of(const std::string& text) {
  Grid_Address address;
  const size_t colon = text.rfind(':');
  const char* const end = text.data() + text.size();
  if (colon != text.npos && colon > 0) {
    address.host = text.substr(0, colon);
    const auto [rest, error] = std::from_chars(text.data() + colon + 1, end, address.port);
    if (error != std::errc() || rest != end) address.port = 0;
  }
  if (address.host.size() > 2 && address.host.front() == '[' && address.host.back() == ']') {
    address.host = address.host.substr(1, address.host.size() - 2);
  }
  if (address.host.empty() || address.port <= 0 || address.port > 65535) {
    throw std::invalid_argument("<" + text + "> is not a host and a port");
  }
  return address;
}

}  // namespace

struct Grid_Client::Inside {
  std::string prefix;  // of the keys of this cache
  Grid_Address address;
  bool reconnects = false;
  Clock::time_point last_attempt;
  std::unique_ptr<Grid_Store> store;  // null while there is no connection
};

Grid_Client::Grid_Client(std::chrono::milliseconds between_attempts)
    : m_between_attempts(between_attempts) {}
Grid_Client::~Grid_Client() = default;

void Grid_Client::Connect(const std::string& cache, const std::string& address, bool reconnect,
                          const std::string& user, const std::string& password,
                          const std::string& certificate) {
  m_inside.reset();
  if (!certificate.empty()) throw std::invalid_argument("encrypted connections are not supported");
  auto inside = std::make_unique<Inside>();
  inside->prefix = cache + ":";
  inside->address = address_of(address);
  inside->address.user = user;
  inside->address.password = password;
  inside->reconnects = reconnect;
  m_inside = std::move(inside);
  const std::string reason = open();
  if (!reason.empty()) throw std::runtime_error(reason);
}

std::string Grid_Client::open() {
  m_inside->last_attempt = Clock::now();
  std::string why;
  m_inside->store = Grid_Open(m_inside->address, why);
  return m_inside->store ? std::string() : why;
}

bool Grid_Client::IsConnected() {
  if (!m_inside) return false;
  if (m_inside->store) return true;
  if (!m_inside->reconnects || Clock::now() - m_inside->last_attempt < m_between_attempts) {
    return false;
  }
  const std::string reason = open();
  if (reason.empty()) return true;
  return logger.reject(false, "the datagrid can not be reached again: %s\n", reason);
}

std::string Grid_Client::key_of(const std::string& key) const {
  return m_inside ? m_inside->prefix + key : key;
}

// A connection that failed is given up.
bool Grid_Client::ask(const std::vector<std::string_view>& words, Grid_Answer& answer) {
  constexpr size_t most_bytes = size_t{512} << 20;
  if (!IsConnected()) return false;
  if (m_inside->store->ask(words, most_bytes, answer)) {
    return answer.kind != Grid_Answer::REFUSAL;
  }
  logger.error("the connection to the datagrid failed: %s\n", m_inside->store->error());
  m_inside->store.reset();
  return false;
}

bool Grid_Client::Get(const std::string& key, std::string& value) {
  Grid_Answer answer;
  if (!ask({"GET", key_of(key)}, answer) || answer.kind != Grid_Answer::TEXT) return false;
  value = std::move(answer.text);
  return true;
}
bool Grid_Client::Put(const std::string& key, const std::string& value) {
  Grid_Answer answer;
  return ask({"SET", key_of(key), value}, answer);
}
bool Grid_Client::Remove(const std::string& key) {
  Grid_Answer answer;
  return ask({"DEL", key_of(key)}, answer) && answer.number > 0;
}
