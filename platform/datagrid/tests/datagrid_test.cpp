#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>

#include <datagrid/DataGridConfigurations.h>
#include <datagrid/IgniteCacheClient.h>
#include <logging/Log_Capture.h>
#include <servers/Test_Redis.h>
#include <support/temporary_folder.h>

namespace {

using namespace std::string_literals;

using Texts = IgniteCacheClient<std::string, std::string>;
using Numbers = IgniteCacheClient<std::string, int>;

std::string address(int port) { return "127.0.0.1:" + std::to_string(port); }

// Why there is no connection; empty when there is one.
template <class Client>
std::string problem(Client& client, const std::string& where, const std::string& user = "",
                    const std::string& password = "", const std::string& certificate = "") {
  try {
    client.Connect("cache", where, true, user, password, certificate);
    return "";
  } catch (const std::exception& e) {
    return e.what();
  }
}

bool is_module_mapped() {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find("libhalvoria_redis") != line.npos) return true;
  }
  return false;
}

TEST(DataGrid, KeepsWhatOneProcessPutsForTheOthers) {
  const Test_Redis redis;
  ASSERT_TRUE(redis.is_running());
  EXPECT_FALSE(is_module_mapped());
  Texts texts, same;
  Numbers numbers, other;
  EXPECT_FALSE(texts.IsConnected());
  EXPECT_EQ(problem(texts, address(redis.port())), "");
  EXPECT_TRUE(is_module_mapped()) << "only now";
  EXPECT_EQ(problem(same, address(redis.port())), "");
  EXPECT_EQ(problem(numbers, address(redis.port())), "");
  other.Connect("other", address(redis.port()), true, "", "", "");
  EXPECT_TRUE(texts.IsConnected());

  for (const std::string& value : {""s, "text"s, "a\0b\r\n$3\r\n"s, std::string(1 << 20, 'x')}) {
    EXPECT_TRUE(texts.Put("key with\0nul"s, value));
    EXPECT_TRUE(same.Get("key with\0nul"s) == value);
  }
  EXPECT_EQ(texts.Get("none"), "");
  EXPECT_TRUE(numbers.Put("n", -7));
  EXPECT_EQ(numbers.Get("n"), -7);
  EXPECT_EQ(texts.Get("n"), "-7");
  EXPECT_EQ(other.Get("n"), 0) << "a cache of its own";
  EXPECT_EQ(redis.ask({"GET", "cache:n"}), "-7");
  for (const char* no_number : {"x", "", "99999999999"}) {
    texts.Put("n", no_number);
    EXPECT_EQ(numbers.Get("n"), 0);
  }
  EXPECT_TRUE(numbers.Remove("n"));
  EXPECT_FALSE(numbers.Remove("n"));
  redis.ask({"LPUSH", "cache:list", "1"});
  EXPECT_EQ(numbers.Get("list"), 0);
  EXPECT_TRUE(numbers.IsConnected()) << "a wrong kind of value breaks nothing";
}

TEST(DataGrid, SaysWhyThereIsNoConnection) {
  const Test_Redis redis({"--requirepass", "secret"});
  const std::string there = address(redis.port());
  Texts client;
  EXPECT_NE(problem(client, "127.0.0.1:1").find("refused"), std::string::npos);
  for (const char* wrong : {"", "host", ":1", "host:", "host:0", "host:65536", "host:1x"}) {
    EXPECT_EQ(problem(client, wrong), "<"s + wrong + "> is not a host and a port");
  }
  EXPECT_NE(problem(client, there), "");
  EXPECT_NE(problem(client, there, "", "wrong"), "");
  EXPECT_NE(problem(client, there, "nobody", "secret"), "");
  EXPECT_NE(problem(client, there, "", "secret", "certificate"), "");
  EXPECT_FALSE(client.IsConnected());
  EXPECT_FALSE(client.Put("k", "v"));
  EXPECT_EQ(problem(client, there, "", "secret"), "");
  EXPECT_EQ(problem(client, there, "default", "secret"), "");
  EXPECT_TRUE(client.Put("k", "v"));
  setenv("HALVORIA_MODULES", "/none", 1);
  EXPECT_EQ(problem(client, there), "module libhalvoria_redis.so is not in /none");
}

TEST(DataGrid, WaitsASecondAtMostAndThenNotAtAll) {
  const Test_Redis redis;
  Numbers client;
  ASSERT_EQ(problem(client, address(redis.port())), "");
  ASSERT_TRUE(client.Put("n", 5));
  redis.ask({"CLIENT", "PAUSE", "10000", "ALL"});
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(client.Get("n"), 0);
  EXPECT_FALSE(client.Put("n", 1));
  EXPECT_FALSE(client.IsConnected());
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST(DataGrid, FindsAServerThatComesBack) {
  std::optional<Test_Redis> redis(std::in_place);
  const int port = redis->port();
  Grid_Client patient, eager(std::chrono::milliseconds(0)), loyal(std::chrono::milliseconds(0));
  for (Grid_Client* client : {&patient, &eager}) {
    client->Connect("cache", address(port), true, "", "", "");
  }
  loyal.Connect("cache", address(port), false, "", "", "");
  redis.reset();
  Log_Capture capture;
  std::string value;
  for (Grid_Client* client : {&patient, &eager, &loyal}) EXPECT_FALSE(client->Get("k", value));
  EXPECT_TRUE(capture.has("the connection to the datagrid failed"));
  EXPECT_FALSE(eager.IsConnected());
  EXPECT_TRUE(capture.has("the datagrid can not be reached again: "));
  redis.emplace(std::vector<std::string>(), port);
  ASSERT_TRUE(redis->is_running());
  EXPECT_TRUE(eager.Put("k", "v"));
  EXPECT_FALSE(patient.IsConnected()) << "not yet";
  EXPECT_FALSE(loyal.IsConnected()) << "it does not try again";
}

TEST(DataGrid, IsWhereEnvironmentAndParametersFileSay) {
  EXPECT_EQ(DataGridConfigurations::GetIgniteIp(), "127.0.0.1");
  EXPECT_EQ(DataGridConfigurations::GetIgnitePort(), "6379");
  const TemporaryFolder folder;
  const auto file = folder / "parameters.txt";
  std::ofstream(file) << "datagrid_ip = 192.0.2.1\ndatagrid_port = 11110\n";
  setenv("HALVORIA_CFG_FILE", file.c_str(), 1);
  EXPECT_EQ(DataGridConfigurations::GetIgniteIp(), "192.0.2.1");
  std::filesystem::remove(file);
  setenv("HALVORIA_DATAGRID_PORT", "7000", 1);
  EXPECT_EQ(DataGridConfigurations::GetIgnitePort(), "7000");
  EXPECT_EQ(DataGridConfigurations::GetIgniteIp(), "192.0.2.1");
}

}  // namespace
