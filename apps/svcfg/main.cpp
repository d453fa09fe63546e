// svcfg, the central configuration service.

#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <exception>

#include <CFG/CFG_SubTree.h>
#include <logging/Log_Settings.h>
#include <logging/Logger.h>
#include <service/memory.h>
#include <service/service.h>
#include <system/Sys_Process.h>

#include "check.h"
#include "command_line.h"

namespace {

constexpr Log_Logger logger("apps/svcfg/main", 508);

enum Exit { DONE = 0, FAILED = 1, USAGE = 2 };

int fail(Exit code, const std::string& text) {
  std::fprintf(stderr, "svcfg: %s\n", text.c_str());
  return code;
}

bool set_up_log(const service::Settings& settings, std::string& fault) {
  Log_Settings log;
  std::vector<std::string> complaints;
  log.ReadLevels(settings.log_level, "log-level", complaints);
  log.ReadOutput(settings.log_output, "log-output", complaints);
  if (complaints.empty() && TmrGLog.Apply(log)) return true;
  fault = complaints.empty() ? "the log cannot be written to " + settings.log_output
                             : complaints.front();
  return false;
}

// The signals that end the service, and are waited for instead of interrupting anything.
sigset_t ending_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, signal);
  return signals;
}

enum class Wait { OPEN, OVER, STOPPED };

// A file is there or is made; a database may begin later than this does.
Wait wait_for_store(service::Service& service, const service::Settings& settings,
                    const sigset_t& signals, std::string& reason) {
  using std::chrono::steady_clock;
  if (service.is_store_local()) return Wait::OPEN;
  const auto until = steady_clock::now() + std::chrono::seconds(settings.store_wait);
  while (!service.open_store(reason)) {
    if (steady_clock::now() >= until) return Wait::OVER;
    logger.warning("%s: it is tried again\n", reason);
    const timespec pause{1, 0};
    if (sigtimedwait(&signals, nullptr, &pause) > 0) return Wait::STOPPED;
  }
  return Wait::OPEN;
}

int serve(const service::Settings& settings, bool prints_port) {
  service::keep_little_memory();
  CFG_SubTree properties{RWCString("properties")};
  const RWCString node = settings.node.empty() ? Sys_ComputerName() : RWCString(settings.node);
  properties.SetProperty("CurrMachine", node);
  properties.SetProperty("current_node", node);  // what 127.0.0.1 is
  // Blocked before any thread begins, so that only the wait below gets them.
  const sigset_t signals = ending_signals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);  // a store that may not grow is one that fails

  service::Service service(settings);
  std::string reason;
  switch (wait_for_store(service, settings, signals, reason)) {
    case Wait::OPEN:
      break;
    case Wait::OVER:
      return fail(FAILED, reason);
    case Wait::STOPPED:
      return DONE;
  }
  if (!service.start(reason)) return fail(FAILED, reason);
  logger.info("svcfg %s serves %s on %s, port %d\n", HALVORIA_VERSION,
              service::without_password(settings.store), settings.listen, service.port());
  if (prints_port) {
    std::printf("%d\n", service.port());
    std::fflush(stdout);
  }
  int signal = 0;
  sigwait(&signals, &signal);
  logger.info("svcfg stops: signal %d\n", signal);
  service.stop();
  logger.info("svcfg has stopped\n");
  return DONE;
}

int run(int argc, char** argv) {
  svcfg::CommandLine line;
  std::string text;
  switch (line.read(argc, argv, text)) {
    case svcfg::CommandLine::PRINT:
      std::fputs(text.c_str(), stdout);
      return DONE;
    case svcfg::CommandLine::WRONG:
      return fail(USAGE, text);
    case svcfg::CommandLine::CHECK:
    case svcfg::CommandLine::SERVE:
      break;
  }
  if (!set_up_log(line.settings(), text)) return fail(USAGE, text);
  if (line.checked().empty()) return serve(line.settings(), line.prints_port());
  text.clear();
  if (svcfg::check(line.checked(), line.settings().store_user, line.salvage(), text)) return DONE;
  return text.empty() ? FAILED : fail(FAILED, text);
}

}  // namespace

int main(int argc, char** argv) {
  Sys_KeepStandardStreams();
  std::setlocale(LC_CTYPE, "");
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    return fail(FAILED, error.what());
  }
}
