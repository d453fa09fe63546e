#include <unistd.h>

#include <hiredis/hiredis.h>

#include <thread>

#include <common/need.h>
#include <peers/wire_peer.h>

namespace bench {
namespace {

using context = std::unique_ptr<redisContext, decltype(&redisFree)>;
using reply = std::unique_ptr<redisReply, decltype(&freeReplyObject)>;

context connect_to(int port) { return {redisConnect("127.0.0.1", port), redisFree}; }

bool is_connected(const context& c) { return c && c->err == 0; }

class redis_client final : public wire_client {
 public:
  explicit redis_client(int port) : m_context(connect_to(port)) {
    need(is_connected(m_context), "a connection to redis");
  }
  size_t get(const std::string& path) override {
    const reply answer(
        static_cast<redisReply*>(redisCommand(m_context.get(), "GET %b", path.data(), path.size())),
        freeReplyObject);
    need(answer && answer->type == REDIS_REPLY_STRING, "an answer of redis");
    return answer->len;
  }
  void set(const std::string& path, const std::string& value) {
    const reply done(
        static_cast<redisReply*>(redisCommand(m_context.get(), "SET %b %b", path.data(),
                                              path.size(), value.data(), value.size())),
        freeReplyObject);
    need(done && done->type == REDIS_REPLY_STATUS, "setting a value of redis");
  }

 private:
  context m_context;
};

bool is_there(int port) {
  for (int i = 0; i < 200; ++i) {
    if (is_connected(connect_to(port))) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(25));
  }
  return false;
}

}  // namespace

std::unique_ptr<wire_peer> redis_get(const wire_data& data, const std::string& folder) {
  if (::system("command -v redis-server > /dev/null") != 0) return nullptr;
  const auto server = std::make_shared<wire_server>([&](const auto& told) {
    const int port = free_port();
    told(port);
    const std::string text = std::to_string(port);
    ::execlp("redis-server", "redis-server", "--port", text.c_str(), "--bind", "127.0.0.1",
             "--save", "", "--appendonly", "no", "--dir", folder.c_str(), "--logfile", "/dev/null",
             nullptr);
  });
  const int port = server->port();
  need(is_there(port), "redis that answers");
  redis_client loading(port);
  for (const auto& [path, value] : data) loading.set(path, value);
  return std::make_unique<wire_peer>(
      wire_peer{"redis GET", [port] { return std::make_unique<redis_client>(port); }, server});
}

}  // namespace bench
