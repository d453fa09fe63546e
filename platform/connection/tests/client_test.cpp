#include <connection/Conn_PingClient.h>
#include <connection/Conn_TokenManagerHook.h>
#include <gmock/gmock.h>
#include <logging/Log_Capture.h>

#include "echo_service.h"

namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;
using testing::StartsWith;

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

TEST(Connector, ReadsStreamsOfManyFrames) {
  EchoServer service;
  EchoConnector connector(service.port());
  for (const char* name : {"STREAM", "STREAM_LATER"}) {
    for (const int count : {1, 2, 300}) EXPECT_EQ(connector.stream(name, count), count);
  }
  EXPECT_EQ(connector.ask("ECHO", "then"), "then");
}

TEST(Connector, KnowsARefusal) {
  EchoServer service;
  EchoConnector connector(service.port());
  Log_Capture log;
  EXPECT_EQ(connector.ask("REFUSE", ""), "failed");
  EXPECT_THAT(connector.LastError().str(), HasSubstr("refused the request: not today"));
  EXPECT_TRUE(log.has("EchoConnector::ask: REFUSE fails: 127.0.0.1:"));
  EXPECT_EQ(connector.stream("STREAM_REFUSED", 9), -1);
  EXPECT_THAT(connector.LastError().str(), HasSubstr("in the middle"));
  EXPECT_EQ(connector.ask("ECHO", "then"), "then");
  EXPECT_EQ(connector.ask("THROW", ""), "failed");
}

}  // namespace
