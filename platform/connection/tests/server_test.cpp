#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <limits>
#include <mutex>
#include <random>
#include <set>
#include <thread>

#include <gmock/gmock.h>
#include <logging/Log_Capture.h>

#include "echo_service.h"
#include "raw_socket.h"

// A system that gives so many threads more.
static std::atomic<int> threads_left{std::numeric_limits<int>::max()};
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*run)(void*), void* argument) {
  if (threads_left.fetch_sub(1) <= 0) return EAGAIN;
  static const auto real =
      reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
  return real(thread, attributes, run, argument);
}

namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;

int lines_with(const Log_Capture& log, std::string_view part) {
  int count = 0;
  for (const auto& line : log.lines()) count += line.text.find(part) != std::string::npos;
  return count;
}

TEST(Server, SaysWhyItCannotListen) {
  EchoServer service;
  struct {
    const char* address;
    std::string reason;
  } const rows[] = {{"127.0.0.1", "127.0.0.1:" + std::to_string(service.port()) +
                                      " is in use by another program"},
                    {"192.0.2.1", "cannot listen on 192.0.2.1:" + std::to_string(service.port()) +
                                      ": Cannot assign requested address"},
                    {"not an address", "<not an address> is no address of this host"}};
  for (const auto& row : rows) {
    Conn_ServerSettings settings = echo_settings();
    settings.address = row.address;
    settings.port = service.port();
    EchoHandler handler;
    Conn_Server second(settings, handler);
    std::string reason;
    EXPECT_FALSE(second.start(reason));
    EXPECT_EQ(reason, row.reason);
  }
  EXPECT_EQ(EchoConnector(service.port()).ask("ECHO", "still"), "still");
}

TEST(Server, SaysThatThereAreNoThreadsForIt) {
  Conn_ServerSettings settings = echo_settings();
  settings.threads = 3;
  for (const int given : {0, 2}) {
    EchoHandler handler;
    Conn_Server server(settings, handler);
    std::string reason;
    threads_left = given;
    EXPECT_FALSE(server.start(reason));
    EXPECT_EQ(reason, "the system gives no more threads");
    settings.port = server.port();
  }
  threads_left = std::numeric_limits<int>::max();
  EchoServer service(settings);  // at the port of the other two
  EXPECT_EQ(EchoConnector(service.port()).ask("ECHO", "x"), "x");
}

TEST(Server, RefusesWhatIsNotWellFormedAndGoesOnWithTheOthers) {
  Conn_ServerSettings settings = echo_settings();
  settings.threads = 1;
  settings.max_frame = 1000;
  EchoServer service(settings);
  EchoConnector working(service.port());
  EXPECT_EQ(working.ask("ECHO", "before"), "before");
  RawSocket silent(RawSocket::connect_to(service.port()));

  Conn_FormWriter nameless, several;
  nameless.begin("");
  several.begin("ECHO");
  several.introduce("ECHO_SERVICE", 1);
  const struct {
    std::string bytes;
    const char* reason;
  } rows[] = {
      {raw_length(0xffffffff), "a request of 4294967295 bytes is too large, the limit is 1000"},
      {raw_request("ECHO", std::string(2000, 'x')), "is too large, the limit is 1000"},
      {"GET / HTTP/1.1\r\n\r\n", "is too large"},
      {raw_length(0), "not well formed"},
      {raw_length(3) + "abc", "not well formed"},
      {std::string(nameless.finish()), "not well formed"},
      {std::string(several.finish(true)), "several frames"},
      {raw_request("ECHO", "x", "OTHER_SERVICE"), "another service"},
      {raw_request("ECHO", "x", "ECHO_SERVICE", 2), "another version"},
      {std::string(Conn_FormWriter().finish()), "not well formed"},
  };
  Log_Capture log;
  for (const auto& row : rows) {
    log.clear();
    RawSocket client(RawSocket::connect_to(service.port()));
    client.send(row.bytes);
    client.send(std::string(5000, '\0'));  // what it is in the middle of sending
    EXPECT_THAT(client.receive_refusal(), HasSubstr(row.reason));
    EXPECT_TRUE(client.is_closed());
    EXPECT_EQ(lines_with(log, "connection of 127.0.0.1:"), 1);
    EXPECT_EQ(working.ask("ECHO", "still"), "still");
  }
  EXPECT_EQ(working.session, 1);
  Conn_FormWriter unintroduced;
  unintroduced.begin("ECHO");
  RawSocket client(RawSocket::connect_to(service.port()));
  client.send(unintroduced.finish());
  EXPECT_THAT(client.receive_refusal(), HasSubstr("which service"));
  // Half a request and then no more ends the connection with a line, and nothing without one.
  log.clear();
  RawSocket half(RawSocket::connect_to(service.port()));
  half.send(raw_request("ECHO").substr(0, 9));
  half.end_sending();
  EXPECT_TRUE(half.is_closed());
  EXPECT_EQ(lines_with(log, "it ended within a request"), 1);
}

TEST(Server, ClosesConnectionsThatMakeNoProgress) {
  Conn_ServerSettings settings = echo_settings();
  settings.idle = settings.progress = milliseconds(100);
  EchoServer service(settings);
  service.handler.chunk_size = 1 << 20;
  Log_Capture log;
  RawSocket silent(RawSocket::connect_to(service.port()));
  RawSocket half(RawSocket::connect_to(service.port()));
  half.send(raw_request("ECHO").substr(0, 9));
  RawSocket unread(RawSocket::connect_to(service.port()));
  Conn_FormWriter stream;
  stream.begin("STREAM");
  stream.introduce("ECHO_SERVICE", 1);
  stream.WriteInt(FLD_NUMBER, 1000);
  unread.send(stream.finish());
  EXPECT_TRUE(service.handler.closed_now.wait(3));
  EXPECT_TRUE(silent.is_closed() && half.is_closed());
  EXPECT_EQ(lines_with(log, "it sent nothing for too long"), 1);
  EXPECT_EQ(lines_with(log, "it does not finish its request"), 1);
  EXPECT_EQ(lines_with(log, "it does not take its answer"), 1);
  EXPECT_EQ(service.server->sessions(), 0);
}

TEST(Server, WaitsForASlowReaderWithoutKeepingWhatItSends) {
  EchoServer service;
  service.handler.chunk_size = 1 << 20;
  EchoConnector slow(service.port()), other(service.port());
  // The others are answered while it reads chunk by chunk.
  const auto ask_now_and_then = [&](int chunk) {
    if (chunk % 10 > 0) return;
    EXPECT_EQ(other.ask("ECHO", "meanwhile"), "meanwhile");
  };
  EXPECT_EQ(slow.stream("STREAM", 60, ask_now_and_then), 60);
}

TEST(Server, RefusesTheConnectionThatIsOneTooMany) {
  Conn_ServerSettings settings = echo_settings();
  settings.max_sessions = 2;
  EchoServer service(settings);
  Log_Capture log;
  {
    EchoConnector first(service.port()), second(service.port()), third(service.port());
    EXPECT_EQ(first.ask("ECHO", "1"), "1");
    EXPECT_EQ(second.ask("ECHO", "2"), "2");
    EXPECT_EQ(third.ask("ECHO", "3"), "failed");
    EXPECT_THAT(third.LastError().str(),
                HasSubstr("refused the connection: the sessions are full: there are 2"));
    EXPECT_EQ(lines_with(log, "refused: the sessions are full: there are 2"), 1);
    EXPECT_EQ(service.server->sessions(), 2);
    second.Disconnect();
    EXPECT_TRUE(service.handler.closed_now.wait(1));
    EXPECT_EQ(third.ask("ECHO", "3"), "3");
  }
  EXPECT_TRUE(service.handler.closed_now.wait(3));
  EXPECT_EQ(service.handler.open_now.count(), 3);
}

TEST(Server, AnswersRequestsInTheirOrderThoughTheyComeAtOnce) {
  EchoServer service;
  RawSocket client(RawSocket::connect_to(service.port()));
  std::string all;
  constexpr int count = 3000;
  for (int i = 0; i < count; ++i) {
    const char* names[] = {"ECHO", "ECHO_LATER", "ONE_WAY"};
    all += raw_request(i % 100 ? (i % 7 ? names[0] : names[2]) : names[1], std::to_string(i));
  }
  std::thread sender([&] { client.send(all); });
  for (int i = 0; i < count; ++i) {
    if (i % 100 && i % 7 == 0) continue;
    const std::string frame = client.receive_frame();
    ASSERT_THAT(frame, HasSubstr(std::to_string(i)));
  }
  sender.join();
}

TEST(Server, LetsAHandlerHoldASessionWhoseConnectionIsGone) {
  EchoServer service;
  {
    EchoConnector connector(service.port());
    EchoParams params("WAIT");
    Conn_Helper helper("test", connector, params, false, false);
    helper.FreeLogGuard();
    EXPECT_TRUE(service.handler.requests.wait(1));
  }
  EchoConnector other(service.port());
  EXPECT_EQ(other.ask("ECHO", "meanwhile"), "meanwhile");
  EXPECT_EQ(service.handler.closed_now.count(), 0);
  service.handler.go_on.give();
  EXPECT_TRUE(service.handler.closed_now.wait(1));
  EXPECT_EQ(other.ask("CLOSE", "answered"), "answered");
  EXPECT_TRUE(service.handler.closed_now.wait(2));

  // Of a stream whose reader is gone, the handler is told.
  service.handler.chunk_size = 1 << 20;
  RawSocket reader(RawSocket::connect_to(service.port()));
  Conn_FormWriter stream;
  stream.begin("STREAM_LATER");
  stream.introduce("ECHO_SERVICE", 1);
  stream.WriteInt(FLD_NUMBER, 1000000);
  reader.send(stream.finish());
  EXPECT_EQ(reader.receive(1000).size(), 1000u);
  reader.close();
  EXPECT_TRUE(service.handler.closed_now.wait(3));
}

TEST(Server, HasEachWaitingThreadMakeACall) {
  EchoServer service;
  std::mutex mutex;
  std::set<std::thread::id> threads;
  Signal called;
  service.server->post_to_each([&] {
    const std::lock_guard guard(mutex);
    threads.insert(std::this_thread::get_id());
    called.give();
  });
  EXPECT_TRUE(called.wait(2));
  const std::lock_guard guard(mutex);
  EXPECT_EQ(threads.size(), 2u);
  EXPECT_FALSE(threads.contains(std::this_thread::get_id()));
}

TEST(Server, StopsWhenRunningRequestsAreAnswered) {
  for (const bool is_answered_in_time : {true, false}) {
    EchoServer service;
    EchoConnector idle(service.port()), running(service.port());
    EXPECT_EQ(idle.ask("ECHO", ""), "");
    std::string answer;
    std::thread asking([&] { answer = running.ask("WAIT", "answered"); });
    EXPECT_TRUE(service.handler.requests.wait(2));
    std::thread stopping([&] {
      service.server->stop(is_answered_in_time ? milliseconds(kEnough) : milliseconds(50));
    });
    EXPECT_TRUE(service.handler.closed_now.wait(1));  // the idle one
    if (!is_answered_in_time) stopping.join();
    service.handler.go_on.give();
    if (is_answered_in_time) stopping.join();
    asking.join();
    EXPECT_EQ(answer, is_answered_in_time ? "answered" : "failed");
    EXPECT_EQ(service.handler.closed_now.count(), is_answered_in_time ? 2 : 1);
    EXPECT_EQ(idle.ask("ECHO", ""), "failed");
  }
}

TEST(Server, AnswersManyClientsAtOnce) {
  Conn_ServerSettings settings = echo_settings();
  settings.threads = 3;
  EchoServer service(settings);
  service.handler.chunk_size = 3000;
  std::atomic<int> wrong{0};
  std::vector<std::thread> clients;
  constexpr int count = 24;
  for (unsigned client = 0; client < count; ++client) {
    clients.emplace_back([&, client] {
      std::mt19937 random(client);
      EchoConnector connector(service.port());
      for (int i = 0; i < 150; ++i) {
        const std::string text(random() % 20000, static_cast<char>('a' + random() % 26));
        switch (random() % 6) {
          case 0:
            wrong += connector.stream("STREAM", 20) != 20;
            break;
          case 1:
            wrong += connector.stream("STREAM_LATER", 3) != 3;
            break;
          case 2:
            wrong += connector.ask("ECHO_LATER", text) != text;
            break;
          case 3:
            connector.Disconnect();
            break;
          default:
            wrong += connector.ask("ECHO", text) != text;
        }
      }
    });
  }
  for (auto& client : clients) client.join();
  EXPECT_EQ(wrong, 0);
  service.server->stop(milliseconds(kEnough));
  EXPECT_EQ(service.handler.closed_now.count(), service.handler.open_now.count());
}

}  // namespace
