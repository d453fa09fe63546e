// What clients that keep synced files cost the service when they start.
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include <CFG/CFG_Repository.h>
#include <CFG/CFG_SynchronizedFileRepository.h>
#include <common/need.h>
#include <common/program.h>
#include <common/real_document.h>
#include <common/scratch_database.h>
#include <common/suite.h>
#include <peers/document_writer.h>
#include <servers/Test_Service.h>

namespace bench {
namespace {

// Processor time of a process that runs, in ms; proc(5), the 14th and the 15th field of `stat`.
double processor_time_so_far(pid_t process) {
  std::string text = content("/proc/" + std::to_string(process) + "/stat");
  std::istringstream fields(text.substr(text.rfind(')') + 2));
  std::string skipped;
  for (int i = 3; i < 14; ++i) fields >> skipped;
  double user = 0, system = 0;
  fields >> user >> system;
  return (user + system) * 1e3 / static_cast<double>(sysconf(_SC_CLK_TCK));
}

}  // namespace

report sync_service_suite(const scale& s) {
  const records all = make_installation(s.document_hosts);
  const std::string made_up = s.scratch + "/document.xml";
  write_document(all, made_up, true);
  const scratch_database store(s.scratch, "synced");
  Test_Service service("sqlite:" + store.file(), "/dev/null");
  need(service.start(), "svcfg that listens");
  service.use();
  const std::filesystem::path folder = s.scratch + "/synced_clients";
  {
    const real_document document(s.scratch, made_up);
    const std::string out = s.scratch + "/import.txt";
    time_of_program({HALVORIA_COMMAND, "--server", "127.0.0.1:" + std::to_string(service.port()),
                     "import", document.file()},
                    out);
    ::unlink(out.c_str());
  }
  CFG_Repository server;
  need(server.Connect(), "a connection");
  int round = 0;
  // With ten changes since the start before.
  const auto cost_of = [&](int clients, bool with_files) {
    const double before = processor_time_so_far(service.process().pid());
    for (int i = 0; i < clients; ++i) {
      if (!with_files) std::filesystem::remove_all(folder);
      std::filesystem::create_directories(folder);
      CFG_SynchronizedFileRepository client(
          RWWString::fromUTF8(RWCString((folder / "tree.cfg").string())));
      need(client.Connect() && client.SetProperty("CurrUser", "bench"), "a client");
      while (!client.FinishedWritingSyncFiles()) ::usleep(1000);
    }
    return (processor_time_so_far(service.process().pid()) - before) / clients;
  };
  const auto change = [&] {
    ++round;
    for (int i = 0; i < 10; ++i) {
      need(server.SetValue(RWCString("halvoria\\system\\bench\\v" + std::to_string(i)),
                           RWCString(std::to_string(round))),
           "a change");
    }
  };
  rounds runs;
  const auto full = runs.add([&]() -> std::vector<double> { return {cost_of(5, false)}; });
  const auto partial = runs.add([&]() -> std::vector<double> {
    change();
    return {cost_of(100, true)};
  });
  runs.run(s.few_rounds);
  report result;
  result.add({"a client's start with files, processor of the service",
              "the same without files",
              "ms",
              {},
              {}},
             runs.of(partial), runs.of(full));
  service.stop();
  std::filesystem::remove_all(folder);
  ::unlink(made_up.c_str());
  return result;
}

}  // namespace bench
