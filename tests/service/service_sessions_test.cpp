// Sessions of the service: locks, limits, and clients that do not behave.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <thread>

#include <sqlite3.h>
#include <asio.hpp>

#include <CFG/CFG_Connector.h>
#include <CFG/CFG_Repository.h>
#include <logging/Log_Capture.h>
#include <service/service.h>
#include "../CFG/temporary_folder.h"
#include "../CFG/test_trees.h"

namespace {

using asio::ip::tcp;
using std::chrono::milliseconds;
using std::chrono::seconds;

// The service in this process, over a fresh store.
class ServiceWorld {
 public:
  explicit ServiceWorld(const std::function<void(service::Settings&)>& change = nullptr) {
    service::SettingsReader reader;
    std::string fault;
    EXPECT_TRUE(
        reader.read({{"store", "sqlite:" + (m_folder / "tree.sqlite").string()}, {"port", "0"}}, "",
                    m_settings, fault))
        << fault;
    if (change) change(m_settings);
    m_service = std::make_unique<service::Service>(m_settings);
    EXPECT_TRUE(m_service->start(fault)) << fault;
    CFG_SubTree properties{RWCString("properties")};
    properties.SetProperty("HALVORIA_REMOTE_SERVER_NAME", "127.0.0.1");
    properties.SetProperty("HALVORIA_REMOTE_SERVER_PORT", std::to_string(m_service->port()));
  }
  service::Service& service() { return *m_service; }
  void restart() {
    m_settings.port = m_service->port();
    m_service.reset();
    m_service = std::make_unique<service::Service>(m_settings);
    std::string fault;
    EXPECT_TRUE(m_service->start(fault)) << fault;
  }
  std::string store_file() const { return (m_folder / "tree.sqlite").string(); }

  // A client that sends what it likes.
  tcp::socket raw() {
    tcp::socket socket(m_io);
    socket.connect({asio::ip::address_v4::loopback(), static_cast<uint16_t>(m_service->port())});
    return socket;
  }

 private:
  TemporaryFolder m_folder;
  asio::io_context m_io;
  service::Settings m_settings;
  std::unique_ptr<service::Service> m_service;
};

// A client with a pool of its own, connected.
struct Client : CFG_Repository {
  Client() { Connect(); }
};

constexpr char path[] = "halvoria\\a\\b";

TEST(Sessions, OnlyTheSessionWithTheLockSeesWhatItChanges) {
  ServiceWorld world;
  Client writer, reader;
  ASSERT_TRUE(writer.SetValue(path, "old"));
  ASSERT_TRUE(writer.StartTransactionUpdate());
  ASSERT_TRUE(writer.SetValue(path, "new"));
  ASSERT_TRUE(writer.SetValue("halvoria\\a\\c", "more"));
  EXPECT_EQ(writer.GetValue(path), "new");
  EXPECT_EQ(reader.GetValue(path), "old");
  EXPECT_EQ(shown(SubTreePtr(reader.GetSubTree("halvoria\\a"))), "a{b=old}");
  EXPECT_EQ(shown(SubTreePtr(writer.GetSubTree("halvoria\\a"))), "a{b=new c=more}");
  ASSERT_TRUE(writer.EndTransactionUpdate(false));
  EXPECT_EQ(reader.GetValue(path), "new");

  ASSERT_TRUE(writer.StartTransactionUpdate());
  ASSERT_TRUE(writer.DeleteSubTree("halvoria\\a"));
  EXPECT_EQ(writer.GetValue(path), "");
  ASSERT_TRUE(writer.EndTransactionUpdate(true));
  EXPECT_EQ(writer.GetValue(path), "new");
}

TEST(Sessions, ALostConnectionUndoes) {
  ServiceWorld world;
  Client other;
  ASSERT_TRUE(other.SetValue(path, "old"));
  {
    Client lost;
    ASSERT_TRUE(lost.StartTransactionUpdate());
    ASSERT_TRUE(lost.SetValue(path, "half"));
  }
  EXPECT_TRUE(other.SetValue("halvoria\\a\\c", "goes on"));
  EXPECT_EQ(other.GetValue(path), "old");
}

TEST(Sessions, WritersTakeTurnsAndTheOneThatWaitsTooLongIsRefused) {
  ServiceWorld world([](service::Settings& settings) { settings.write_wait = 1; });
  Client first, second;
  ASSERT_TRUE(first.StartTransactionUpdate());
  ASSERT_TRUE(first.SetValue(path, "first"));
  {
    Log_Capture log;
    EXPECT_FALSE(second.SetValue(path, "second"));
    EXPECT_TRUE(log.has("CFG_SET_VALUE halvoria\\a\\b is refused: another client writes"))
        << log.text();
  }
  EXPECT_EQ(second.GetValue("halvoria"), "");  // and it is served as before
  std::thread waits([&] { EXPECT_TRUE(second.SetValue(path, "second")); });
  std::this_thread::sleep_for(milliseconds(50));
  EXPECT_TRUE(first.EndTransactionUpdate(false));
  waits.join();
  EXPECT_EQ(first.GetValue(path), "second");
}

TEST(Sessions, WhoHoldsTheLockTooLongLosesIt) {
  ServiceWorld world([](service::Settings& settings) { settings.transaction_time = 1; });
  Client silent, other;
  CFG_Connector& connector = *silent.GetConnector();  // without the extended time-out
  const std::function<int()> ends[] = {
      [&] { return connector.UnLock(); },
      [&] { return connector.Rollback(); },
      [&] { return connector.Lock(); },
  };
  int round = 0;
  for (const auto& end : ends) {
    const RWCString goes_on = "goes on " + std::to_string(++round);
    ASSERT_TRUE(connector.Lock());
    ASSERT_TRUE(connector.SetValue(path, "half"));
    EXPECT_TRUE(other.SetValue("halvoria\\a\\c", goes_on));
    // Until it is told, nothing may seem to belong to what is undone.
    const auto is_refused = [&](int result) {
      const std::string why = connector.LastError().str();
      EXPECT_FALSE(result);
      EXPECT_NE(why.find("what was not committed is undone: it was held"), why.npos) << why;
    };
    is_refused(connector.SetValue(path, "more of it"));
    is_refused(connector.IsSubTreeExist("halvoria"));
    is_refused(end());
    EXPECT_TRUE(connector.UnLock()) << "as of a session that never had it";
    EXPECT_TRUE(connector.SetValue(path, "alone"));
    EXPECT_EQ(other.GetValue(path), "alone");
    ASSERT_TRUE(other.DeleteValue(path));
  }
  silent.FreeConnector(&connector);
}

TEST(Sessions, ALockThatWentWithItsConnectionIsNotTakenForOneThatIsHeld) {
  ServiceWorld world;
  Client locking, other;
  CFG_Connector& connector = *locking.GetConnector();
  const std::function<int()> ends[] = {
      [&] { return connector.UnLock(); },
      [&] { return connector.Rollback(); },
      [&] { return connector.Lock(); },
  };
  for (const auto& end : ends) {
    ASSERT_TRUE(connector.Lock());
    ASSERT_TRUE(connector.SetValue(path, "half"));
    world.restart();
    EXPECT_FALSE(connector.SetValue(path, "more of it"));
    EXPECT_FALSE(connector.SetValue(path, "more of it")) << "over a connection of its own";
    EXPECT_TRUE(connector.IsLocked()) << "an update would begin one of its own";
    EXPECT_FALSE(end());
    EXPECT_EQ(other.GetValue(path), "");
    EXPECT_TRUE(connector.UnLock()) << "as of a session that never had it";
  }
  // As the first request that finds it out, too.
  ASSERT_TRUE(connector.Lock());
  ASSERT_TRUE(connector.SetValue(path, "half"));
  world.restart();
  std::this_thread::sleep_for(milliseconds(110));  // a connection in use is not looked at
  EXPECT_FALSE(connector.UnLock());
  EXPECT_TRUE(connector.SetValue(path, "alone"));
  locking.FreeConnector(&connector);
}

TEST(Sessions, ASilentOneLosesTheLockAndIsNamedToWhoWaits) {
  ServiceWorld world([](service::Settings& settings) {
    settings.silent_lock_time = 2;
    settings.write_wait = 1;
  });
  Client silent, other;
  ASSERT_TRUE(silent.StartTransactionUpdate());  // with the extended time-out
  ASSERT_TRUE(silent.SetValue(path, "half"));
  Log_Capture log;
  EXPECT_FALSE(other.SetValue("halvoria\\a\\c", "too early"));
  EXPECT_TRUE(
      log.has("for too long: the lock is that of user 'CFG', application 'CFG', session 1 "
              "from 127.0.0.1:"))
      << log.text();
  for (int i = 0; i < 100 && !log.has("sent nothing for 2 s"); ++i) {
    std::this_thread::sleep_for(milliseconds(100));
  }
  EXPECT_TRUE(other.SetValue("halvoria\\a\\c", "goes on"));
  EXPECT_FALSE(silent.EndTransactionUpdate(false));
  EXPECT_EQ(other.GetValue(path), "");
}

// 20 MB below halvoria\large, as a byte array and as chunks.
void write_large(Client& writer) {
  CFG_SubTree large{RWCString("large")};
  const std::string text(1000, 'x');
  for (int i = 0; i < 20000; ++i) large.SetValue("v" + std::to_string(i), RWCString(text));
  ASSERT_TRUE(writer.AddOrReplaceSubTree(&large, "halvoria"));
}

// What a client sends first, and then reads no answer.
std::string request_of(const char* command, bool is_tree) {
  Conn_FormWriter form;
  form.begin(command);
  form.introduce("CFG_SERVICE", 1);
  form.WriteString(cfg::protocol::CFG_FLD_USER_NAME, "mia");
  form.WriteString(cfg::protocol::CFG_FLD_APPLICATION, "viewer");
  form.WriteString(cfg::protocol::CFG_FLD_PATH, "halvoria\\large");
  if (is_tree) {
    form.WriteString(cfg::protocol::CFG_FLD_SEQ_NUMBER, "");
    form.WriteLong(cfg::protocol::CFG_FLD_COMPRESSED, 0);
  }
  return std::string(form.finish());
}

TEST(Sessions, TreesThatNobodyReadsKeepNobodyFromReading) {
  ServiceWorld world([](service::Settings& settings) { settings.max_streams = 4; });
  Client reader;
  write_large(reader);
  const std::string request = request_of("CFG_GET_SUB_SEQ", true);
  std::vector<tcp::socket> unread;
  for (int i = 0; i < 8; ++i) {
    unread.push_back(world.raw());
    asio::write(unread.back(), asio::buffer(request));
  }
  // Well within the time in which those are broken off for making no progress.
  for (int i = 0; i < 3; ++i) {
    const SubTreePtr tree(reader.GetSubTree("halvoria\\large"));
    EXPECT_EQ(tree ? tree->GetSubTreeEntriesCount("") : 0, 20000);
  }
}

TEST(Sessions, AHolderThatDoesNotTakeItsTreeLosesTheLock) {
  ServiceWorld world([](service::Settings& settings) { settings.transaction_time = 2; });
  Client other;
  write_large(other);
  tcp::socket holder = world.raw();
  Conn_FormWriter lock;
  lock.begin("CFG_LOCK");
  lock.introduce("CFG_SERVICE", 1);
  lock.WriteString(cfg::protocol::CFG_FLD_USER_NAME, "mia");
  lock.WriteString(cfg::protocol::CFG_FLD_APPLICATION, "viewer");
  asio::write(holder,
              asio::buffer(std::string(lock.finish()) + request_of("CFG_GET_SUB_SEQ", true)));
  EXPECT_TRUE(other.SetValue("halvoria\\a\\c", "goes on"));
}

TEST(Sessions, WhatWaitsToBeTakenIsBounded) {
  ServiceWorld world([](service::Settings& settings) {
    settings.max_unsent = 25 << 20;  // one of them
    settings.write_wait = 1;
  });
  Client reader;
  write_large(reader);
  const std::string request = request_of("CFG_GET_SUB_LONG_VALUE", false);
  tcp::socket unread = world.raw();
  asio::write(unread, asio::buffer(request));
  unread.wait(tcp::socket::wait_read);
  Log_Capture log;
  EXPECT_EQ(SubTreePtr(reader.GetSubTreeWithLongValues("halvoria\\large")), nullptr);
  EXPECT_TRUE(log.has("bytes wait for clients that do not take them")) << log.text();
  EXPECT_EQ(reader.GetValue("halvoria\\large\\v1").length(), 1000u);
  unread.close();
  SubTreePtr tree;
  for (int i = 0; i < 10 && !tree; ++i)
    tree.reset(reader.GetSubTreeWithLongValues("halvoria\\large"));
  EXPECT_EQ(tree ? tree->GetSubTreeEntriesCount("") : 0, 20000);
}

TEST(Sessions, ClientsThatDoNotBehaveDisturbNobody) {
  ServiceWorld world([](service::Settings& settings) { settings.progress_time = 1; });
  Client good;
  ASSERT_TRUE(good.SetValue(path, "x"));
  std::vector<tcp::socket> bad;
  const std::string_view sends[] = {
      "GET / HTTP/1.1\r\n\r\n",
      std::string_view("\xff\xff\xff\xff\x00\x00", 6),       // 4 GB
      std::string_view("\x00\x00\x00\x20\x0a\x05half", 10),  // and no more
      std::string_view("\x00\x00\x00\x00", 4),
      std::string_view("\x00\x00\x00\x04\xff\xff\xff\xff", 8),
      "",
  };
  for (const std::string_view text : sends) {
    bad.push_back(world.raw());
    asio::write(bad.back(), asio::buffer(text));
  }
  for (int i = 0; i < 50; ++i) EXPECT_EQ(good.GetValue(path), "x");
  for (tcp::socket& socket : bad) {
    if (&socket == &bad.back()) break;  // it may stay
    asio::error_code error;
    char answer[4096];
    while (socket.read_some(asio::buffer(answer), error) > 0) {
    }
    EXPECT_TRUE(error) << "the connection is still open";
  }
  EXPECT_EQ(good.GetValue(path), "x");
}

// Who asks must not take a store that fails for an empty one.
TEST(Sessions, AStoreThatFailsIsNotAnEmptyTree) {
  ServiceWorld world;
  Client client;
  ASSERT_TRUE(client.SetValue(path, "x"));
  sqlite3* file = nullptr;
  ASSERT_EQ(sqlite3_open(world.store_file().c_str(), &file), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(file, "ALTER TABLE entry RENAME TO gone", nullptr, nullptr, nullptr), 0);
  const std::function<bool()> requests[] = {
      [&] { return !client.GetValue(path).isNull(); },
      [&] { return client.IsSubTreeExist("halvoria") != 0; },
      [&] { return client.GetSubTreeEntriesCount("halvoria") != 0; },
      [&] { return std::unique_ptr<String_Arr>(client.GetSubTreePaths("halvoria")) != nullptr; },
      [&] { return client.SetValue(path, "y") != 0; },
  };
  for (const auto& request : requests) {
    const Log_Capture log;
    EXPECT_FALSE(request());
    EXPECT_TRUE(log.has("refused the request: the store failed: ")) << log.text();
  }
  ASSERT_EQ(sqlite3_exec(file, "ALTER TABLE gone RENAME TO entry", nullptr, nullptr, nullptr), 0);
  sqlite3_close(file);
  EXPECT_EQ(client.GetValue(path), "x");
  EXPECT_EQ(client.GetValue("halvoria\\none"), "");
  EXPECT_TRUE(client.SetValue(path, "y"));
}

// The client's log says why, in the words of the store, at one line (4).
TEST(Sessions, ARefusedChangeSaysWhy) {
  ServiceWorld world;
  Client client;
  ASSERT_TRUE(client.SetValue("halvoria\\key\\value", "x"));
  const RWCString longer(std::string(2700, 'n'));
  CFG_SubTree sub_tree{RWCString("t")};
  ASSERT_TRUE(sub_tree.SetValue(longer, "x"));
  const struct {
    std::function<int()> change;
    const char* reason;
  } rows[] = {
      {[&] { return client.SetValue("halvoria\\key", "x"); },
       "path <halvoria\\key>: it is a key, no value can be there"},
      {[&] { return client.SetValue("halvoria\\key\\value\\below", "x"); },
       "path <halvoria\\key\\value>: it is a value, nothing can be below it"},
      {[&] { return client.SetValue("halvoria\\" + longer, "x"); }, "is longer than 2600 bytes"},
      {[&] { return client.AddOrReplaceSubTree(&sub_tree, "halvoria\\key"); },
       "is longer than 2600 bytes"},
  };
  for (const auto& row : rows) {
    const Log_Capture log;
    EXPECT_FALSE(row.change());
    int lines = 0;
    for (const auto& line : log.lines()) {
      lines += line.level == LOG_LEVEL_WARNING && line.text.find(row.reason) != line.text.npos &&
               line.text.find("refused the request: path <halvoria\\") != line.text.npos;
    }
    EXPECT_EQ(lines, 1) << log.text();
  }
  // The connection goes on, and what was refused is not a later one's reason.
  const Log_Capture log;
  EXPECT_TRUE(client.SetValue("halvoria\\key\\value", "y"));
  EXPECT_FALSE(client.IsSubTreeExist("halvoria\\none"));
  EXPECT_FALSE(log.has("refused")) << log.text();
}

TEST(Sessions, ManyTreesAreSentOneAfterTheOther) {
  ServiceWorld world([](service::Settings& settings) { settings.max_streams = 2; });
  Client writer;
  CFG_SubTree large{RWCString("large")};
  const std::string text(500, 'x');
  for (int i = 0; i < 2000; ++i) large.SetValue("v" + std::to_string(i), RWCString(text));
  ASSERT_TRUE(writer.AddOrReplaceSubTree(&large, "halvoria"));
  std::vector<std::thread> threads;
  for (int i = 0; i < 12; ++i) {
    threads.emplace_back([] {
      Client reader;
      const SubTreePtr tree(reader.GetSubTree("halvoria\\large"));
      EXPECT_EQ(tree ? tree->GetSubTreeEntriesCount("") : 0, 2000);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(Sessions, AnOpenTransactionIsUndoneAtTheEnd) {
  ServiceWorld world;
  Client client;
  ASSERT_TRUE(client.SetValue(path, "old"));
  ASSERT_TRUE(client.StartTransactionUpdate());
  ASSERT_TRUE(client.SetValue(path, "half"));
  world.service().stop();
  EXPECT_FALSE(client.EndTransactionUpdate(false));
}

}  // namespace
