#include <connection/Conn_TokenManagerHook.h>

#include <thread/ForkHandler.h>

namespace {

ForkMutex& getter_mutex() {
  static ForkMutex& mutex = *new ForkMutex(ForkHandler::VALUES);
  return mutex;
}
[[maybe_unused]] const ForkMutex& made_early = getter_mutex();  // before any fork
Conn_TokenManagerHook::SessionIdGetter current_getter;          // guarded by getter_mutex()

}  // namespace

void Conn_TokenManagerHook::RegisterSecmSessionIdGetter(SessionIdGetter getter, int /*kind*/) {
  const MutexGuard guard(getter_mutex());
  current_getter = getter;
}

std::shared_ptr<const std::string> Conn_TokenManagerHook::GetToken(const char* /*right*/,
                                                                   RWCString& session_id) {
  SessionIdGetter getter;
  {
    const MutexGuard guard(getter_mutex());
    getter = current_getter;
  }
  session_id = getter ? getter() : RWCString();
  return session_id.isNull() ? nullptr : std::make_shared<const std::string>(session_id.str());
}
