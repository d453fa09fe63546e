// A service on loopback whose requests say what it is to do, and clients of it.
#pragma once

#include <condition_variable>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <connection/Conn_Helper.h>
#include <connection/Conn_Server.h>
#include <gtest/gtest.h>

enum : uint32_t { FLD_TEXT = 5020004, FLD_NUMBER = 5020016, FLD_CHUNK = 5020008 };
constexpr auto kEnough = std::chrono::seconds(20);

// Something that threads wait for.
class Signal {
 public:
  void give() {
    change([this] { ++m_count; });
  }
  bool wait(int count = 1) {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, kEnough, [&] { return m_count >= count; });
  }
  int count() {
    const std::lock_guard guard(m_mutex);
    return m_count;
  }

 private:
  void change(const std::function<void()>& by) {
    const std::lock_guard guard(m_mutex);
    by();
    m_changed.notify_all();
  }
  std::mutex m_mutex;
  std::condition_variable m_changed;
  int m_count = 0;
};

// Threads that answer requests off the waiting threads.
class Workers {
 public:
  ~Workers() { join(); }
  void run(std::function<void()> work) {
    const std::lock_guard guard(m_mutex);
    m_threads.emplace_back(std::move(work));
  }
  void join() {
    std::vector<std::thread> all;
    {
      const std::lock_guard guard(m_mutex);
      all.swap(m_threads);
    }
    for (auto& thread : all) thread.join();
  }

 private:
  std::mutex m_mutex;
  std::vector<std::thread> m_threads;
};

// ECHO and its kin send the text back; the rest is said at each.
struct EchoHandler : Conn_Handler {
  void opened(Conn_Session& session) override {
    session.attachment = std::make_shared<uint64_t>(session.id());
    open_now.give();
  }
  void closed(Conn_Session& session) override {
    const std::lock_guard guard(mutex);
    EXPECT_EQ(*static_cast<uint64_t*>(session.attachment.get()), session.id());
    EXPECT_TRUE(ended.insert(session.id()).second) << "closed twice";
    closed_now.give();
  }

  void request(Conn_Session& session, std::string_view name, std::string_view fields) override {
    requests.give();
    const auto held = session.shared_from_this();
    if (name == "ECHO") return echo(session, fields), session.finish();
    if (name == "ECHO_LATER") {
      return workers.run([this, held, fields] { echo(*held, fields), held->finish(); });
    }
    if (name == "ONE_WAY") return session.skip();
    if (name == "REFUSE") return session.refuse("not today");
    if (name == "STREAM") return stream(held, fields, false);
    if (name == "STREAM_LATER") return stream(held, fields, true);
    if (name == "STREAM_REFUSED") {
      session.answer().WriteString(FLD_CHUNK, "aaa");
      return session.send_part([held](bool) { held->refuse("in the middle"); });
    }
    if (name == "WAIT") {  // until the test lets it go on
      return workers.run([this, held, fields] {
        EXPECT_TRUE(go_on.wait());
        echo(*held, fields), held->finish();
      });
    }
    if (name == "THROW") throw std::runtime_error("a fault in the service");
    if (name == "CLOSE") return session.close(), echo(session, fields), session.finish();
    if (name == "NEVER") return;  // answers nothing, ever
    session.refuse("unknown");
  }

  void echo(Conn_Session& session, std::string_view fields) {
    Conn_FormReader reader(fields);
    std::string_view text;
    if (!reader.ReadString(FLD_TEXT, text)) return;
    session.answer().WriteString(FLD_TEXT, text);
    session.answer().WriteInt(FLD_NUMBER, static_cast<int>(session.id()));
  }

  // So many chunks, each a frame, whose bytes say which one it is.
  void stream(const std::shared_ptr<Conn_Session>& session, std::string_view fields,
              bool is_later) {
    int count = 0;
    EXPECT_TRUE(Conn_FormReader(fields).ReadInt(FLD_NUMBER, count));
    next_chunk(session, 0, count, is_later);
  }
  void next_chunk(const std::shared_ptr<Conn_Session>& session, int done, int count,
                  bool is_later) {
    std::string chunk(chunk_size, static_cast<char>('a' + done % 26));
    session->answer().WriteString(FLD_CHUNK, chunk);
    if (done + 1 == count) return session->finish();
    session->send_part([this, session, done, count, is_later](bool is_there) {
      if (!is_there) return session->skip();
      const auto next = [=, this] { next_chunk(session, done + 1, count, is_later); };
      is_later ? workers.run(next) : next();
    });
  }

  size_t chunk_size = 60000;
  Signal open_now, closed_now, requests, go_on;
  std::mutex mutex;
  std::set<uint64_t> ended;  // guarded by mutex
  Workers workers;
};

inline Conn_ServerSettings echo_settings() {
  Conn_ServerSettings settings;
  settings.service_name = "ECHO_SERVICE";
  settings.response_prefix = "RES_";
  return settings;
}

struct EchoServer {
  explicit EchoServer(const Conn_ServerSettings& settings = echo_settings()) {
    server = std::make_unique<Conn_Server>(settings, handler);
    std::string reason;
    EXPECT_TRUE(server->start(reason)) << reason;
  }
  ~EchoServer() {
    server.reset();
    handler.workers.join();
  }
  int port() const { return server->port(); }

  EchoHandler handler;
  std::unique_ptr<Conn_Server> server;
};

struct EchoParams final : ConnHelper_Params {
  EchoParams(const RWCString& given) : ConnHelper_Params(nobody, nobody), name(given) {}
  const RWCString& GetCommandName() const override { return name; }
  const char* GetResponsePrefix() const override { return "RES_"; }
  int GetServiceId() const override { return 0; }
  static inline const RWCString nobody;
  const RWCString name;
};

struct EchoConnector : Conn_SyncConnector {
  explicit EchoConnector(int port, const char* service = "ECHO_SERVICE") {
    m_service_name = service;
    EXPECT_EQ(InitConn("127.0.0.1", port, "", "test", 1, 1), 1);
  }
  // The text that comes back; "failed" when there is no answer.
  std::string ask(const char* name, std::string_view text) {
    EchoParams params(name);
    Conn_Helper helper("EchoConnector::ask", *this, params, true, true);
    helper.Writer().WriteString(FLD_TEXT, text);
    RWCString answer;
    if (helper.GetResponseHeaders() != 0 || !helper.Read(FLD_TEXT, answer)) return "failed";
    EXPECT_TRUE(helper.Read(FLD_NUMBER, session));
    return answer.str();
  }
  // The number of whole chunks that came, -1 when the stream ended before its end.
  int stream(const char* name, int count, const std::function<void(int)>& each = {}) {
    EchoParams params(name);
    Conn_Helper helper("EchoConnector::stream", *this, params, true, false);
    helper.Writer().WriteInt(FLD_NUMBER, count);
    if (helper.GetResponseHeaders() != 0) return -1;
    int chunks = 0;
    for (std::string_view chunk; helper.ReadView(FLD_CHUNK, chunk); ++chunks) {
      EXPECT_EQ(chunk.find_first_not_of(static_cast<char>('a' + chunks % 26)), chunk.npos);
      if (each) each(chunks);
    }
    return helper.IsValid() ? chunks : -1;
  }
  int session = 0;  // that answered last
};
