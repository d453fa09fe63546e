#include <servers/Test_Redis.h>

#include <fcntl.h>
#include <hiredis/hiredis.h>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <thread>

extern char** environ;

namespace {

using namespace std::chrono_literals;

// Runs the server until its input ends, which it does when the test is gone.
constexpr char kWatch[] = R"(
trap '' INT TERM HUP
port=$1; shift
redis-server --port "$port" --bind 127.0.0.1 --save '' --appendonly no --dir / --daemonize no "$@" \
  </dev/null >/dev/null 2>&1 &
cat >/dev/null
kill -KILL $!
wait
)";

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

}  // namespace

Test_Redis::Test_Redis(const std::vector<std::string>& settings, int port) {
  // Another program may take a free port before the server does.
  for (int attempt = 0; attempt < 5 && !is_running(); ++attempt) {
    m_port = port ? port : free_port();
    if (!start(settings)) stop();
  }
}

Test_Redis::~Test_Redis() { stop(); }

bool Test_Redis::start(const std::vector<std::string>& settings) {
  std::vector<std::string> words = {"sh", "-c", kWatch, "sh", std::to_string(m_port)};
  words.insert(words.end(), settings.begin(), settings.end());
  std::vector<char*> texts;
  for (std::string& word : words) texts.push_back(word.data());
  texts.push_back(nullptr);
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[0], 0);
  if (posix_spawnp(&m_watcher, "sh", &actions, nullptr, texts.data(), environ) != 0) m_watcher = -1;
  posix_spawn_file_actions_destroy(&actions);
  close(ends[0]);
  m_pipe = ends[1];
  const auto end = std::chrono::steady_clock::now() + 10s;
  while (is_running() && std::chrono::steady_clock::now() < end) {
    if (!ask({"PING"}).empty()) return true;
    std::this_thread::sleep_for(5ms);
  }
  return false;
}

void Test_Redis::stop() {
  if (m_pipe >= 0) close(m_pipe);
  if (m_watcher > 0) waitpid(m_watcher, nullptr, 0);
  m_pipe = m_watcher = -1;
}

std::string Test_Redis::ask(const std::vector<std::string>& words) const {
  const std::unique_ptr<redisContext, decltype(&redisFree)> context(
      redisConnectWithTimeout("127.0.0.1", m_port, {5, 0}), &redisFree);
  if (!context || context->err) return {};
  std::vector<const char*> texts;
  for (const std::string& word : words) texts.push_back(word.c_str());
  const std::unique_ptr<void, decltype(&freeReplyObject)> answer(
      redisCommandArgv(context.get(), static_cast<int>(texts.size()), texts.data(), nullptr),
      &freeReplyObject);
  const auto* reply = static_cast<const redisReply*>(answer.get());
  if (!reply) return {};
  if (reply->type == REDIS_REPLY_INTEGER) return std::to_string(reply->integer);
  return reply->str ? std::string(reply->str, reply->len) : std::string();
}
