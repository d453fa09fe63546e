// Clients that start from files, at a live service, at none, and at one that hangs.
#include <CFG/CFG_SynchronizedFileRepository.h>

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <functional>
#include <random>
#include <thread>

#include <CFG/CFG_DBRepository.h>
#include <CFG/CFG_Factory.h>
#include <logging/Log_Capture.h>
#include <servers/Test_Seed.h>
#include <support/forked.h>
#include <system/Sys_Registry.h>
#include "synced_world.h"

namespace {

struct WithPostgres {
  explicit WithPostgres(bool is_used) {
    if (!is_used) return;
    postgres.emplace();
    EXPECT_TRUE(postgres->is_running()) << postgres->problem();
  }
  ~WithPostgres() { postgres.reset(); }
};
class SyncedStores : public testing::WithParamInterface<const char*>,
                     private WithPostgres,
                     public Synced {
 public:
  SyncedStores() : WithPostgres(GetParam() == std::string("PostgreSQL")) {}
};
INSTANTIATE_TEST_SUITE_P(Stores, SyncedStores,
                         testing::ValuesIn(Test_Postgres::IsInstalled()
                                               ? std::vector<const char*>{"SQLite", "PostgreSQL"}
                                               : std::vector<const char*>{"SQLite"}),
                         [](const auto& of) { return std::string(of.param); });

TEST_P(SyncedStores, AFirstStartFetchesEverythingAndALaterOneWhatHasChanged) {
  {
    const Log_Capture log;
    const Client first = client();
    expect_as_served(*first);
    EXPECT_TRUE(comes([&] { return first->FinishedWritingSyncFiles(); }));
    EXPECT_EQ(first->GetProperty("HALVORIA_SYNC_STATE"), "current");
    EXPECT_TRUE(log.has("Retrieving full paths from server"));
  }
  const Header header = header_of(system_file());
  EXPECT_EQ(header.magic, "VSCFG#");
  EXPECT_EQ(header.user_id, "ann");
  EXPECT_EQ(header.file_type, Header::PLAIN);
  EXPECT_EQ(header.sequence, server.GetMaxSeqNumber());
  EXPECT_EQ(header.sync_id, server.GetServerSyncID());

  {  // nothing has changed: only the headers are written
    const std::string before = read_file(system_file());
    server.SetValue("halvoria\\elsewhere", "1");
    const Log_Capture log;
    start_once();
    EXPECT_TRUE(log.has("no save needed only update as used"));
    EXPECT_TRUE(log.has("Performing Partial synchronization"));
    EXPECT_EQ(read_file(system_file()).substr(Header::SIZE), before.substr(Header::SIZE));
    EXPECT_EQ(header_of(system_file()).sequence, server.GetMaxSeqNumber());
  }

  server.DeleteSubTree("halvoria\\system\\nodes\\n7");
  server.DeleteSubTree("halvoria\\system\\nodes\\n8");
  server.SetValue("halvoria\\system\\nodes\\n8", "a value now");
  server.DeleteValue("halvoria\\system\\nodes\\n9\\name");
  server.SetValue("halvoria\\system\\nodes\\n9\\name\\deeper", "a key now");
  server.DeleteSubTree("halvoria\\conf");
  server.SetValue("halvoria\\groups\\g\\h", "new");
  server.SetValue("halvoria\\users\\ann\\colour", "green");
  const Log_Capture log;
  const Client later = client();
  expect_as_served(*later);
  EXPECT_FALSE(log.has("Retrieving full paths from server"));
  EXPECT_EQ(later->IsSubTreeExist("halvoria\\system\\queues"), 0);
  EXPECT_TRUE(comes([&] { return later->FinishedWritingSyncFiles(); }));
}

TEST_P(SyncedStores, FetchesEverythingWhereTheFileIsOfNoUse) {
  const struct {
    const char* what;
    std::function<void(Synced&)> make_so;
    const char* line;
  } rows[] = {
      {"newer format",
       [](Synced& s) {
         s.change_header(s.system_file(), [](Header& h) { h.format_version = "12201"; });
       },
       "from a newer version 12201"},
      {"older format",
       [](Synced& s) {
         s.change_header(s.system_file(), [](Header& h) { h.format_version = "12100"; });
       },
       "from an older version 12100"},
      {"other magic",
       [](Synced& s) { s.change_header(s.system_file(), [](Header& h) { h.magic = "VSCFG"; }); },
       "from an older version, current"},
      {"another service",
       [](Synced& s) { s.change_header(s.system_file(), [](Header& h) { h.sync_id = "other"; }); },
       "sync ID changed (old other new"},
      {"the service asks for it", [](Synced& s) { s.server.SetValue(RWCString(kReset), "7"); },
       "A Full sync request has been made by the server"},
      {"encrypted",
       [](Synced& s) {
         s.change_header(s.system_file(), [](Header& h) { h.file_type = Header::ENCRYPTED; });
       },
       "due to invlaid file type"},
      {"a service whose store has gone back",
       [](Synced& s) {
         s.change_header(s.system_file(), [](Header& h) { h.sequence = "999999"; });
       },
       "full synchronization"},
      {"another user's file",
       [](Synced& s) { s.change_header(s.user_file(), [](Header& h) { h.user_id = "bob"; }); },
       "due to user change (previous user - bob)"},
      {"deletions that the service has forgotten",
       [](Synced& s) {
         s.server.DeleteSubTree("halvoria\\system\\nodes\\n11");
         CFG_DBRepository database{RWCString(s.store), RWCString()};
         EXPECT_TRUE(database.Connect());
         EXPECT_GE(database.PurgeDeletedEntries(-1), 1);
       },
       "Performing FULL synchronization with server"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    start_once();
    row.make_so(*this);
    server.SetValue("halvoria\\system\\changed", row.what);
    const Log_Capture log;
    const Client next = client();
    expect_as_served(*next);
    EXPECT_TRUE(log.has(row.line));
    EXPECT_TRUE(log.has("Retrieving full paths from server"));
    EXPECT_TRUE(comes([&] { return next->FinishedWritingSyncFiles(); }));
  }
}

TEST_F(Synced, ServesItsFilesWithoutTheServiceAndIsCurrentOnceThatIsBack) {
  start_once();
  server.SetValue("halvoria\\system\\nodes\\n1\\name", "changed");
  for (const bool is_hanging : {false, true}) {
    SCOPED_TRACE(is_hanging);
    is_hanging ? service.process().signal(SIGSTOP) : service.kill();
    const Log_Capture log;
    const Client offline = client();
    EXPECT_EQ(offline->GetValue("halvoria\\system\\nodes\\n2\\name"), "n");
    EXPECT_EQ(offline->GetValue("halvoria\\users\\ann\\colour"), "red");
    EXPECT_EQ(offline->GetProperty("HALVORIA_SYNC_STATE").str().substr(0, 12), "stale since ");
    EXPECT_TRUE(log.has("the system tree is served as its file is"));
    EXPECT_EQ(offline->SetValue("halvoria\\system\\nodes\\n2\\name", "refused"), 0);
    EXPECT_EQ(offline->GetValue("halvoria\\system\\nodes\\n2\\name"), "n");
    if (is_hanging) {
      service.process().signal(SIGCONT);
    } else {
      start_service_again();
    }
    EXPECT_TRUE(comes([&] { return offline->GetProperty("HALVORIA_SYNC_STATE") == "current"; }));
    expect_as_served(*offline);
  }
}

TEST_F(Synced, WritesGoToBothAndWhatTheServiceUndoesGoesHereToo) {
  const Client tree = client();
  EXPECT_EQ(tree->SetValue("halvoria\\system\\a", "1"), 1);
  CFG_SubTree sub(RWCString("Sub"));
  sub.SetValue("x", "y");
  EXPECT_EQ(tree->AddOrReplaceSubTree(&sub, "halvoria\\system"), 1);
  CFG_SubTree more(RWCString("sub"));
  more.SetValue("z", "y");
  EXPECT_EQ(tree->AddOrReplaceSubTree(&more, "halvoria\\system", 1), 1);
  EXPECT_EQ(tree->SetKeyName("halvoria\\system\\sub", "renamed"), 1);
  EXPECT_EQ(tree->DeleteValue("halvoria\\system\\nodes\\n5\\name"), 1);
  EXPECT_EQ(tree->DeleteSubTree("halvoria\\system\\nodes\\n6"), 1);
  EXPECT_EQ(tree->GetValue("halvoria\\system\\renamed\\z"), "y");
  expect_as_served(*tree);

  ASSERT_TRUE(tree->StartTransactionUpdate());
  EXPECT_EQ(tree->SetValue("halvoria\\system\\a", "2"), 1);
  EXPECT_EQ(tree->DeleteSubTree("halvoria\\system\\renamed"), 1);
  EXPECT_TRUE(tree->EndTransactionUpdate(true));
  EXPECT_EQ(tree->GetValue("halvoria\\system\\a"), "1");
  expect_as_served(*tree);

  const RWCString bad = "halvoria\\system\\a\\below a value";
  EXPECT_EQ(tree->SetValue(bad, "refused"), 0);
  expect_as_served(*tree);

  // The tree alone, and the service alone.
  EXPECT_EQ(tree->DeleteValueOnlyBaseRep("halvoria\\system\\a"), 1);
  EXPECT_EQ(server.GetValue("halvoria\\system\\a"), "1");
  String_Arr paths;
  paths.AddStr("halvoria\\system");
  EXPECT_EQ(tree->SynchronizeSubTree(&paths, "halvoria\\users"), 1);
}

TEST_F(Synced, NobodySeesHalfOfAMerge) {
  const Client tree = client();
  std::atomic<bool> is_over{false};
  std::atomic<int> torn{0}, reads{0};
  std::vector<std::thread> readers;
  for (int i = 0; i < 2; ++i) {
    readers.emplace_back([&] {
      while (!is_over) {
        const SubTreePtr pair(tree->GetSubTree("halvoria\\system\\pair"));
        if (pair && pair->GetValue("a") != pair->GetValue("b")) ++torn;
        static_cast<void>(tree->GetValue("halvoria\\system\\nodes\\n1\\name"));
        ++reads;
      }
    });
  }
  for (int i = 0; i < 40; ++i) {
    CFG_SubTree pair(RWCString("pair"));
    pair.SetValue("a", RWCString(std::to_string(i)));
    pair.SetValue("b", RWCString(std::to_string(i)));
    EXPECT_TRUE(server.AddOrReplaceSubTree(&pair, "halvoria\\system"));
    EXPECT_TRUE(tree->SetValue("halvoria\\system\\own", RWCString(std::to_string(i))));
    String_Arr paths;
    paths.AddStr("halvoria\\system");
    EXPECT_EQ(tree->SynchronizeSubTree(&paths, "halvoria\\users"), 1);
    EXPECT_EQ(tree->GetValue("halvoria\\system\\pair\\b"), RWCString(std::to_string(i)));
  }
  is_over = true;
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(torn, 0);
  EXPECT_GT(reads, 0);
  expect_as_served(*tree);
}

TEST_F(Synced, EndsAtOnceBesideAServiceThatHangs) {
  start_once();
  server.SetProperty("HALVORIA_CONNECTION_PROPERTIES", "answer_timeout=3600");
  service.process().signal(SIGSTOP);
  {
    const Client offline = client(nullptr);
    EXPECT_EQ(offline->GetValue("halvoria\\system\\nodes\\n2\\name"), "n");
  }
  service.process().signal(SIGCONT);
}

TEST_P(SyncedStores, FollowWhateverSeveralWritersDo) {
  constexpr int kRounds = 20, kChanges = 250;  // of each of two writers
  std::mt19937 random(test_seed());
  const Log_Capture quiet;  // half of what they ask for is refused
  const Client lasting = client();
  String_Arr branches;
  for (const char* branch : {"halvoria\\system", "halvoria\\conf", "halvoria\\users\\ann"}) {
    branches.AddStr(branch);
  }
  for (int round = 0; round < kRounds && !HasFailure(); ++round) {
    const std::mt19937::result_type seeds[] = {random(), random()};
    std::vector<std::thread> writers;
    for (const auto seed : seeds) {
      writers.emplace_back([&, seed] {
        CFG_Repository writer;
        writer.Connect();
        std::mt19937 draw(seed);
        for (int i = 0; i < kChanges; ++i) {
          std::string path = draw() % 3 ? "halvoria\\system" : "halvoria\\users\\ann";
          for (unsigned depth = 1 + draw() % 3; depth; --depth) {
            path += "\\k" + std::to_string(draw() % 4);
          }
          const RWCString at(path);
          switch (draw() % 4) {
            case 0:
              writer.DeleteSubTree(at);
              break;
            case 1:
              writer.DeleteValue(at);
              break;
            default:
              writer.SetValue(at, RWCString(std::to_string(draw())));
          }
        }
      });
    }
    { const Client beside = client(); }  // ends in the middle of whatever it is at
    EXPECT_EQ(lasting->SynchronizeSubTree(&branches, ""), 1);
    EXPECT_EQ(lasting->SetValue("halvoria\\system\\own", RWCString(std::to_string(round))), 1);
    for (std::thread& writer : writers) writer.join();
    const Client after = client();
    expect_as_served(*after);
    EXPECT_TRUE(comes([&] { return after->FinishedWritingSyncFiles(); }));
    EXPECT_EQ(lasting->SynchronizeSubTree(&branches, ""), 1);
    expect_as_served(*lasting);
  }
}

TEST_F(Synced, AUserWhoseNameIsNoFileNameIsServedWithoutOne) {
  for (const char* user : {"..", "a\\b", "%", "a_name_that_is_longer_than_its_field"}) {
    SCOPED_TRACE(user);
    server.SetValue("halvoria\\users\\" + RWCString(user) + "\\colour", "grey");
    const Client tree = client(user);
    EXPECT_EQ(tree->GetValue("halvoria\\users\\" + RWCString(user) + "\\colour"),
              server.GetValue("halvoria\\users\\" + RWCString(user) + "\\colour"));
  }
}

TEST_F(Synced, FilesAreEncryptedWhereTheRegistrySaysSo) {
  setenv("HALVORIA_REGISTRY", (files / "registry").c_str(), 1);
  ASSERT_TRUE(Sys_Registry::SetValue("HKEY_LOCAL_MACHINE\\SOFTWARE\\Kestral\\install",
                                     "base_setup_type", "any"));
  start_once();
  EXPECT_EQ(header_of(system_file()).file_type, Header::ENCRYPTED);
  EXPECT_EQ(read_file(system_file()).find("nodes"), std::string::npos);
  server.SetValue("halvoria\\system\\nodes\\n1\\name", "changed");
  {
    const Log_Capture log;
    const Client later = client();
    expect_as_served(*later);
    EXPECT_TRUE(log.has("Performing Partial synchronization"));
    EXPECT_TRUE(comes([&] { return later->FinishedWritingSyncFiles(); }));
  }
  setenv("HALVORIA_REGISTRY", "/none/registry", 1);
  const Log_Capture log;
  const Client plain = client();
  expect_as_served(*plain);
  EXPECT_TRUE(log.has("due to invlaid file type"));
}

TEST_F(Synced, ProcessesOfOneAndOfSeveralUsersShareTheFiles) {
  std::vector<pid_t> children;
  for (int i = 0; i < 20; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      bool is_right = false;
      {
        const char* const user = i % 3 ? "ann" : "bob";
        const Client tree = client(user);
        is_right =
            tree->GetSubTreeNum("halvoria\\system\\nodes") == 200 &&
            tree->GetValue(RWCString("halvoria\\users\\") + user + "\\colour").length() > 0 &&
            comes([&] { return tree->FinishedWritingSyncFiles(); });
      }
      _exit(is_right ? 0 : 1);
    }
    children.push_back(child);
    server.SetValue("halvoria\\system\\counter", RWCString(std::to_string(i)));
  }
  for (const pid_t child : children) {
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  const Client next = client();
  expect_as_served(*next);
  service.kill();
  const Client offline = client("bob");
  EXPECT_EQ(offline->GetValue("halvoria\\users\\bob\\colour"), "blue");
  EXPECT_EQ(offline->GetSubTreeNum("halvoria\\system\\nodes"), 200);
}

TEST_F(Synced, AServiceThatIsKilledAndComesAgainLosesNobody) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "it keeps no more than 64 locks in mind, and a fork takes those of all clients";
#endif
  start_once();
  std::atomic<bool> is_over{false};
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 50; ++i) {
    threads.emplace_back([&] {
      while (!is_over) {
        CFG_SynchronizedFileRepository tree(files.file("tree.cfg"));
        if (!tree.Connect() || tree.GetSubTreeNum("halvoria\\system\\nodes") != 200) ++wrong;
        String_Arr paths;
        paths.AddStr("halvoria\\system");
        tree.SynchronizeSubTree(&paths, "halvoria\\users");
        if (tree.GetSubTreeNum("halvoria\\system\\nodes") != 200) ++wrong;
      }
    });
  }
  for (int i = 0; i < 5; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    service.kill();
    start_service_again();
    EXPECT_TRUE(server.SetValue("halvoria\\system\\round", "r"));
  }
  is_over = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
  const Client after = client();
  EXPECT_TRUE(comes([&] { return after->GetProperty("HALVORIA_SYNC_STATE") == "current"; }));
  expect_as_served(*after);
}

TEST_F(Synced, FilesGoToTheTemporaryFolderWhereTheirsIsNotToBeHad) {
  const TemporaryFolder temporary;
  setenv("TEMP", temporary.path().c_str(), 1);
  const Log_Capture log;
  CFG_SynchronizedFileRepository tree(files.file("missing/tree.cfg"));
  EXPECT_TRUE(log.has("Redirecting synced files to temp folder"));
  EXPECT_TRUE(tree.Connect());
  tree.SetProperty("CurrUser", "ann");
  EXPECT_TRUE(comes([&] { return tree.FinishedWritingSyncFiles(); }));
  EXPECT_TRUE(std::filesystem::exists(temporary / "tree.cfg"));
}

TEST_F(Synced, TheFactoryBuildsIt) {
  const auto parameters = files / "parameters.txt";
  write_file(parameters,
             "cfg_type = synced_file\nremote_server_name = 127.0.0.1\n"
             "remote_server_port = " +
                 std::to_string(service.port()) +
                 "\nlocal_host_ip = 127.0.0.1\nuse_in_process_cache = yes\n"
                 "xml_file = " +
                 system_file().string() + "\n");
  CFG_RepositoryServices* const tree =
      CFG_Factory::GetRepositoryServices(parameters.string().c_str());
  ASSERT_NE(dynamic_cast<CFG_SynchronizedFileRepository*>(tree), nullptr);
  EXPECT_TRUE(tree->SetProperty("CurrUser", "ann"));
  expect_as_served(*tree);
  EXPECT_TRUE(CFG_Factory::DisconnectRepositoryServices());
  EXPECT_TRUE(std::filesystem::exists(system_file()));
}

TEST_F(Synced, AChildHasTheTreeAsItWas) {
  const Client tree = client();
  EXPECT_TRUE(holds_in_child([&] {
    return tree->GetValue("halvoria\\system\\nodes\\n1\\name") == "n" &&
           tree->GetValue("halvoria\\users\\ann\\colour") == "red";
  }));
}

// Otherwise nobody would ever learn that it was not to be: the service has nothing newer.
TEST_F(Synced, WhatAnUpdateMayStillUndoGoesIntoNoFile) {
  {
    const Log_Capture log;
    const Client tree = client(nullptr);
    ASSERT_TRUE(tree->StartTransactionUpdate());
    EXPECT_EQ(tree->SetValue("halvoria\\system\\nodes\\n1\\name", "undone"), 1);
    tree->SetProperty("CurrUser", "ann");
    EXPECT_TRUE(comes([&] { return log.has("User synchronization ended"); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(tree->FinishedWritingSyncFiles());
    EXPECT_TRUE(tree->EndTransactionUpdate(true));
    EXPECT_TRUE(comes([&] { return tree->FinishedWritingSyncFiles(); }));
  }
  service.kill();
  const Client offline = client();
  EXPECT_EQ(offline->GetValue("halvoria\\system\\nodes\\n1\\name"), "n");
}

TEST_F(Synced, OddNamesComeWithAPassAndGo) {
  const std::string names[] = {"%",       "<x>",      "halvoria",
                               "a b'\"&", "\xff\xfe", std::string(3000, 'n')};
  start_once();
  const auto make = [&](const std::string& value) {
    for (const std::string& name : names) {
      for (const char* top : {"halvoria\\conf\\", "halvoria\\users\\ann\\"}) {
        server.SetValue(RWCString(top + name), RWCString(value));
        server.SetValue(RWCString(top + ("in " + name) + "\\" + name), RWCString(value));
      }
    }
  };
  make("1");
  const Client lasting = client();
  expect_as_served(*lasting);
  EXPECT_GE(content(server, "halvoria\\conf").size(), 12U);
  make("2");
  String_Arr branches;
  branches.AddStr("halvoria\\conf");
  branches.AddStr("halvoria\\users\\ann");
  EXPECT_EQ(lasting->SynchronizeSubTree(&branches, ""), 1);
  expect_as_served(*lasting);
  EXPECT_TRUE(comes([&] { return lasting->FinishedWritingSyncFiles(); }));
  server.SetKeyName("halvoria\\conf\\in %", "renamed");
  for (const std::string& name : names) server.DeleteValue(RWCString("halvoria\\conf\\" + name));
  const Log_Capture log;
  const Client next = client();
  expect_as_served(*next);
  EXPECT_FALSE(log.has("Retrieving full paths from server"));
}

TEST_F(Synced, TheUserMayBeNamedFirstTwiceOrByTwoThreads) {
  CFG_SynchronizedFileRepository tree(files.file("tree.cfg"));
  {
    const Log_Capture log;
    EXPECT_TRUE(tree.GetValue("halvoria\\system\\nodes\\n1\\name").isNull());
    EXPECT_TRUE(log.has("was asked before Connect"));
    EXPECT_EQ(tree.SetProperty("CurrUser", "ann"), 1);
  }
  EXPECT_TRUE(tree.Connect());
  EXPECT_TRUE(tree.Connect());
  expect_as_served(tree);
  for (int i = 0; i < 4; ++i) {
    const Client other = client(nullptr);
    std::vector<std::thread> threads;
    for (const char* user : {"ann", "bob"}) {
      threads.emplace_back([&, user] { EXPECT_EQ(other->SetProperty("CurrUser", user), 1); });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_TRUE(comes([&] { return other->FinishedWritingSyncFiles(); }));
  }
}

TEST_F(Synced, EndsInAnyPhase) {
  start_once();
  std::mt19937 random(test_seed());
  for (int i = 0; i < 60; ++i) {
    if (i == 30) service.process().signal(SIGSTOP);
    if (i == 35) service.process().signal(SIGCONT);
    CFG_SynchronizedFileRepository tree(files.file("tree.cfg"));
    if (i % 5) tree.Connect();
    std::thread naming;
    if (i % 5 > 2) naming = std::thread([&] { tree.SetProperty("CurrUser", "ann"); });
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 20'000));
    if (naming.joinable()) naming.join();
  }
  const Client next = client();
  expect_as_served(*next);
}

}  // namespace
