#include <connection/Conn_Silence.h>

#include <functional>
#include <map>
#include <string>

#include <thread/ForkHandler.h>

namespace {

using clock_type = std::chrono::steady_clock;
constexpr std::chrono::seconds kHolds(1);
constexpr auto relaxed = std::memory_order_relaxed;

struct Services {
  ForkMutex mutex{ForkHandler::CONNECTIONS};
  std::map<std::string, Conn_Silence, std::less<>> by_address;  // guarded by mutex
};

Services& services() {
  static Services& all = *new Services;
  return all;
}
[[maybe_unused]] const Services& made_early = services();

}  // namespace

Conn_Silence& Conn_Silence::Of(std::string_view address) {
  const MutexGuard guard(services().mutex);
  return services().by_address.try_emplace(std::string(address)).first->second;
}

void Conn_Silence::note(Time sent) {
  if (m_heard.load(relaxed) < sent) m_until.store(clock_type::now() + kHolds, relaxed);
}

void Conn_Silence::end() {
  m_heard.store(clock_type::now(), relaxed);
  if (m_until.load(relaxed) != Time()) m_until.store(Time(), relaxed);
}

bool Conn_Silence::holds() const {
  const Time until = m_until.load(relaxed);
  return until != Time() && clock_type::now() < until;
}
