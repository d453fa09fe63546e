#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <sys/resource.h>

#include <filesystem>
#include <fstream>
#include <limits>
#include <map>

#include <connection/Conn_PingClient.h>
#include <connection/Conn_TokenManagerHook.h>
#include <gmock/gmock.h>
#include <logging/Log_Capture.h>

#include "echo_service.h"
#include "raw_socket.h"

// A name server that does not answer before the test lets it.
static Signal slow_lookup;
extern "C" int getaddrinfo(const char* host, const char* port, const addrinfo* wanted,
                           addrinfo** found) {
  if (host == std::string_view("slow.test")) {
    if ((wanted->ai_flags & AI_NUMERICHOST) == 0) slow_lookup.wait();
    return EAI_NONAME;
  }
  static const auto real =
      reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
  return real(host, port, wanted, found);
}

namespace {

using std::chrono::milliseconds;
using testing::AnyOf;
using testing::HasSubstr;
using testing::StartsWith;

constexpr milliseconds kShort(150), kLong(20000);

// Longer than a connection is trusted to be there without being looked at.
void let_it_idle() { std::this_thread::sleep_for(milliseconds(110)); }

std::string address_of(int port) { return "127.0.0.1:" + std::to_string(port); }

// A service that can be ended and started again at the same port.
struct Restarted {
  void end() { service.reset(); }
  void begin() {
    Conn_ServerSettings settings = echo_settings();
    settings.port = port;
    service = std::make_unique<EchoServer>(settings);
  }
  std::unique_ptr<EchoServer> service = std::make_unique<EchoServer>();
  const int port = service->port();
};

int lines_with(const Log_Capture& log, std::string_view part, int level) {
  int count = 0;
  for (const auto& line : log.lines()) {
    count += line.level == level && line.text.find(part) != std::string::npos;
  }
  return count;
}

TEST(Connector, AsksOverOneConnection) {
  EchoServer service;
  EchoConnector connector(service.port());
  EXPECT_FALSE(connector.IsConnected());
  for (const char* name : {"ECHO", "ECHO_LATER", "ECHO"}) {
    EXPECT_EQ(connector.ask(name, "some text"), "some text");
    EXPECT_EQ(connector.session, 1);
  }
  const std::string large(5 << 20, 'x');
  EXPECT_EQ(connector.ask("ECHO", large), large);
  EXPECT_EQ(connector.session, 1);
  connector.Disconnect();
  EXPECT_EQ(connector.ask("ECHO", ""), "");
  EXPECT_EQ(connector.session, 2);
}

// Handles of this process's sockets, and whether a program that is started gets them. Asked of the
// system without touching them: they are other threads'.
std::map<int, bool> open_sockets() {
  std::map<int, bool> sockets;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    const std::string what = std::filesystem::read_symlink(entry.path(), gone).string();
    if (what.rfind("socket:", 0) != 0) continue;
    const std::string handle = entry.path().filename();
    std::ifstream info("/proc/self/fdinfo/" + handle);
    std::string word;
    while (info >> word && word != "flags:") {
    }
    info >> word;
    sockets[std::stoi(handle)] = (std::stoul(word, nullptr, 8) & O_CLOEXEC) == 0;
  }
  return sockets;
}

TEST(Connector, AndItsServiceLeaveNoSocketToProgramsThatAreStarted) {
  const std::map<int, bool> before = open_sockets();
  EchoServer service;
  EchoConnector connector(service.port());
  EXPECT_EQ(connector.ask("ECHO", "some text"), "some text");
  int count = 0;
  for (const auto& [handle, is_left] : open_sockets()) {
    if (before.count(handle)) continue;
    EXPECT_FALSE(is_left) << handle;
    ++count;
  }
  EXPECT_EQ(count, 3) << "both ends, and what listens";
}

TEST(Connector, ReadsStreamsOfManyFrames) {
  EchoServer service;
  EchoConnector connector(service.port());
  for (const char* name : {"STREAM", "STREAM_LATER"}) {
    for (const int count : {1, 2, 300}) EXPECT_EQ(connector.stream(name, count), count);
  }
  // What is left of an answer is passed over.
  EchoParams params("STREAM");
  {
    Conn_Helper helper("test", connector, params, true, false);
    helper.Writer().WriteInt(FLD_NUMBER, 100);
    std::string_view chunk;
    EXPECT_EQ(helper.GetResponseHeaders(), 0);
    EXPECT_TRUE(helper.ReadView(FLD_CHUNK, chunk));
  }
  EXPECT_EQ(connector.ask("ECHO", "then"), "then");
  EXPECT_EQ(connector.session, 1);
}

TEST(Connector, KnowsARefusal) {
  EchoServer service;
  EchoConnector connector(service.port());
  Log_Capture log;
  EXPECT_EQ(connector.ask("REFUSE", ""), "failed");
  EXPECT_EQ(connector.LastError().str(),
            address_of(service.port()) + " refused the request: not today");
  EXPECT_EQ(lines_with(log, "EchoConnector::ask: REFUSE fails: 127.0.0.1:", 4), 1);
  EXPECT_EQ(connector.stream("STREAM_REFUSED", 9), -1);
  EXPECT_THAT(connector.LastError().str(), HasSubstr("in the middle"));
  EXPECT_EQ(connector.ask("ECHO", "then"), "then");
  EXPECT_EQ(connector.session, 1);
  EXPECT_EQ(connector.ask("THROW", ""), "failed");

  // Of a request that is not waited for, the refusal does not answer the next one.
  connector.Disconnect();
  EchoParams one_way("REFUSE");
  {
    Conn_Helper helper("test", connector, one_way, true, true);
    helper.FreeLogGuard();
    EXPECT_TRUE(helper.IsValid());
  }
  EXPECT_EQ(connector.ask("ECHO", "mine"), "mine");
  EXPECT_TRUE(log.has("an earlier request was refused, <RES_REFUSE>: not today"));
}

TEST(Connector, SaysWhyItCannotConnect) {
  const int nobody = [] { return RawService().port(); }();
  EchoConnector connector(nobody);
  Log_Capture log;
  EXPECT_EQ(connector.ask("ECHO", ""), "failed");
  EXPECT_EQ(connector.LastError().str(),
            "cannot connect to " + address_of(nobody) + ": Connection refused");
  EXPECT_EQ(lines_with(log, "Connection refused", 3), 1);

  EXPECT_EQ(connector.InitConn("no.such.host.invalid", 1, "tcp", "test", 1, 0), 1);
  EXPECT_EQ(connector.ask("ECHO", ""), "failed");
  EXPECT_THAT(connector.LastError().str(),
              StartsWith("cannot connect to no.such.host.invalid:1: "));

  struct {
    const char* server;
    int port;
    const char* type;
    int token;
    const char* reason;
  } const rows[] = {{"localhost", 1, "", 4, "no encryption (TLS) yet"},
                    {"localhost", 1, "", 2, "token property"},
                    {"localhost", 1, "pipe", 1, "<pipe>"},
                    {"", 1, "", 1, "no server"},
                    {"localhost", 0, "", 1, "port"},
                    {"localhost", 65536, "", 1, "port"}};
  for (const auto& row : rows) {
    EXPECT_EQ(connector.InitConn(row.server, row.port, row.type, "test", row.token, 0), 0);
    EXPECT_THAT(log.last(), HasSubstr(row.reason));
    EXPECT_EQ(connector.ask("ECHO", ""), "failed");
    EXPECT_THAT(connector.LastError().str(), HasSubstr(row.reason));
  }
}

TEST(Connector, TriesAllAddressesOfAName) {
  EchoServer service;  // on the older of the families that the name may stand for
  EchoConnector connector(service.port());
  EXPECT_EQ(connector.InitConn("localhost", service.port(), "", "test", 1, 0), 1);
  EXPECT_EQ(connector.ask("ECHO", "text"), "text");

  Conn_ServerSettings settings = echo_settings();
  settings.address = "::1";
  EchoHandler handler;
  Conn_Server newer(settings, handler);
  std::string reason;
  if (!newer.start(reason)) GTEST_SKIP() << reason;
  EXPECT_EQ(connector.InitConn("::1", newer.port(), "", "test", 1, 0), 1);
  EXPECT_EQ(connector.ask("ECHO", "text"), "text");
  EXPECT_EQ(connector.Address().str(), "[::1]:" + std::to_string(newer.port()));
}

TEST(Connector, OpensABrokenConnectionAnew) {
  Restarted service;
  EchoConnector connector(service.port);
  EXPECT_EQ(connector.ask("ECHO", "before"), "before");
  connector.SetTokenSent(true);
  EXPECT_TRUE(connector.IsTokenSent());
  service.end();
  service.begin();
  let_it_idle();
  EXPECT_FALSE(connector.IsTokenSent());
  EXPECT_EQ(connector.ask("ECHO", "after"), "after");

  // While there is no service, each request fails; the first one behind its return does not.
  service.end();
  EXPECT_EQ(connector.ask("ECHO", ""), "failed");
  EXPECT_EQ(connector.ask("ECHO", ""), "failed");
  EXPECT_THAT(connector.LastError().str(), StartsWith("cannot connect to"));
  service.begin();
  EXPECT_EQ(connector.ask("ECHO", "again"), "again");
}

TEST(Connector, OpensAConnectionAnewThatWasIdleForTooLong) {
  EchoServer service;
  EchoConnector connector(service.port());
  connector.SetTimeOuts({kLong, kLong, milliseconds(10)});
  EXPECT_EQ(connector.ask("ECHO", ""), "");
  std::this_thread::sleep_for(milliseconds(20));
  EXPECT_EQ(connector.ask("ECHO", ""), "");
  EXPECT_EQ(connector.session, 2);
  // But not in a transaction.
  EXPECT_EQ(connector.StartTransaction(), 1);
  EXPECT_EQ(connector.ask("ECHO", ""), "");
  std::this_thread::sleep_for(milliseconds(20));
  EXPECT_EQ(connector.ask("ECHO", ""), "");
  EXPECT_EQ(connector.session, 2);
}

TEST(Transactions, NestByCount) {
  EchoServer service;
  EchoConnector connector(service.port());
  EXPECT_EQ(connector.EndTransaction(), 0);
  EXPECT_EQ(connector.StartTransaction(), 1);
  EXPECT_EQ(connector.StartTransaction(), 1);
  EXPECT_EQ(connector.ask("ECHO", ""), "");
  EXPECT_EQ(connector.EndTransaction(), 0);
  EXPECT_EQ(connector.IsInTransaction(), 1);
  EXPECT_EQ(connector.EndTransaction(), 1);
  EXPECT_EQ(connector.IsInTransaction(), 0);
  EXPECT_EQ(connector.EndTransaction(), 0);
}

TEST(Transactions, AreNotContinuedOnAnotherConnection) {
  Restarted service;
  for (const bool is_noticed_by_looking : {false, true}) {
    EchoConnector connector(service.port);
    EXPECT_EQ(connector.StartTransaction(), 1);
    EXPECT_EQ(connector.StartTransaction(), 1);
    EXPECT_EQ(connector.ask("ECHO", "in it"), "in it");
    service.end();
    service.begin();
    if (is_noticed_by_looking) let_it_idle();
    Log_Capture log;
    for (int i = 0; i < 3; ++i) EXPECT_EQ(connector.ask("ECHO", "in it"), "failed");
    EXPECT_EQ(connector.EndTransaction(), 0);
    EXPECT_EQ(connector.ask("ECHO", "in it"), "failed");
    EXPECT_THAT(connector.LastError().str(), HasSubstr("in the middle of a transaction"));
    EXPECT_EQ(lines_with(log, "ECHO fails", 3), 1);
    EXPECT_EQ(connector.EndTransaction(), 1);
    EXPECT_EQ(connector.ask("ECHO", "after it"), "after it");
    EXPECT_EQ(service.service->handler.open_now.count(), 1);
  }
}

TEST(Transactions, BeginOnALiveConnection) {
  Restarted service;
  EchoConnector connector(service.port);
  EXPECT_EQ(connector.ask("ECHO", "before"), "before");
  service.end();
  service.begin();
  let_it_idle();
  EXPECT_EQ(connector.StartTransaction(), 1);
  EXPECT_EQ(connector.ask("ECHO", "in it"), "in it");
  EXPECT_EQ(connector.EndTransaction(), 1);
}

TEST(TimeOuts, EndARequestAndItsConnection) {
  EchoServer service;
  EchoConnector connector(service.port());
  connector.SetTimeOuts({kLong, kShort, kLong});
  EXPECT_EQ(connector.ask("NEVER", ""), "failed");
  EXPECT_THAT(connector.LastError().str(), HasSubstr("no answer within 150 ms"));
  EXPECT_FALSE(connector.IsConnected());

  // One of a single request, whose end is not put off by what comes little by little.
  RawService slow;
  EchoConnector other(slow.port());
  std::thread dripping([&slow] {
    RawSocket peer(slow.accept());
    peer.send(raw_length(1000));
    for (int i = 0; i < 100; ++i) {
      peer.send("x");
      std::this_thread::sleep_for(milliseconds(5));
    }
  });
  EchoParams params("ECHO");
  {
    Conn_Helper helper("test", other, params, true, false);
    EXPECT_EQ(helper.GetResponseHeaders(0, 100), -1);
    EXPECT_FALSE(helper.IsValid());
  }
  // Whichever it was in, the wait for a byte or the look at the clock between two.
  EXPECT_THAT(other.LastError().str(),
              AnyOf(HasSubstr("no answer within"), HasSubstr("the answer did not end in time")));
  dripping.join();
}

// Who has read enough passes over the rest, and waits for its end only so long.
TEST(TimeOuts, EndAnAnswerThatNobodyReadsToItsEnd) {
  EchoServer service;
  EchoConnector connector(service.port());
  constexpr milliseconds rest(500);
  const auto read_one_chunk = [&](int of) {
    EchoParams params("STREAM");
    connector.SetTimeOuts({kLong, kLong});
    Conn_Helper helper("EchoConnector::stream", connector, params, true, false);
    helper.Writer().WriteInt(FLD_NUMBER, of);
    EXPECT_EQ(helper.GetResponseHeaders(), 0);
    std::string_view chunk;
    EXPECT_TRUE(helper.ReadView(FLD_CHUNK, chunk));
    connector.SetTimeOuts({kLong, rest});
  };
  read_one_chunk(3);
  std::this_thread::sleep_for(rest);
  connector.SetTimeOuts({kLong, kLong});
  EXPECT_EQ(connector.ask("ECHO", "x"), "x") << "the limit was of the answer before";
  EXPECT_EQ(connector.session, 1);
  Log_Capture log;
  read_one_chunk(std::numeric_limits<int>::max());
  EXPECT_TRUE(log.has("the answer did not end in time")) << log.text();
  EXPECT_FALSE(connector.IsConnected());
  EXPECT_EQ(connector.ask("ECHO", "x"), "x");
}

TEST(TimeOuts, KeepOthersFromWaitingForTheSameServiceAtOnce) {
  EchoServer service, lively;
  EchoConnector late(service.port()), other(service.port()), bound(service.port());
  EXPECT_EQ(other.ask("ECHO", ""), "");
  EXPECT_EQ(bound.StartTransaction(), 1);
  EXPECT_EQ(bound.ask("ECHO", ""), "");
  late.SetTimeOuts({kLong, kShort, kLong});
  EXPECT_EQ(late.ask("NEVER", ""), "failed");
  for (EchoConnector* connector : {&late, &other}) {
    EXPECT_EQ(connector->ask("ECHO", ""), "failed");
    EXPECT_THAT(connector->LastError().str(), HasSubstr("did not answer in time a moment ago"));
  }
  EXPECT_EQ(EchoConnector(lively.port()).ask("ECHO", "another's"), "another's");
  // Whoever has begun may go on; and where there is an answer is no silence.
  EXPECT_EQ(bound.ask("ECHO", "in it"), "in it");
  EXPECT_EQ(late.ask("ECHO", "again"), "again");
  EXPECT_EQ(other.ask("ECHO", "again"), "again");
  EXPECT_EQ(other.session, 1) << "its connection was there all the time";
  // Nor is there where others are answered meanwhile.
  EchoConnector waiting(service.port());
  waiting.SetTimeOuts({kLong, kShort, kLong});
  const int asked = service.handler.requests.count();
  std::thread in_vain([&] { EXPECT_EQ(waiting.ask("NEVER", ""), "failed"); });
  EXPECT_TRUE(service.handler.requests.wait(asked + 1));
  EXPECT_EQ(other.ask("ECHO", "meanwhile"), "meanwhile");
  in_vain.join();
  EXPECT_EQ(other.ask("ECHO", "afterwards"), "afterwards");
}

TEST(TimeOuts, AreNoneForThePatient) {
  EchoServer service;
  EchoConnector connector(service.port());
  connector.SetTimeOuts({kLong, milliseconds(1), kLong});
  connector.SetPatient(true);
  std::thread later([&service] {
    EXPECT_TRUE(service.handler.requests.wait());
    std::this_thread::sleep_for(milliseconds(20));
    service.handler.go_on.give();
  });
  EXPECT_EQ(connector.ask("WAIT", "worth it"), "worth it");
  later.join();
}

TEST(TimeOuts, HoldForLookingUpTheHost) {
  EchoConnector connector(1);
  ASSERT_EQ(connector.InitConn("slow.test", 1, "", "test", 1, 0), 1);
  connector.SetTimeOuts({milliseconds(20), kLong, kLong});
  EXPECT_EQ(connector.ask("ECHO", ""), "failed");
  EXPECT_THAT(connector.LastError().str(),
              HasSubstr("the address of slow.test was not found: no answer within 20 ms"));
  slow_lookup.give();
}

TEST(Connector, SaysThatTheTableOfDescriptorsIsFull) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer needs descriptors itself to look at an object";
#endif
  EchoServer service;
  EchoConnector connector(service.port());
  rlimit limit;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlim_t most = limit.rlim_cur;
  limit.rlim_cur = static_cast<rlim_t>(RawService().handle());  // the first that is free again
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_EQ(connector.ask("ECHO", ""), "failed");
  limit.rlim_cur = most;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_THAT(connector.LastError().str(), HasSubstr("Too many open files"));
  EXPECT_EQ(connector.ask("ECHO", "again"), "again");
}

TEST(TimeOuts, EndAConnectThatIsNotAnswered) {
  // A service whose queue of connections is full answers no more.
  const int listening = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in own = RawSocket::loopback(0);
  socklen_t size = sizeof own;
  ASSERT_EQ(::bind(listening, reinterpret_cast<sockaddr*>(&own), size), 0);
  ASSERT_EQ(::listen(listening, 0), 0);
  getsockname(listening, reinterpret_cast<sockaddr*>(&own), &size);
  const RawSocket first(RawSocket::connect_to(ntohs(own.sin_port)));
  EchoConnector connector(ntohs(own.sin_port));
  connector.SetTimeOuts({kShort, kLong, kLong});
  EXPECT_EQ(connector.ask("ECHO", ""), "failed");
  EXPECT_THAT(connector.LastError().str(), HasSubstr("no answer within 150 ms"));
  ::close(listening);
}

TEST(Connector, BelievesNoAnswerThatIsNotWellFormed) {
  Conn_FormWriter other, endless;
  other.begin("RES_OTHER");
  endless.begin("RES_ECHO");
  endless.WriteString(FLD_CHUNK, "aaa");
  const std::string begun(endless.finish(true));
  const struct {
    std::string bytes;
    const char* reason;
  } rows[] = {{raw_length(0xffffffff), "not well formed"},
              {raw_length(0), "not well formed"},
              {raw_length(3) + "abc", "not well formed"},
              {std::string(other.finish()), "the answer is to another request, <RES_OTHER>"},
              {raw_length(100) + "abc", "closed by the other side"},
              {"", "closed by the other side"},
              {begun, "closed by the other side"}};
  RawService service;
  for (const auto& row : rows) {
    EchoConnector connector(service.port());
    std::thread peer([&] {
      RawSocket socket(service.accept());
      EXPECT_FALSE(socket.receive_frame().empty());
      socket.send(row.bytes);
      socket.end_sending();
      EXPECT_TRUE(socket.is_closed());
    });
    Log_Capture log;
    EXPECT_EQ(connector.stream("ECHO", 1), -1);
    EXPECT_THAT(connector.LastError().str(), HasSubstr(row.reason));
    EXPECT_EQ(lines_with(log, "ECHO fails", 3), 1);
    EXPECT_FALSE(connector.IsConnected());
    connector.Disconnect();
    peer.join();
  }
}

TEST(Ping, TellsWhetherAServiceIsThere) {
  EchoServer service;
  Conn_ServerPingStatus status;
  EXPECT_FALSE(Conn_PingClient::GetServerPingStatus("127.0.0.1", service.port(), status));
  EXPECT_EQ(Conn_PingClient::PingServer("127.0.0.1", service.port(), "", 1, status), 0);
  EXPECT_EQ(status.GetServerGeneralVersion(), Tmr_Version(12, 2, 0, 0));
  EXPECT_TRUE(Conn_PingClient::GetServerPingStatus("127.0.0.1", service.port(), status));
  const auto answer = Conn_PingClient::Ping("127.0.0.1", service.port(), "", 1, kLong);
  EXPECT_TRUE(answer.is_alive);
  EXPECT_EQ(answer.service.str(), "ECHO_SERVICE");
  EXPECT_EQ(answer.reason.str(), "");

  RawService silent;
  const auto none = Conn_PingClient::Ping("127.0.0.1", silent.port(), "", 1, kShort);
  EXPECT_FALSE(none.is_alive);
  EXPECT_THAT(none.reason.str(), HasSubstr("no answer within 150 ms"));
  EXPECT_FALSE(Conn_PingClient::GetServerPingStatus("127.0.0.1", silent.port(), status));
}

TEST(TokenHook, GivesWhatTheGetterSays) {
  RWCString session_id = "old";
  EXPECT_FALSE(Conn_TokenManagerHook::GetToken("cfg_modify", session_id));
  EXPECT_TRUE(session_id.isNull());
  Conn_TokenManagerHook::RegisterSecmSessionIdGetter([] { return RWCString("id-7"); }, 0);
  const auto token = Conn_TokenManagerHook::GetToken("cfg_modify", session_id);
  ASSERT_TRUE(token);
  EXPECT_EQ(*token, "id-7");
  EXPECT_EQ(session_id.str(), "id-7");
  Conn_TokenManagerHook::RegisterSecmSessionIdGetter(nullptr, 0);
  EXPECT_FALSE(Conn_TokenManagerHook::GetToken("cfg_modify", session_id));
}

}  // namespace
