// The module that speaks to a datagrid with the protocol of Redis.
#include <hiredis/hiredis.h>
#include <sys/time.h>

#include <initializer_list>
#include <memory>
#include <string_view>
#include <vector>

#include <datagrid/Grid_Store.h>
#include <strings/Export.h>

namespace {

constexpr timeval kWaitAtMost = {1, 0};

struct FreeReply {
  void operator()(redisReply* reply) const { freeReplyObject(reply); }
};
using Reply = std::unique_ptr<redisReply, FreeReply>;

struct FreeContext {
  void operator()(redisContext* context) const { redisFree(context); }
};
using Context = std::unique_ptr<redisContext, FreeContext>;

class Redis_Store : public Grid_Store {
 public:
  explicit Redis_Store(const Grid_Address& address)
      : m_context(redisConnectWithTimeout(address.host.c_str(), address.port, kWaitAtMost)) {
    if (!m_context || m_context->err) {
      fail(m_context ? m_context->errstr : "no memory");
      return;
    }
    redisSetTimeout(m_context.get(), kWaitAtMost);
    const bool is_known =
        address.password.empty() ||
        (address.user.empty() ? ask({"AUTH", address.password})
                              : ask({"AUTH", address.user, address.password})) != nullptr;
    if (!is_known || !ask({"PING"})) fail(m_error);
  }

  bool is_open() const override { return m_context != nullptr; }

  bool get(const std::string& key, std::string& value) override {
    const Reply reply = ask({"GET", key});
    if (!reply || reply->type != REDIS_REPLY_STRING) return false;
    value.assign(reply->str, reply->len);
    return true;
  }
  bool put(const std::string& key, const std::string& value) override {
    return ask({"SET", key, value}) != nullptr;
  }
  bool remove(const std::string& key) override {
    const Reply reply = ask({"DEL", key});
    return reply && reply->type == REDIS_REPLY_INTEGER && reply->integer > 0;
  }
  const std::string& error() const override { return m_error; }

 private:
  // Null when the connection failed, which is closed then, and when the answer is an error.
  Reply ask(std::initializer_list<std::string_view> words) {
    if (!m_context) return nullptr;
    std::vector<const char*> texts;
    std::vector<size_t> lengths;
    for (const std::string_view word : words) {
      texts.push_back(word.data());
      lengths.push_back(word.size());
    }
    Reply reply(static_cast<redisReply*>(redisCommandArgv(
        m_context.get(), static_cast<int>(texts.size()), texts.data(), lengths.data())));
    if (!reply) {
      fail(m_context->errstr);
    } else if (reply->type == REDIS_REPLY_ERROR) {
      m_error.assign(reply->str, reply->len);
      reply.reset();
    }
    return reply;
  }
  // `reason` may stand in the context.
  void fail(const std::string& reason) {
    m_error = reason;
    m_context.reset();
  }

  Context m_context;  // null once it is closed
  std::string m_error;
};

}  // namespace

extern "C" HALVORIA_API Grid_Store* halvoria_grid_open_store(const Grid_Address& address,
                                                             std::string& reason) {
  auto store = std::make_unique<Redis_Store>(address);
  if (store->is_open()) return store.release();
  reason = store->error();
  return nullptr;
}
