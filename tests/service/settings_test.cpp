// What wins when a setting is made in several places, and what is wrong with one.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include <service/settings.h>
#include "../CFG/temporary_folder.h"

namespace {

using service::Settings;
using service::SettingsReader;

std::string file_of(TemporaryFolder& folder, const char* text) {
  const std::string name = (folder / "svcfg.conf").string();
  std::ofstream(name) << text;
  return name;
}

std::string origin_of(const SettingsReader& reader, const char* name) {
  size_t i = 0;
  for (const service::SettingRow& row : service::setting_rows()) {
    if (std::string(row.name) == name) return reader.origins()[i].origin;
    ++i;
  }
  return "none";
}

TEST(Settings, FlagsWinOverVariablesOverTheFileOverDefaults) {
  TemporaryFolder folder;
  const std::string file = file_of(
      folder, "port = 7001\nmax_request = 1M\nworkers = 9 ; as many as disks\nstore = sqlite:a\n");
  setenv("SVCFG_PORT", "7002", 1);
  setenv("SVCFG_WORKERS", "8", 1);
  Settings settings;
  SettingsReader reader;
  std::string fault;
  ASSERT_TRUE(reader.read({{"port", "7003"}}, file, settings, fault)) << fault;
  EXPECT_EQ(settings.port, 7003);
  EXPECT_EQ(settings.workers, 8);
  EXPECT_EQ(settings.max_request, 1024 * 1024);
  EXPECT_EQ(settings.store, "sqlite:a");
  EXPECT_EQ(settings.threads, 0);
  EXPECT_EQ(origin_of(reader, "port"), "flag");
  EXPECT_EQ(origin_of(reader, "workers"), "SVCFG_WORKERS");
  EXPECT_EQ(origin_of(reader, "store"), file);
  EXPECT_EQ(origin_of(reader, "threads"), "default");
  unsetenv("SVCFG_PORT");
  unsetenv("SVCFG_WORKERS");
}

TEST(Settings, WhatIsWrongIsNamedWithItsPlace) {
  const struct {
    const char* file;
    const char* port;  // as a flag
    const char* fault;
  } cases[] = {
      {"", "70000", "port (flag): 70000 is not between 0 and 65535"},
      {"", "-1", "port (flag): -1 is not between 0 and 65535"},
      {"", "http", "port (flag): 'http' is not a number"},
      {"", "9999999999999999999", "port (flag): '9999999999999999999' is not a number"},
      {"", "9000000000000G", "port (flag): '9000000000000G' is not a number"},
      {"ports = 1\n", "1", "there is no setting 'ports'"},
      {"workers = many\n", "1", "'many' is not a number"},
      {"workers = 3\nmax_sessions 7\n", "1", "svcfg.conf"},
  };
  for (const auto& c : cases) {
    TemporaryFolder folder;
    Settings settings;
    SettingsReader reader;
    std::string fault;
    EXPECT_FALSE(reader.read({{"port", c.port}}, file_of(folder, c.file), settings, fault));
    EXPECT_NE(fault.find(c.fault), std::string::npos) << fault;
  }
  Settings settings;
  SettingsReader reader;
  std::string fault;
  EXPECT_FALSE(reader.read({}, "/none/svcfg.conf", settings, fault));
  EXPECT_NE(fault.find("/none/svcfg.conf"), std::string::npos) << fault;
  setenv("SVCFG_MAX_SESSION", "9", 1);
  setenv("SVCFG_CONFIG", "/none", 1);
  EXPECT_FALSE(reader.read({}, "", settings, fault));
  EXPECT_NE(fault.find("the variable SVCFG_MAX_SESSION ("), std::string::npos) << fault;
  unsetenv("SVCFG_MAX_SESSION");
  EXPECT_TRUE(reader.read({}, "", settings, fault)) << fault;
  unsetenv("SVCFG_CONFIG");
}

TEST(Settings, PasswordsAreNotShown) {
  using service::without_password;
  EXPECT_EQ(without_password("host=db password=s3cret dbname=cfg"),
            "host=db password=*** dbname=cfg");
  EXPECT_EQ(without_password("password='a b\\' c' host=db"), "password=*** host=db");
  EXPECT_EQ(without_password("postgresql://me:s3cret@db/cfg"), "postgresql://me:***@db/cfg");
  EXPECT_EQ(without_password("postgresql://db/cfg?password=s3cret&a=b"),
            "postgresql://db/cfg?password=***&a=b");
  EXPECT_EQ(without_password("sqlite:/a:b@c"), "sqlite:/a:b@c");
}

TEST(Settings, OnlyTheLoopbackIsServed) {
  for (const char* address : {"127.0.0.1", "127.8.9.1", "::1", "localhost"}) {
    EXPECT_TRUE(service::is_loopback(address)) << address;
  }
  for (const char* address :
       {"0.0.0.0", "::", "192.0.2.1", "localhost.example", "", "127.0.0.1 "}) {
    EXPECT_FALSE(service::is_loopback(address)) << address;
  }
}

}  // namespace
