// What somebody waits for who starts a program that reads one value: whole processes, from their
// start to their end, each beside the command of another system that does the same.
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>

#include <CFG/CFG_SynchronizedFileRepository.h>
#include <common/child.h>
#include <common/need.h>
#include <common/program.h>
#include <common/real_document.h>
#include <common/scratch_database.h>
#include <common/suite.h>
#include <peers/bare_postgresql.h>
#include <peers/bare_xerces.h>
#include <peers/document_writer.h>
#include <peers/wire_peer.h>
#include <servers/Test_Postgres.h>
#include <servers/Test_Redis.h>
#include <servers/Test_Service.h>

namespace bench {
namespace {

// A parameters file. It names the host, so that no name server is asked.
class parameters {
 public:
  parameters(const std::string& folder, const std::string& name, const std::string& lines)
      : m_file(folder + "/" + name + ".txt") {
    std::ofstream(m_file) << lines << "\nlocal_host_name = here\nlocal_host_ip = 127.0.0.1\n";
  }
  parameters(const parameters&) = delete;
  parameters& operator=(const parameters&) = delete;
  ~parameters() { ::unlink(m_file.c_str()); }

  const std::string& file() const { return m_file; }

 private:
  const std::string m_file;
};

// What a command reads is what there is, and then the time that it takes.
class started {
 public:
  started(rounds& runs, const std::string& value, std::string out)
      : m_runs(runs), m_value(value), m_out(std::move(out)) {}
  ~started() { ::unlink(m_out.c_str()); }

  rounds::id add(const words& command) {
    time_of_program(command, m_out);
    need(content(m_out) == m_value + '\n', command[0] + " that reads " + m_value);
    return m_runs.add([command, out = m_out]() -> std::vector<double> {
      return {time_of_program(command, out)};
    });
  }

 private:
  rounds& m_runs;
  const std::string m_value, m_out;
};

void must_run(const words& command, const std::string& scratch) {
  const std::string out = scratch + "/import.txt";
  time_of_program(command, out);
  ::unlink(out.c_str());
}

// The files of a client that has once been in step with the service.
void save_synced_files(const Test_Service& service, const std::string& folder) {
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder);
  figures_in_child([&]() -> std::vector<double> {
    service.use();
    CFG_SynchronizedFileRepository client(RWWString::fromUTF8(RWCString(folder + "/tree.cfg")));
    need(client.Connect() && client.SetProperty("CurrUser", "bench"), "a synchronized client");
    while (!client.FinishedWritingSyncFiles()) ::usleep(1000);
    return {0};
  });
}

}  // namespace

report start_suite(const scale& s) {
  const records all = make_installation(s.document_hosts);
  const std::string made_up = s.scratch + "/document.xml";
  write_document(all, made_up, true);
  const real_document document(s.scratch, made_up);
  const std::string &file = document.file(), &path = document.path(), &value = document.value();

  // What is forked comes first.
  std::optional<Test_Postgres> postgres;
  if (Test_Postgres::IsInstalled()) postgres.emplace();
  const Test_Redis redis;
  need(redis.is_running(), "redis");
  const scratch_database store(s.scratch, "started"), served(s.scratch, "served");
  Test_Service service("sqlite:" + served.file(), "/dev/null");
  need(service.start(), "svcfg that listens");

  const std::string command = HALVORIA_COMMAND;
  const std::string at_service =
      "cfg_type = remote\nremote_server_name = 127.0.0.1\n"
      "remote_server_port = " +
      std::to_string(service.port());
  const parameters sqlite(s.scratch, "sqlite",
                          "cfg_type = db\nuser = bench\nconn_string = sqlite:" + store.file());
  const parameters remote(s.scratch, "remote", at_service);
  const parameters cached(s.scratch, "cached", at_service + "\nuse_in_process_cache = yes");
  for (const parameters* place : {&sqlite, &remote}) {
    must_run({command, "--params", place->file(), "import", file}, s.scratch);
  }
  const std::string cache = "halvoria\\system\\applications\\cfg\\in_process_cache\\cfg\\";
  for (const auto& [name, text] : {std::pair<const char*, std::string>{"enable", "true"},
                                   {"load_on_start", path.substr(0, path.rfind('\\'))}}) {
    must_run({command, "--params", remote.file(), "set", cache + name, text}, s.scratch);
  }
  const std::string files = s.scratch + "/synced_start";
  save_synced_files(service, files);
  const parameters offline(s.scratch, "offline",
                           "cfg_type = synced_file\nremote_server_name = 127.0.0.1\n"
                           "remote_server_port = 1\nxml_file = " +
                               files + "/tree.cfg");
  need(redis.ask({"SET", path, value}) == "OK", "a value in redis");

  rounds runs;
  started programs(runs, value, s.scratch + "/started.txt");
  const auto from_file = programs.add({command, "--file", file, "get", path});
  const auto from_sqlite = programs.add({command, "--params", sqlite.file(), "get", path});
  const auto from_service = programs.add({command, "--params", remote.file(), "get", path});
  const auto from_cache = programs.add({command, "--params", cached.file(), "get", path});
  const auto from_synced = programs.add({command, "--params", offline.file(), "get", path});
  const auto parse = runs.add([&]() -> std::vector<double> {
    return {time_ns(WALL, [&] { processor_time_of(start_copy([&] { parse_file_bare(file); })); }) /
            1e6};
  });
  const auto redis_cli =
      programs.add({"redis-cli", "-p", std::to_string(redis.port()), "get", path});
  std::optional<rounds::id> psql;
  if (postgres) {
    need(postgres->is_running(), postgres->problem());
    bare_postgresql(postgres->connection()).fill(wire_data{{path, value}});
    psql = programs.add({"psql", postgres->connection(), "-Atc",
                         "SELECT convert_from(value, 'UTF8') FROM cfg LIMIT 1"});
  }
  runs.run(s.many_rounds);

  report result;
  const auto add = [&](const char* subject, rounds::id ours, const char* peer, rounds::id theirs) {
    result.add({subject, peer, "ms", {}, {}}, runs.of(ours), runs.of(theirs));
  };
  add("file of the whole tree", from_file, "bare Xerces parse", parse);
  add("synced files, the service away", from_synced, "bare Xerces parse", parse);
  const std::pair<const char*, rounds::id> places[] = {
      {"SQLite", from_sqlite}, {"service", from_service}, {"service, behind a cache", from_cache}};
  for (const auto& [place, ours] : places) {
    add(place, ours, "redis-cli get", redis_cli);
    if (psql) add(place, ours, "psql -c", *psql);
  }
  service.stop();
  ::unlink(made_up.c_str());
  std::filesystem::remove_all(files);
  return result;
}

}  // namespace bench
