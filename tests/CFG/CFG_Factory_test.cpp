// The state of the factory is the process's: each case needs a process of its own.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <thread>
#include <vector>

#include <CFG/CFG_Cache.h>
#include <CFG/CFG_Extern_hook.h>
#include <CFG/CFG_Factory.h>
#include <CFG/CFG_InProcessCacheRepository.h>
#include <logging/Log_Capture.h>
#include <support/forked.h>
#include <utility/Tmr_CfgHook.h>
#include <utility/Tmr_SocketWrapper.h>
#include "temporary_folder.h"
#include "test_trees.h"

namespace {

constexpr char lacks_type[] =
    "InitInstance() : cfg file does not contain cfg_type value, return NULL\n";

template <class T>
concept GivesARepository = requires(T argument) {
  CFG_Factory::GetRepositoryServices(argument);
};
static_assert(GivesARepository<const char*> && GivesARepository<char*> &&
              GivesARepository<const wchar_t*> && GivesARepository<CFG_SubTree*>);
static_assert(!GivesARepository<std::nullptr_t>, "a null does not say which form is meant");

// A tree file and parameters files beside it.
class Factory : public testing::Test {
 protected:
  Factory() {
    CFG_SubTree tree = tree_of(
        "halvoria",
        {{"system\\nodes\\n1\\properties\\inet_address", "127.0.0.1"}, {"system\\zone", "A"}});
    write_tree(tree, m_folder.file("tree.xml"));
  }

  std::string tree_file() const { return (m_folder / "tree.xml").string(); }
  // Lines that name no host, so that no name server is asked.
  std::string parameters(const std::string& lines) {
    const std::filesystem::path file = m_folder / "parameters.txt";
    std::ofstream(file, std::ios::binary)
        << lines << "\nlocal_host_name = here\nlocal_host_ip = 127.0.0.1\n";
    return file.string();
  }
  std::string file_parameters() { return parameters("cfg_type = file\nxml_file = " + tree_file()); }
  CFG_RepositoryServices* get(const std::string& file) {
    return CFG_Factory::GetRepositoryServices(file.c_str());
  }

  TemporaryFolder m_folder;
};

TEST_F(Factory, ReadsParametersFilesAsPeopleWriteThem) {
  const struct {
    std::string lines;
    const char* message;  // why there is no repository; null when there is one
  } cases[] = {
      {"cfg_type=file\nxml_file=" + tree_file(), nullptr},
      {"\xEF\xBB\xBF"
       "cfg_type = FILE\r\nxml_file = " +
           tree_file() + "\r\n",
       nullptr},
      {"; comment\n[section]\nunknown = 1\ncfg_type = remote\ncfg_type = File\nxml_file = " +
           tree_file(),
       nullptr},
      {"", lacks_type},
      {"cfg_type = memory", "InitInstance() : cfg type <memory> is not supported, return NULL\n"},
      {"cfg_type = Oracle", "InitInstance() : cfg type <oracle> is not supported, return NULL\n"},
      {"cfg_type = file",
       "InitInstance() : cfg file does not contain xml_file value, return NULL\n"},
      {"cfg_type = db\nxml_file = x",
       "InitInstance() : cfg file does not contain user value, return NULL\n"},
      {"cfg_type = db\nuser = u",
       "InitInstance() : cfg file does not contain conn_string value, return NULL\n"},
      {"cfg_type = db\nuser = u\nconn_string = sqlite:/none/tree.db",
       "GetRepositoryServices() - fail to connect to cfg, return NULL\n"},
      {"cfg_type = file\nxml_file = /none/tree.xml",
       "GetRepositoryServices() - fail to connect to cfg, return NULL\n"},
  };
  for (const auto& c : cases) {
    Log_Capture capture;
    CFG_RepositoryServices* repository = get(parameters(c.lines));
    EXPECT_EQ(repository == nullptr, c.message != nullptr) << c.lines;
    if (repository) {
      EXPECT_EQ(repository->GetValue("halvoria\\system\\zone"), "A");
    } else {
      EXPECT_TRUE(capture.has(c.message)) << c.lines << capture.text();
    }
    EXPECT_EQ(CFG_Factory::DisconnectRepositoryServices(), repository != nullptr)
        << "a failure leaves nothing behind";
  }
  Log_Capture capture;
  EXPECT_EQ(get((m_folder / "none.txt").string()), nullptr);
  EXPECT_TRUE(capture.has("InitInstance : Fail to open cfg file <" +
                          (m_folder / "none.txt").string() +
                          "> (file does not exist), return NULL\n"));
}

TEST_F(Factory, StoresTheParametersAsProperties) {
  CFG_RepositoryServices* repository = get(parameters(
      "cfg_type = file\nxml_file = " + tree_file() +
      "\nmapping = Exist\nclient_or_server = Server\nremote_server_name = HOST\nremote_server_port = 104\n"
      "connection_type = TCP\nconnection_properties = A=B\nnotify_conn_activity = stack\n"
      "notify_conn_activity_status = 1\nuser = nobody"));
  ASSERT_NE(repository, nullptr);
  const struct {
    const char* name;
    const char* value;
  } properties[] = {
      {"cfg_type", "file"},
      {"mapping", "Exist"},
      {"client_or_server", "Server"},
      {"HALVORIA_REMOTE_SERVER_NAME", "host"},
      {"HALVORIA_REMOTE_SERVER_PORT", "104"},
      {"HALVORIA_CONNECTION_TYPE", "tcp"},
      {"HALVORIA_CONNECTION_PROPERTIES", "a=b"},
      {"current_node", "here"},
      {"local_host_ip", "127.0.0.1"},
      {"CurrMachine", "n1"},
      {"LocalHostListenersAF", Tmr_SocketWrapper::IP_TYPE_V4},
      {"user", ""},
  };
  for (const auto& p : properties) EXPECT_EQ(repository->GetProperty(p.name), p.value) << p.name;
  EXPECT_EQ(CFG_ServicesImp::GetMonitorConnStatus(), 2);
  EXPECT_EQ(repository->GetServerNodeName(), "here");
}

TEST_F(Factory, ServesADatabaseThatThePropertiesName) {
  const std::string lines =
      "cfg_type = DB\nuser = Someone\nset_nls_lang = No\nsql_trace = Yes\n"
      "conn_string = sqlite:" +
      (m_folder / "Tree.db").string();
  Log_Capture capture;
  for (int i = 0; i < 2; ++i) {
    CFG_RepositoryServices* repository = get(parameters(lines));
    ASSERT_NE(repository, nullptr);
    EXPECT_EQ(repository->GetProperty("user"), "Someone");
    EXPECT_EQ(repository->GetProperty("sql_trace"), "TRUE");
    EXPECT_EQ(repository->GetProperty("set_nls_lang"), "FALSE");
    EXPECT_EQ(repository->GetValue("halvoria\\v"), i ? "1" : "");
    EXPECT_TRUE(repository->SetValue("halvoria\\v", "1"));
    EXPECT_EQ(repository->GetServerNodeName(), "here");
    EXPECT_EQ(repository->GetOracleContext(), nullptr);
    CFG_Factory::DisconnectRepositoryServices();
  }
  EXPECT_TRUE(std::filesystem::exists(m_folder / "Tree.db"));
  EXPECT_TRUE(capture.has("CFGDB_Conn::connect: loaded CfgDbDisconnect.dll"));
  EXPECT_EQ(status_of_child([&] {
              get(parameters(lines))->SetValue("halvoria\\v", "2");
              std::exit(7);
              return 0;
            }),
            7);
  EXPECT_FALSE(std::filesystem::exists(m_folder / "Tree.db-wal")) << "nobody closed it";
}

TEST_F(Factory, TheCallerOverridesTheEnvironmentAndThatTheFile) {
  setenv("HALVORIA_CFG_FILE",
         parameters("cfg_type = remote\nuser = u\nconn_string = sqlite:/none/tree.db\nxml_file = " +
                    tree_file())
             .c_str(),
         1);
  setenv("KESTRAL_G_Connection_Type", "File", 1);
  setenv("KESTRAL_G_Server_Port", "4711", 1);
  Log_Capture capture;
  EXPECT_EQ(CFG_Factory::GetRepositoryServices("DB", true), nullptr);
  EXPECT_TRUE(capture.has("before connect to cfg repository type db\n"));
  EXPECT_EQ(CFG_Factory::GetRepositoryServices(), nullptr) << "the override stays in force";
  CFG_RepositoryServices* repository = CFG_Factory::GetRepositoryServices("DB", false);
  ASSERT_NE(repository, nullptr);
  EXPECT_EQ(repository->GetProperty("cfg_type"), "file");
  EXPECT_EQ(repository->GetProperty("HALVORIA_REMOTE_SERVER_PORT"), "4711");
}

TEST_F(Factory, WithoutAnyParametersFileSaysSoAndGoesOn) {
  setenv("HALVORIA_CFG_FILE", (m_folder / "none.txt").c_str(), 1);
  Log_Capture capture;
  EXPECT_EQ(CFG_Factory::GetRepositoryServices(), nullptr);
  EXPECT_EQ(
      capture.last(),
      "Assertion Failed: <false && \"Critical Error - Missing CfgConnectionParams.txt and HALVORIA_CFG_FILE "
      "environment variable\\n\">, Aborting.\n");
  EXPECT_EQ(capture.lines().back().level, 2);
  std::filesystem::copy(file_parameters(), m_folder / "none.txt");
  EXPECT_NE(CFG_Factory::GetRepositoryServices(), nullptr) << "the next call looks again";
}

TEST_F(Factory, ServesASubtreeAndReplacesWhatWasThere) {
  CFG_SubTree first = tree_of("halvoria", {{"v", "1"}}), second = tree_of("halvoria", {{"v", "2"}});
  CFG_RepositoryServices* repository = CFG_Factory::GetRepositoryServices(&first);
  ASSERT_NE(repository, nullptr);
  EXPECT_EQ(CFG_Factory::GetRepositoryServices(), repository);
  ASSERT_NE(CFG_Factory::GetRepositoryServices(&second), nullptr);
  EXPECT_EQ(CFG_Factory::GetRepositoryServices()->GetValue("halvoria\\v"), "2");
  EXPECT_EQ(first.GetValue("v"), "1");
  EXPECT_EQ(CFG_Factory::GetRepositoryServices(static_cast<CFG_SubTree*>(nullptr)), nullptr);
  EXPECT_NE(CFG_Factory::GetRepositoryServices(), nullptr) << "nothing replaces nothing";
  EXPECT_FALSE(CFG_Factory::GetRepositoryServices()->GetProperty("local_host_ip").isNull());
}

TEST_F(Factory, DisconnectsOnceAndConnectsAgain) {
  const std::string file = file_parameters();
  ASSERT_NE(get(file), nullptr);
  EXPECT_EQ(get("ignored"), CFG_Factory::GetRepositoryServices(L"ignored"))
      << "what is connected stays";
  EXPECT_TRUE(CFG_Factory::DisconnectRepositoryServices());
  Log_Capture capture;
  EXPECT_FALSE(CFG_Factory::DisconnectRepositoryServices());
  EXPECT_EQ(capture.last(),
            "CFG_Factory::DisconnectRepositoryServices can't disconnect not connected\n");
  EXPECT_NE(CFG_Factory::GetRepositoryServices(RWWString::fromUTF8(file).data()), nullptr);
  EXPECT_TRUE(capture.has(
      "InitInstance(wchar* cfg_file_name) : Cfg was not init, start Init by file " + file + "\n"));
}

TEST_F(Factory, ShutdownIsFinalForAllButSubtrees) {
  ASSERT_NE(get(file_parameters()), nullptr);
  ShutdownRepositoryServices();
  for (int i = 0; i < 2; ++i) {
    Log_Capture capture;
    EXPECT_EQ(get(file_parameters()), nullptr);
    EXPECT_EQ(CFG_Factory::GetRepositoryServices("file", true), nullptr);
    EXPECT_TRUE(capture.has("GetRepositoryServices() : Cfg already shutdown, check stack trace\n"));
  }
  CFG_SubTree tree("halvoria");
  EXPECT_NE(CFG_Factory::GetRepositoryServices(&tree), nullptr);
}

TEST_F(Factory, ThreadsThatAskAtOnceGetTheSameObjectAndOneConnection) {
  const std::string file = file_parameters();
  Log_Capture capture;
  std::vector<CFG_RepositoryServices*> got(4);
  std::vector<std::thread> threads;
  for (auto& repository : got) threads.emplace_back([&] { repository = get(file); });
  for (std::thread& thread : threads) thread.join();
  ASSERT_NE(got[0], nullptr);
  EXPECT_EQ(got, std::vector<CFG_RepositoryServices*>(4, got[0]));
  int connections = 0;
  for (const auto& line : capture.lines()) connections += line.text == "Start Connect()\n";
  EXPECT_EQ(connections, 1);
}

TEST_F(Factory, AnswersThePlatformWhileConnected) {
  CFG_Extern_hook hook;
  Log_Capture capture;
  EXPECT_EQ(Tmr_CfgHook::GetValue("halvoria\\system\\zone", "default"), "default");
  EXPECT_TRUE(capture.lines().empty()) << "nobody is registered";
  ASSERT_NE(get(file_parameters()), nullptr);
  EXPECT_EQ(Tmr_CfgHook::GetValue("halvoria\\system\\zone", "default"), "A");
  EXPECT_EQ(Tmr_CfgHook::GetValue("halvoria\\none", "default"), "default");
  EXPECT_EQ(
      capture.last(),
      "CFG_Extern_hook::GetValue: path <halvoria\\none> returned value <default>  default value <default>\n");
  CFG_Factory::DisconnectRepositoryServices();
  EXPECT_EQ(Tmr_CfgHook::GetValue("halvoria\\system\\zone", "default"), "default");
  EXPECT_EQ(hook.GetValue("halvoria\\system\\zone", "default"), "default");
  EXPECT_TRUE(capture.last().ends_with("Returning the default <default>\n"));
}

TEST_F(Factory, ADisconnectWaitsForWhatThePlatformAsks) {
  CFG_SubTree tree = tree_of("halvoria", {{"system\\zone", "A"}});
  CFG_Extern_hook hook;
  std::atomic<bool> is_over{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 2; ++i) {
    threads.emplace_back([&] {
      while (!is_over) {
        const RWCString text = hook.GetValue("halvoria\\system\\zone", "default");
        EXPECT_TRUE(text == "A" || text == "default") << text.str();
      }
    });
  }
  for (int i = 0; i < 200; ++i) {
    CFG_SubTree copy = tree_of("halvoria", {{"system\\zone", "A"}});
    EXPECT_NE(CFG_Factory::GetRepositoryServices(&copy), nullptr);
    EXPECT_NE(CFG_Factory::GetRepositoryServices(&tree), nullptr)
        << "is asked instead of the first";
    EXPECT_TRUE(CFG_Factory::DisconnectRepositoryServices());
  }
  is_over = true;
  for (std::thread& thread : threads) thread.join();
}

TEST_F(Factory, ListenersTakeTheFamiliesThatTheNodeHasAndTheHostSupports) {
  const bool has_v6 = !Tmr_SocketWrapper::GetAFTypeIfSupported("::1").isNull();
  const struct {
    const char* address;
    const char* optional;
    const char* expected;
    const char* message;
    bool needs_v6;
  } cases[] = {
      {"127.0.0.1", "", "ipv4", "AF type selected is [ipv4], setting as property\n", false},
      {"127.0.0.1", "127.0.0.2", "ipv4", "inet_address_optional cfg value 127.0.0.2\n", false},
      {"127.0.0.1", "::1", "dual", "Primary & Secondary AF supported returning DUAL\n", true},
      {"127.0.0.1", "1.2.3.4.5", "ipv4",
       "Secondary AF not supported for IP 1.2.3.4.5 will return primary AF\n", false},
      {"1.2.3.4.5", "127.0.0.1", "ipv4", "inet_address cfg value 1.2.3.4.5\n", false},
      {"1.2.3.4.5", "", "ipv4", "primary AF not supported for ip 1.2.3.4.5 return [ipv4]\n", false},
      {"", "::1", "ipv4", "could not find inet_address in cfg, critical ERROR!, returning [ipv4]\n",
       false},
  };
  for (const auto& c : cases) {
    if (c.needs_v6 && !has_v6) continue;
    // The node is found by an additional address, which does not take part in the choice.
    CFG_SubTree tree = tree_of(
        "halvoria", {{"system\\nodes\\n\\properties\\additional_inet_address_1", "127.0.0.1"}});
    tree.SetValue("system\\nodes\\n\\properties\\inet_address", c.address);
    tree.SetValue("system\\nodes\\n\\properties\\inet_address_optional", c.optional);
    write_tree(tree, m_folder.file("tree.xml"));
    Log_Capture capture;
    CFG_RepositoryServices* repository = get(file_parameters());
    ASSERT_NE(repository, nullptr);
    EXPECT_EQ(repository->GetProperty("CurrMachine"), "n");
    EXPECT_EQ(repository->GetProperty("LocalHostListenersAF"), c.expected)
        << c.address << " " << c.optional;
    EXPECT_TRUE(capture.has(c.message)) << capture.text();
    CFG_Factory::DisconnectRepositoryServices();
  }
}

TEST_F(Factory, BuildsTheCacheOfItsMode) {
  const auto database = [&](const std::string& more) {
    return parameters("cfg_type = db\nuser = u\nconn_string = sqlite:" +
                      (m_folder / "Tree.db").string() + "\n" + more);
  };
  const auto is_built = [&](auto* kind, const std::string& from) {
    const bool is_it = dynamic_cast<decltype(kind)>(get(from)) != nullptr;
    CFG_Factory::DisconnectRepositoryServices();
    return is_it;
  };
  CFG_Factory::SetCFGMode(CFG_MODE_INPROCESS_CACHE);
  CFG_InProcessCacheRepository<CFG_FileRepository>* cached_file = nullptr;
  CFG_InProcessCacheRepository<CFG_DBRepository>* cached_database = nullptr;
  CFG_Cache<CFG_DBRepository>* grid = nullptr;
  EXPECT_TRUE(is_built(cached_file, file_parameters()));
  EXPECT_TRUE(is_built(cached_database, database("")));
  EXPECT_TRUE(is_built(cached_database, database("use_datagrid_cache = YES")));
  EXPECT_TRUE(is_built(grid, database("use_in_process_cache = yes\nuse_datagrid_cache = yes")));
  EXPECT_TRUE(is_built(grid, database("")));
  EXPECT_FALSE(is_built(cached_file, file_parameters())) << "the datagrid is not put before a file";
  CFG_Factory::SetCFGMode(CFG_MODE_DIRECT);
  EXPECT_FALSE(is_built(grid, database("")) || is_built(cached_database, database("")));
  EXPECT_TRUE(is_built(cached_database, database("use_in_process_cache = yes")));
}

}  // namespace
