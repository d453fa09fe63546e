// The module that speaks to a datagrid with the protocol of Redis.
#include <arpa/inet.h>
#include <hiredis/hiredis.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>

#include <datagrid/Grid_Store.h>
#include <strings/Export.h>

namespace {

using Clock = std::chrono::steady_clock;

struct FreeContext {
  void operator()(redisContext* context) const { redisFree(context); }
};
struct FreeReader {
  void operator()(redisReader* reader) const { redisReaderFree(reader); }
};

timeval time_of(int milliseconds) { return {milliseconds / 1000, milliseconds % 1000 * 1000}; }

// --- what the reader makes of an answer ----------------------------------------------------------
//
// The answer itself, in place of a tree of replies: lists of lists and long ones, which would take
// far more memory than they have bytes, are errors as soon as they begin.

Grid_Answer& answer_of(const redisReadTask* task) {
  return *static_cast<Grid_Answer*>(task->privdata);
}

void* take_text(const redisReadTask* task, char* text, size_t length) try {
  Grid_Answer& answer = answer_of(task);
  if (task->parent) {
    if (task->type == REDIS_REPLY_ERROR) return nullptr;
    answer.texts.emplace_back(std::string(text, length));
  } else {
    answer.kind = task->type == REDIS_REPLY_ERROR ? Grid_Answer::REFUSAL : Grid_Answer::TEXT;
    answer.text.assign(text, length);
  }
  return &answer;
} catch (const std::exception&) {
  return nullptr;
}
void* take_list(const redisReadTask* task, int elements) {
  if (task->parent || elements < 0 || elements > static_cast<int>(Grid_Store::MOST_TEXTS)) {
    return nullptr;
  }
  answer_of(task).kind = Grid_Answer::TEXTS;
  return &answer_of(task);
}
void* take_number(const redisReadTask* task, long long number) {
  if (task->parent) return nullptr;
  answer_of(task).kind = Grid_Answer::NUMBER;
  answer_of(task).number = number;
  return &answer_of(task);
}
void* take_nothing(const redisReadTask* task) try {
  if (task->parent) answer_of(task).texts.emplace_back(std::nullopt);
  return &answer_of(task);
} catch (const std::exception&) {
  return nullptr;
}
void keep(void*) {}

redisReplyObjectFunctions as_answer = {take_text, take_list, take_number, take_nothing, keep};

// -------------------------------------------------------------------------------------------------

class Redis_Store : public Grid_Store {
 public:
  explicit Redis_Store(const Grid_Address& address)
      : m_wait(address.wait),
        m_context(redisConnectWithTimeout(address.host.c_str(), address.port, time_of(m_wait))),
        m_reader(redisReaderCreateWithFunctions(&as_answer)) {
    if (!m_context || !m_reader || m_context->err) {
      fail(m_context && m_context->err ? m_context->errstr : "no memory");
      return;
    }
    redisSetTimeout(m_context.get(), time_of(m_wait));
    if (!address.password.empty() && !is_done({"AUTH", address.password}, address.user)) return;
    is_done({"PING"}, "");
  }

  bool is_open() const override { return m_context != nullptr; }
  const std::string& error() const override { return m_error; }

  bool ask(const Words& words, size_t most_bytes, Grid_Answer& answer) override {
    answer = Grid_Answer();
    if (!m_context) return false;
    m_until = Clock::now() + std::chrono::milliseconds(m_wait);
    if (!send(words) || !receive(most_bytes, answer)) return false;
    if (answer.kind == Grid_Answer::REFUSAL) m_error = answer.text;
    return true;
  }

  std::string peer() const override {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    char text[INET6_ADDRSTRLEN] = "";
    if (!m_context || getpeername(m_context->fd, reinterpret_cast<sockaddr*>(&address), &size)) {
      return text;
    }
    const void* bytes = &reinterpret_cast<sockaddr_in&>(address).sin_addr;
    if (address.ss_family == AF_INET6) {
      bytes = &reinterpret_cast<sockaddr_in6&>(address).sin6_addr;
    }
    inet_ntop(address.ss_family, bytes, text, sizeof text);
    return text;
  }

 private:
  // Of a new connection, which is closed when the grid refuses. The user goes before the last word.
  bool is_done(Words words, std::string_view user) {
    constexpr size_t most = 4096;
    if (!user.empty()) words.insert(words.end() - 1, user);
    Grid_Answer answer;
    if (!ask(words, most, answer)) return false;
    return answer.kind != Grid_Answer::REFUSAL || fail(answer.text);
  }

  bool send(const Words& words) {
    std::vector<const char*> texts;
    std::vector<size_t> lengths;
    for (const std::string_view word : words) {
      texts.push_back(word.data());
      lengths.push_back(word.size());
    }
    const int count = static_cast<int>(words.size());
    if (redisAppendCommandArgv(m_context.get(), count, texts.data(), lengths.data()) != REDIS_OK) {
      return fail(m_context->errstr);
    }
    for (int is_sent = 0; !is_sent;) {
      if (redisBufferWrite(m_context.get(), &is_sent) != REDIS_OK) return fail(m_context->errstr);
      if (!is_sent && Clock::now() >= m_until) return fail("it does not take what it is sent");
    }
    return true;
  }

  bool receive(size_t most_bytes, Grid_Answer& answer) {
    m_reader->privdata = &answer;
    size_t received = 0;
    for (void* whole = nullptr; !whole;) {
      const ssize_t count = received ? receive_more() : receive_some();
      if (count <= 0) return false;
      received += static_cast<size_t>(count);
      if (received > most_bytes) return fail("its answer is too long");
      if (redisReaderFeed(m_reader.get(), m_buffer, static_cast<size_t>(count)) != REDIS_OK ||
          redisReaderGetReply(m_reader.get(), &whole) != REDIS_OK) {
        return fail(std::string("its answer makes no sense: ") + m_reader->errstr);
      }
    }
    return true;
  }
  // The socket itself waits as long as an answer may take; what follows has less time.
  ssize_t receive_some() {
    const ssize_t count = recv(m_context->fd, m_buffer, sizeof m_buffer, 0);
    if (count > 0) return count;
    if (count < 0 && errno == EINTR) return receive_more();
    if (count == 0) return fail("it closed the connection");
    const bool is_late = errno == EAGAIN || errno == EWOULDBLOCK;
    return fail(is_late ? "it does not answer in time" : std::strerror(errno));
  }
  ssize_t receive_more() {
    using std::chrono::milliseconds;
    const auto left = std::chrono::ceil<milliseconds>(m_until - Clock::now()).count();
    pollfd readable = {m_context->fd, POLLIN, 0};
    const int ready = left > 0 ? poll(&readable, 1, static_cast<int>(left)) : 0;
    if (ready < 0 && errno == EINTR) return receive_more();
    if (ready <= 0) return fail(ready ? std::strerror(errno) : "it does not answer in time");
    return receive_some();
  }

  // `reason` may stand in the context.
  bool fail(const std::string& reason) {
    m_error = reason;
    m_context.reset();
    return false;
  }

  const int m_wait;
  std::unique_ptr<redisContext, FreeContext> m_context;  // null once it is closed
  std::unique_ptr<redisReader, FreeReader> m_reader;
  std::string m_error;
  Clock::time_point m_until;
  char m_buffer[size_t{16} << 10];
};

}  // namespace

extern "C" HALVORIA_API Grid_Store* halvoria_grid_open_store(const Grid_Address& address,
                                                             std::string& reason) try {
  auto store = std::make_unique<Redis_Store>(address);
  if (store->is_open()) return store.release();
  reason = store->error();
  return nullptr;
} catch (const std::exception&) {
  reason = "no memory";
  return nullptr;
}
