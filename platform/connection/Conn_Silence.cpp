#include <connection/Conn_Silence.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <string>

#include <thread/ForkHandler.h>

namespace {

using clock_type = std::chrono::steady_clock;
constexpr std::chrono::seconds kHolds(1);

struct Silent {
  ForkMutex mutex{ForkHandler::CONNECTIONS};
  std::map<std::string, clock_type::time_point, std::less<>> until;  // guarded by mutex
  std::atomic<bool> is_any{false};  // looked at without the lock by those whom all answer
};

Silent& silent() {
  static Silent& all = *new Silent;
  return all;
}
[[maybe_unused]] const Silent& made_early = silent();

}  // namespace

void Conn_Silence::Note(std::string_view address) {
  const MutexGuard guard(silent().mutex);
  silent().until.insert_or_assign(std::string(address), clock_type::now() + kHolds);
  silent().is_any = true;
}

bool Conn_Silence::Holds(std::string_view address) {
  if (!silent().is_any) return false;
  const MutexGuard guard(silent().mutex);
  const auto found = silent().until.find(address);
  return found != silent().until.end() && clock_type::now() < found->second;
}

void Conn_Silence::End(std::string_view address) {
  if (!silent().is_any) return;
  const MutexGuard guard(silent().mutex);
  const auto found = silent().until.find(address);
  if (found != silent().until.end()) silent().until.erase(found);
  silent().is_any = !silent().until.empty();
}
