// The statistics of requests, in a real cache.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <memory>

#include <CFG/CFG_Connector.h>
#include <CFG/CFG_Repository.h>
#include <logging/Log_Capture.h>
#include <servers/Test_Redis.h>
#include <support/temporary_folder.h>
#include <system/Sys_Process.h>
#include <tree/Tree_Node.h>
#include "../scripted_service.h"
#include "../test_trees.h"

namespace {

const std::string application = "_" + Sys_ProcessName().str();
const std::string process = application + "_" + std::to_string(Sys_ProcessId());

TEST(Statistics, CountRequestsByCommandAndArguments) {
  const Test_Redis redis;
  ASSERT_TRUE(redis.is_running());
  setenv("HALVORIA_DATAGRID_PORT", std::to_string(redis.port()).c_str(), 1);
  const ScriptedService service;
  CFG_Connector::m_report_to_cache = true;
  CFG_Connector connector;
  connector.InitConn("127.0.0.1", service.port(), "", "cfg", 1, 1);
  connector.SetConnectionKind("existing connection");
  const char* rules[] = {"r,1", "r2"};
  RWCString seq = "7", tree_path = "t";
  long length = 0;
  char *value = nullptr, *path = nullptr;
  using Bytes = std::unique_ptr<char[]>;
  Tree_NodePtr tree(new Tree_Node("k"));
  const struct {
    std::function<void()> call;
    const char* key;
  } cases[] = {
      {[&] { connector.GetValue("a,b"); }, "CFG_GET_VAL params-a;b"},
      {[&] { connector.WriteSubTree(tree, "p"); }, "CFG_WRITE_SUB params-p"},
      {[&] { Bytes(connector.GetSubTree("p", 3, length)); }, "CFG_GET_SUB_INX params-p;3"},
      {[&] { Bytes(connector.GetSubTree("n", rules, 2, 1, length)); },
       "CFG_GET_SUB_MERGE params-n;r;1;r2;"},
      {[&] { Bytes(connector.GetSubTreeOnlyWithValues("n", rules, 2, 1, length)); },
       "CFG_GET_SUB_TREE_ONLY_WITH_VALUES params-n;merge true;r;1;r2;"},
      {[&] { Bytes(connector.GetSubTreeOnlyWithValues("n", rules, 1, 0, length)); },
       "CFG_GET_SUB_TREE_ONLY_WITH_VALUES params-n;merge false;r;1;"},
      {[&] { connector.GetSubTreeBySeqNumber("p", seq, tree_path, true); },
       "CFG_GET_SUB_SEQ params-p;7;t"},
      {[&] { connector.GetValue("n", rules, 2, &value, &path); },
       "CFG_GET_VALUE_BY_SEARCH_RULE params-nr;1;r2;"},
      {[&] { connector.FillPath("p", "n", "v"); }, "CFG_FILL_PATH_NAME_VALUE params-p;n;v"},
      {[&] { connector.GetMaxSeqNumber(); }, "CFG_GET_MAX_SEQ params-"},
  };
  for (const auto& c : cases) {
    for (int i = 0; i < 2; ++i) c.call();
    for (const std::string& who : {application, process, std::string("Total")}) {
      EXPECT_EQ(redis.ask({"GET", "CFGConnectorCache:" + (c.key + who)}), "2") << c.key << who;
    }
  }
  const std::string keys = redis.ask({"DBSIZE"});
  connector.GetValueNum("p");
  connector.SetValue("p", "v");
  EXPECT_EQ(redis.ask({"DBSIZE"}), keys) << "these are not counted";
  connector.SetConnectionKind("New connection");
  connector.GetMaxSeqNumber();
  for (const std::string& who : {application, process, std::string("Total")}) {
    EXPECT_EQ(redis.ask({"GET", "CFGConnectorCache:New_Connections" + who}), "1");
  }
}

TEST(Statistics, AreAskedForByTheParametersFileAndNeverInTheWay) {
  const TemporaryFolder folder;
  const auto file = folder / "parameters.txt";
  std::ofstream(file) << "cfg_report_to_cache = Yes\ndatagrid_port = 1\n";
  setenv("HALVORIA_CFG_FILE", file.c_str(), 1);
  ScriptedService service;
  service.on("CFG_GET_MAX_SEQ", answer_of({{9, std::string("12")}}));
  CFG_Repository repository;
  repository.SetProperty("HALVORIA_REMOTE_SERVER_NAME", "127.0.0.1");
  repository.SetProperty("HALVORIA_REMOTE_SERVER_PORT", RWCString(std::to_string(service.port())));
  Log_Capture capture;
  EXPECT_EQ(repository.GetMaxSeqNumber(), "12");
  EXPECT_TRUE(CFG_Connector::m_report_to_cache);
  EXPECT_TRUE(capture.has("report_to_cache = [Yes],m_report_to_cache=[1]\n"));
  EXPECT_TRUE(capture.has("Connection to Ignite Cache failed: Connection refused"));
}

TEST(Counters, CountConnectionsAndRequestsWherePerformanceIsMonitored) {
  setenv("HALVORIA_PERFORMANCE", "3", 1);
  setenv("HALVORIA_LOG", "4,504=6", 1);
  const ScriptedService service;
  CFG_Connector connector;
  connector.InitConn("127.0.0.1", service.port(), "", "cfg", 1, 1);
  Log_Capture capture;
  connector.GetMaxSeqNumber();
  connector.GetMaxSeqNumber();
  connector.CounterDisconnect();
  int requests = 0;
  for (const auto& line : capture.lines()) {
    requests += line.module == 504 && line.text.find("_CFG_GET_MAX_SEQ: ") != line.text.npos;
  }
  EXPECT_EQ(requests, 2);
  EXPECT_TRUE(capture.has("counter CFG_REMOTE_1: 1 times")) << capture.text();
}

}  // namespace
