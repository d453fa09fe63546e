#include <servers/Test_Postgres.h>

#include <fcntl.h>
#include <glob.h>
#include <libpq-fe.h>
#include <netinet/in.h>
#include <pwd.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

extern char** environ;

namespace {

using namespace std::chrono_literals;

// Runs the server until its input ends, which it does when the test is gone.
constexpr char kWatch[] = R"(
trap '' INT TERM HUP
cd "$2" || exit 1
cp -a "$1" data || exit 1
{
  while :; do
    "$3/postgres" -D "$2/data" -k "$2" -p "$4" -c listen_addresses=127.0.0.1 $5
    [ -e hold ] || break
    touch held
    while [ -e hold ]; do sleep 0.02; done
    rm held
  done
  touch gone
} </dev/null >log 2>&1 &
cat >/dev/null
rm -f hold
while [ ! -e gone ]; do  # again, as a server that is just starting has no such file
  kill -QUIT $(head -n 1 data/postmaster.pid) 2>/dev/null
  sleep 0.1
done
wait
cd / && rm -rf "$2"
)";
// One database is enough, and quicker to copy than three.
constexpr char kMakeTemplate[] = R"(
"$2/initdb" -D "$1.new" -U halvoria -A trust -N -E UTF8 --locale=C --wal-segsize=1 $3 >/dev/null &&
echo "UPDATE pg_database SET datistemplate = false
DROP DATABASE template0
DROP DATABASE template1" | "$2/postgres" --single -D "$1.new" postgres >/dev/null 2>&1 &&
mv "$1.new" "$1"
)";
constexpr char kSmall[] =
    " -c shared_buffers=32MB -c max_connections=40 -c max_wal_size=256MB"
    " -c dynamic_shared_memory_type=mmap -c log_min_messages=fatal";
constexpr char kHasty[] = " -c fsync=off -c synchronous_commit=off -c full_page_writes=off";

std::string programs() {
  glob_t found{};
  std::string folder;
  if (glob("/usr/lib/postgresql/*/bin/initdb", 0, nullptr, &found) == 0) {
    folder = std::filesystem::path(found.gl_pathv[found.gl_pathc - 1]).parent_path().string();
  }
  globfree(&found);
  return folder;
}

// A shell with a script and its arguments, as the user postgres when we are root. Its input comes
// from a pipe that only this process holds; -1 when it could not be started.
int shell(const char* script, const std::vector<std::string>& arguments, int* input) {
  std::vector<std::string> words;
  if (geteuid() == 0) words = {"runuser", "-u", "postgres", "--"};
  words.insert(words.end(), {"sh", "-c", script, "sh"});
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> texts;
  for (std::string& word : words) texts.push_back(word.data());
  texts.push_back(nullptr);
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return -1;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[0], 0);
  // Signals that are for the group of the test's processes must not end it before its work.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
  pid_t process = -1;
  if (posix_spawnp(&process, texts[0], &actions, &attributes, texts.data(), environ) != 0) {
    process = -1;
  }
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[0]);
  if (input && process > 0) {
    *input = ends[1];
  } else {
    close(ends[1]);
  }
  return process;
}

int free_port() {
  const int handle = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* raw = reinterpret_cast<sockaddr*>(&address);
  const bool is_bound = bind(handle, raw, size) == 0 && getsockname(handle, raw, &size) == 0;
  close(handle);
  return is_bound ? ntohs(address.sin_port) : 0;
}

void give_to_postgres(const std::string& folder) {
  const passwd* user = geteuid() == 0 ? getpwnam("postgres") : nullptr;
  if (user && chown(folder.c_str(), user->pw_uid, user->pw_gid) != 0) perror("chown");
}

}  // namespace

bool Test_Postgres::IsInstalled() { return !programs().empty(); }

Test_Postgres::Test_Postgres(const std::string& settings, bool is_durable, bool has_sums) {
  if (!prepare_template(has_sums)) return;
  // Another program may take the port before the server does.
  for (int attempt = 0; attempt < 5 && !is_running(); ++attempt) {
    if (!start(kSmall + std::string(is_durable ? " " : kHasty) + " " + settings)) stop();
  }
}

Test_Postgres::~Test_Postgres() { stop(); }

bool Test_Postgres::prepare_template(bool has_sums) {
  if (!IsInstalled()) {
    m_problem = "no PostgreSQL server is installed";
    return false;
  }
  namespace fs = std::filesystem;
  std::string name = programs();
  for (char& c : name) c = c == '/' ? '_' : c;
  if (has_sums) name += "_sums";
  const fs::path home =
      fs::temp_directory_path() / ("halvoria_postgres_" + std::to_string(geteuid()));
  std::error_code ignored;
  fs::create_directory(home, ignored);
  give_to_postgres(home.string());
  m_template = (home / name).string();
  const int lock = open((m_template + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  flock(lock, LOCK_EX);
  int status = 0;
  if (!fs::exists(m_template)) {
    fs::remove_all(m_template + ".new", ignored);
    const int process =
        shell(kMakeTemplate, {m_template, programs(), has_sums ? "--data-checksums" : ""}, nullptr);
    if (process < 0 || waitpid(process, &status, 0) != process) status = -1;
  }
  close(lock);
  if (status) m_problem = "initdb failed for " + m_template;
  return status == 0;
}

bool Test_Postgres::start(const std::string& settings) {
  std::string folder = (std::filesystem::temp_directory_path() / "halvoria_pg_XXXXXX").string();
  if (!mkdtemp(folder.data())) return false;
  m_folder = folder;
  give_to_postgres(m_folder);
  m_port = free_port();
  m_watcher =
      shell(kWatch, {m_template, m_folder, programs(), std::to_string(m_port), settings}, &m_pipe);
  if (m_watcher < 0 || !wait_until_ready()) {
    m_problem = "the server in " + m_folder + " does not start";
    return false;
  }
  m_connection = "host=127.0.0.1 port=" + std::to_string(m_port) + " user=halvoria dbname=postgres";
  return true;
}

bool Test_Postgres::wait_until_ready() {
  const std::string at = "host=" + m_folder + " port=" + std::to_string(m_port);
  const auto end = std::chrono::steady_clock::now() + 20s;
  while (std::chrono::steady_clock::now() < end) {
    if (PQping(at.c_str()) == PQPING_OK) return true;
    std::error_code ignored;
    if (std::filesystem::exists(m_folder + "/gone", ignored)) return false;
    std::this_thread::sleep_for(10ms);
  }
  return false;
}

void Test_Postgres::stop() {
  m_connection.clear();
  if (m_pipe >= 0) close(m_pipe);
  if (m_watcher > 0) waitpid(m_watcher, nullptr, 0);
  m_pipe = m_watcher = -1;
  std::error_code ignored;
  if (!m_folder.empty()) std::filesystem::remove_all(m_folder, ignored);
  m_folder.clear();
}

void Test_Postgres::disconnect_clients() {
  PGconn* handle = PQconnectdb(m_connection.c_str());
  PQclear(PQexec(handle,
                 "SELECT pg_terminate_backend(pid, 5000) FROM pg_stat_activity"
                 " WHERE pid <> pg_backend_pid() AND backend_type = 'client backend'"));
  PQfinish(handle);
}

bool Test_Postgres::restart(const std::function<void(const std::string& data)>& meanwhile) {
  const std::string data = m_folder + "/data", hold = m_folder + "/hold";
  const std::string held = m_folder + "/held";
  std::ofstream(hold).flush();
  pid_t server = 0;
  std::ifstream(data + "/postmaster.pid") >> server;
  if (server <= 0 || kill(server, SIGINT) != 0) return false;
  const auto end = std::chrono::steady_clock::now() + 20s;
  std::error_code ignored;
  while (!std::filesystem::exists(held, ignored)) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(5ms);
  }
  meanwhile(data);
  std::filesystem::remove(hold, ignored);
  return wait_until_ready();
}
