// A service that keeps a part of its tree in a datagrid, and what becomes of that when either goes.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <thread>

#include <CFG/CFG_DBRepository.h>
#include <CFG/CFG_Repository.h>
#include <datagrid/Grid_Feed.h>
#include <datagrid/IgniteOdbcClient.h>
#include <support/comes.h>
#include "../CFG/temporary_folder.h"
#include "../servers/Test_Postgres.h"
#include "../servers/Test_Redis.h"
#include "../servers/Test_Seed.h"
#include "../servers/Test_Service.h"

namespace {

using Values = std::map<std::string, std::string>;

const std::string CONFIGURATION = "halvoria\\system\\applications\\cfg\\datagrid_cache\\";
const std::string TOP = "halvoria\\grid";

std::optional<Test_Postgres> postgres;  // which is the store, where it is there

struct World {
  explicit World(const std::vector<std::string>& redis_settings = {}) {
    redis.emplace(redis_settings);
    CFG_DBRepository writer{RWCString(store), RWCString()};
    EXPECT_TRUE(writer.Connect());
    writer.SetValue(RWCString(CONFIGURATION + "cache_paths"),
                    "Halvoria\\Grid;halvoria\\grid\\inner;halvoria\\value");
    writer.SetValue("halvoria\\value", "single");
    writer.SetValue("halvoria\\beside", "not there");
    writer.SetValue(RWCString(TOP + "\\keys\\first"), "1");
    writer.SetValue(RWCString(TOP + "\\odd %\\<x> '\xff"), "%d <y>");
    writer.CreatePath(RWCString(TOP + "\\empty"));
  }
  std::string place(const std::string& more = "") const {
    return "host=127.0.0.1 port=" + std::to_string(redis->port()) + more;
  }
  std::unique_ptr<Test_Service> serve(const std::string& more = "") {
    auto service = std::make_unique<Test_Service>(
        store, log, std::vector<std::string>{"--datagrid", place(more), "--log-level", "5,508=6"});
    EXPECT_TRUE(service->start());
    service->use();
    return service;
  }
  void begin_redis_anew() {
    const int port = redis->port();
    redis.reset();
    redis.emplace(std::vector<std::string>(), port);
    EXPECT_TRUE(redis->is_running());
  }
  std::string log_text() const {
    std::ostringstream text;
    text << std::ifstream(log).rdbuf();
    return text.str();
  }
  Values stored() const {
    CFG_DBRepository reader{RWCString(store), RWCString()};
    EXPECT_TRUE(reader.Connect());
    Values values;
    RWCString top(TOP);
    std::string_view path, value;
    EXPECT_EQ(reader.StartTreeQuery(top, false, nullptr, false), 1);
    while (reader.NextFromQuery(path, value)) {
      values[TOP + "\\" + std::string(path)] = value;
    }
    reader.CloseTreeQuery();
    return values;
  }

  TemporaryFolder folder;
  const std::string store =
      postgres ? postgres->connection() : "sqlite:" + (folder / "tree.sqlite").string();
  const std::string log = (folder / "svcfg.log").string();
  std::optional<Test_Redis> redis;
};

struct Grid : IgniteOdbcClient {
  explicit Grid(const World& world, const std::string& more = "") {
    std::string connection = world.place(more);
    EXPECT_TRUE(Connect(connection));
  }
  std::optional<std::string> value(const std::string& path) {
    bool ok = false;
    const auto found = GetValue(RWCString(path), ok);
    if (!found || found->is_subtree) return std::nullopt;
    return found->value.str();
  }
  std::optional<Values> tree(const std::string& path) {
    bool ok = false;
    std::list<std::pair<RWCString, RWCString>> pairs;
    if (!GetSubTree(RWCString(path), pairs, ok)) return std::nullopt;
    Values values;
    for (const auto& [at, value] : pairs) values[at.str()] = value.str();
    return values;
  }
};

class DatagridFeed : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    if (GetParam() == std::string("SQLite")) return;
    postgres.emplace();
    ASSERT_TRUE(postgres->is_running()) << postgres->problem();
  }
  void TearDown() override { postgres.reset(); }
};

TEST_P(DatagridFeed, BringsWhatIsThereAndEachCommit) {
  World world({"--requirepass", "se-cret"});
  setenv("TEST_GRID_PASSWORD", "se-cret", 1);
  const auto service = world.serve(" password=${TEST_GRID_PASSWORD}");
  CFG_Repository cfg;
  ASSERT_TRUE(cfg.Connect());
  const RWCString ready(CONFIGURATION + "cache_ready");
  ASSERT_TRUE(comes([&] { return cfg.GetBooleanValueWrapper(ready, false); }));

  // Ready is complete.
  Grid grid(world, " password=se-cret");
  EXPECT_EQ(grid.tree(TOP), world.stored());
  EXPECT_EQ(grid.value("halvoria\\value"), "single");
  EXPECT_EQ(grid.value("halvoria\\beside"), std::nullopt);
  const auto follows = [&] { return comes([&] { return grid.tree(TOP) == world.stored(); }); };

  // A transaction is there whole, or not at all.
  std::atomic<bool> is_over{false};
  std::thread reader([&] {
    while (!is_over) {
      const auto values = grid.tree(TOP + "\\many");
      for (const auto& [path, value] : values.value_or(Values())) {
        EXPECT_EQ(value, values->begin()->second) << path;
      }
    }
  });
  for (int i = 1; i <= 100; ++i) {
    ASSERT_TRUE(cfg.StartTransactionUpdate());
    for (int k = 0; k < 5; ++k) {
      cfg.SetValue(RWCString(TOP + "\\many\\" + std::to_string(k)), std::to_string(i));
    }
    ASSERT_TRUE(cfg.EndTransactionUpdate(i % 10 == 0));
  }
  EXPECT_TRUE(follows());
  is_over = true;
  reader.join();

  // Other changes, and more of them than go at once.
  ASSERT_TRUE(cfg.DeleteValue(RWCString(TOP + "\\many\\3")));
  ASSERT_TRUE(cfg.SetKeyName(RWCString(TOP + "\\keys"), "renamed"));
  ASSERT_TRUE(cfg.DeleteValue("halvoria\\value"));
  EXPECT_TRUE(follows());
  EXPECT_TRUE(comes([&] { return !grid.value("halvoria\\value"); }));
  CFG_SubTree bulk{RWCString("bulk")};
  for (int i = 0; i < 12000; ++i) bulk.SetValue(RWCString("v" + std::to_string(i)), "x");
  ASSERT_TRUE(cfg.AddOrReplaceSubTree(&bulk, RWCString(TOP)));
  EXPECT_TRUE(follows());
  ASSERT_TRUE(cfg.DeleteSubTree(RWCString(TOP + "\\bulk")));
  EXPECT_TRUE(follows());
  ASSERT_TRUE(cfg.SetValue(RWCString(CONFIGURATION + "cache_paths"), "halvoria\\beside"));
  EXPECT_TRUE(comes([&] { return grid.value("halvoria\\beside").has_value(); }));
  EXPECT_EQ(grid.tree(TOP), std::nullopt);

  // What a client marks comes back.
  ASSERT_TRUE(grid.SetValue("halvoria\\beside", "never stored"));
  EXPECT_TRUE(comes([&] { return grid.value("halvoria\\beside") == "not there"; }));
  ASSERT_TRUE(grid.UpdateSubTree("halvoria"));
  ASSERT_TRUE(grid.UpdateSubTree("halvoria\\beside"));
  EXPECT_TRUE(comes([&] { return grid.value("halvoria\\beside") == "not there"; }));
  service->stop();
  const std::string log = world.log_text();
  EXPECT_NE(log.find("all of them anew: too much has changed"), std::string::npos);
  EXPECT_EQ(log.find("se-cret"), std::string::npos);
}

TEST_P(DatagridFeed, GoesOnFromWhatIsThere) {
  World world;
  const std::string anew = "all of them anew";
  CFG_Repository cfg;
  ASSERT_TRUE(cfg.Connect());
  auto service = world.serve();
  Grid grid(world);
  const auto follows = [&] { return comes([&] { return grid.tree(TOP) == world.stored(); }); };
  ASSERT_TRUE(follows());
  service->stop();
  const auto times_anew = [&] {
    const std::string log = world.log_text();
    int times = 0;
    for (size_t at = log.find(anew); at != log.npos; at = log.find(anew, at + 1)) ++times;
    return times;
  };
  {  // meanwhile a program changes the store
    CFG_DBRepository writer{RWCString(world.store), RWCString()};
    ASSERT_TRUE(writer.Connect());
    writer.SetValue(RWCString(TOP + "\\meanwhile"), "1");
    writer.DeleteSubTree(RWCString(TOP + "\\keys"));
  }
  service = world.serve();
  EXPECT_TRUE(follows());
  EXPECT_EQ(times_anew(), 1);
  world.redis->ask({"DEL", "halvoria:{cfg}:order"});
  EXPECT_TRUE(follows());
  world.redis->ask({"FLUSHALL"});
  EXPECT_TRUE(follows());
  EXPECT_TRUE(comes([&] { return times_anew() == 3; }));  // the line comes after the records

  // A store that has gone back, and another one.
  service->stop();
  {
    CFG_DBRepository writer{RWCString(world.store), RWCString()};
    ASSERT_TRUE(writer.Connect());
    Grid_Place place;
    std::string fault;
    ASSERT_TRUE(place.read(world.place(), fault));
    Grid_Feed feed(place, 60000);
    ASSERT_TRUE(feed.connect());
    Grid_Feed::State state;
    ASSERT_EQ(feed.look("", 0, state), Grid_Feed::DONE);
    Grid_Feed::Changes later;
    later.set(TOP + "\\later", "1", state.fed + 1000);
    ASSERT_EQ(feed.apply(later, state, state.fed + 1000), Grid_Feed::DONE);
  }
  EXPECT_EQ(grid.value(TOP + "\\later"), "1");
  service = world.serve();
  EXPECT_TRUE(follows());
  EXPECT_TRUE(
      comes([&] { return world.log_text().find("the store is older") != std::string::npos; }));

  // Nobody feeds it: it goes.
  service->kill();
  service = world.serve(" grid=other");
  service->kill();
  world.redis->ask({"PEXPIRE", "halvoria:{cfg}:records", "1"});
  EXPECT_TRUE(comes([&] { return !grid.value(TOP + "\\meanwhile"); }));
  const std::string rest = world.redis->ask({"PTTL", "halvoria:{other}:records"});
  EXPECT_LE(std::stoll(rest), 30000) << "none is kept for ever";
}

// What a process does: it writes to the service, tells the grid, and reads there.
struct Process {
  Process(std::string connection, unsigned seed, std::atomic<int>& counted)
      : random(seed), hits(counted) {
    is_grid_used = grid.Connect(connection);
    cfg.Connect();
  }
  static std::string path(unsigned i) { return TOP + "\\n" + std::to_string(i % 8); }

  CFG_Repository cfg;
  IgniteOdbcClient grid;
  std::mt19937 random;
  bool is_grid_used = false;
  // For each path the newest number that came from the grid, or that was written here.
  std::map<std::string, int> seen;
  std::atomic<int>& hits;

  void read() {
    const std::string at = path(random());
    bool ok = false;
    const auto found = is_grid_used ? grid.GetValue(RWCString(at), ok) : nullptr;
    is_grid_used = is_grid_used && ok;
    if (!found) return;
    ++hits;
    const int number = std::stoi(found->value.str());
    EXPECT_GE(number, seen[at]) << at;
    seen[at] = number;
  }
  // Each path has one writer, whose numbers grow.
  void write(unsigned own, int number) {
    const std::string at = path(own);
    if (!cfg.SetValue(RWCString(at), std::to_string(number))) return;
    is_grid_used = is_grid_used && grid.SetValue(RWCString(at), "");
    seen[at] = number;
    for (int i = 0; i < 5; ++i) read();
    bool ok = false;
    const auto found = is_grid_used ? grid.GetValue(RWCString(at), ok) : nullptr;
    if (found) {
      EXPECT_EQ(found->value, std::to_string(number).c_str());
    }
  }
};

TEST_P(DatagridFeed, NobodySeesAnythingOlderThanHeHasSeen) {
  World world;
  auto service = world.serve();
  const std::string place = world.place(" timeout=60000");
  std::atomic<bool> is_over{false};
  std::atomic<int> hits{0};
  std::vector<std::thread> writers;
  std::vector<std::thread> readers;
  for (unsigned i = 0; i < 8; ++i) {
    writers.emplace_back([&, i] {
      Process writer(place, i, hits);
      for (int number = 1; number <= 300; ++number) writer.write(i, number);
    });
    readers.emplace_back([&, i] {
      Process reader(place, 100 + i, hits);
      while (!is_over) reader.read();
    });
  }
  for (std::thread& thread : writers) thread.join();
  // While a path is written all the time it is hardly ever there; what was written last is.
  EXPECT_TRUE(comes([&] { return hits > 1000; })) << hits;
  is_over = true;
  for (std::thread& thread : readers) thread.join();
  Grid grid(world);
  EXPECT_TRUE(comes([&] { return grid.tree(TOP) == world.stored(); }));
}

TEST_P(DatagridFeed, IsRightAfterKillsOnEitherSide) {
  std::mt19937 random(test_seed());
  World world;
  std::unique_ptr<Test_Service> service = world.serve();
  const std::string place = world.place();
  CFG_Repository cfg;
  ASSERT_TRUE(cfg.Connect());
  int number = 0;
  std::atomic<int> hits{0};
  for (int round = 0; round < 12; ++round) {
    std::atomic<bool> is_over{false};
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 3; ++i) {
      threads.emplace_back([&, i, first = number, seed = random()] {
        Process process(place, static_cast<unsigned>(seed), hits);
        for (int n = first; !is_over; ++n) process.write(i, n);
      });
    }
    number += 100000;
    std::thread bulk([&, round] {
      CFG_SubTree tree{RWCString("bulk")};
      for (int i = 0; i < 3000; ++i) {
        tree.SetValue(RWCString("v" + std::to_string(i)), std::to_string(round));
      }
      while (!is_over) cfg.AddOrReplaceSubTree(&tree, RWCString(TOP));
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(random() % 60));
    switch (random() % 3) {
      case 0:
        service->kill();
        break;
      case 1:
        world.begin_redis_anew();
        break;
      case 2:
        world.redis->ask({"FLUSHALL"});
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(random() % 20));
    is_over = true;
    for (std::thread& thread : threads) thread.join();
    bulk.join();
    if (!service->process().is_running()) service = world.serve();
    Grid grid(world);
    ASSERT_TRUE(comes([&] { return grid.tree(TOP) == world.stored(); })) << "round " << round;
  }
}

TEST_P(DatagridFeed, LeavesTheServiceAloneWhenTheGridFails) {
  World world({"--maxmemory", "1500kb", "--maxmemory-policy", "noeviction"});
  {
    CFG_DBRepository writer{RWCString(world.store), RWCString()};
    ASSERT_TRUE(writer.Connect());
    for (int i = 0; i < 20; ++i) {
      writer.SetValue(RWCString(TOP + "\\large" + std::to_string(i)), std::string(100000, 'x'));
    }
  }
  const auto service = world.serve();
  CFG_Repository cfg;
  ASSERT_TRUE(cfg.Connect());
  ASSERT_TRUE(comes([&] { return world.log_text().find("is not fed: OOM") != std::string::npos; }));
  Grid grid(world);
  EXPECT_EQ(grid.tree(TOP), std::nullopt);
  EXPECT_TRUE(cfg.SetValue(RWCString(TOP + "\\v"), "1"));
  EXPECT_FALSE(cfg.GetBooleanValueWrapper(RWCString(CONFIGURATION + "cache_ready"), false));
  world.redis->ask({"CONFIG", "SET", "maxmemory", "0"});
  EXPECT_TRUE(comes([&] { return grid.tree(TOP) == world.stored(); }));
  EXPECT_TRUE(comes([&] { return world.log_text().find("is fed again") != std::string::npos; }));
  world.redis->ask({"CLIENT", "PAUSE", "100000", "ALL"});
  EXPECT_TRUE(cfg.SetValue(RWCString(TOP + "\\v"), "2"));
  EXPECT_EQ(cfg.GetValue(RWCString(TOP + "\\v")), "2");
  EXPECT_EQ(service->stop(), 0);
}

INSTANTIATE_TEST_SUITE_P(Stores, DatagridFeed,
                         testing::ValuesIn(Test_Postgres::IsInstalled()
                                               ? std::vector<const char*>{"SQLite", "PostgreSQL"}
                                               : std::vector<const char*>{"SQLite"}),
                         [](const auto& of) { return std::string(of.param); });

}  // namespace
