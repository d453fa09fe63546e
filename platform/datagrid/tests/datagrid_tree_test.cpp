// A tree in the grid: who feeds it, who reads it, who marks what it has changed.
#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <thread>

#include <datagrid/Grid_Feed.h>
#include <datagrid/IgniteOdbcClient.h>
#include <logging/Log_Capture.h>
#include <servers/Test_Redis.h>
#include <support/forked.h>
#include <support/scripted_grid.h>

namespace {

using namespace std::string_literals;
using Pairs = std::vector<std::pair<std::string, std::string>>;

constexpr int64_t KEEP = 60000;
constexpr char ID[] = "store";

std::string place_of(int port, const std::string& more = "") {
  return "host=127.0.0.1 port=" + std::to_string(port) + more;
}

Grid_Place read_place(const std::string& text) {
  Grid_Place place;
  std::string fault;
  EXPECT_TRUE(place.read(text, fault)) << fault;
  return place;
}

// A feeder that is at its grid.
struct Feeder : Grid_Feed {
  explicit Feeder(int port) : Grid_Feed(read_place(place_of(port)), KEEP) {
    EXPECT_TRUE(connect()) << error();
  }
  // Everything anew; an empty text is a key.
  Outcome fill(const Pairs& records, int64_t fed, const std::string& id = ID) {
    if (const Outcome outcome = start(); outcome != DONE) return outcome;
    for (const auto& [path, value] : records) EXPECT_EQ(add(path, value, fed), DONE);
    return finish(id, fed);
  }
  State state() {
    State now;
    EXPECT_EQ(look(ID, 0, now), DONE) << error();
    return now;
  }
};

struct Reader : IgniteOdbcClient {
  explicit Reader(int port, const std::string& more = "") {
    std::string connection = place_of(port, more);
    is_connected = Connect(connection);
  }
  // "=TEXT" of a value, "key", "none", or "failed".
  std::string value(const std::string& path) {
    bool ok = false;
    const auto found = GetValue(path, ok);
    if (!found) return ok ? "none" : "failed";
    EXPECT_TRUE(ok && found->exists);
    return found->is_subtree ? "key" : "=" + found->value.str();
  }
  // "path=text " of each, or as above.
  std::string tree(const std::string& path) {
    bool ok = false;
    std::list<std::pair<RWCString, RWCString>> values;
    const auto found = GetSubTree(path, values, ok);
    EXPECT_TRUE(found || values.empty());
    if (!found) return ok ? "none" : "failed";
    if (!found->is_subtree) return "value";
    std::string text;
    for (const auto& [at, value_at] : values) text += at.str() + "=" + value_at.str() + " ";
    return text;
  }
  bool is_connected = false;
};

const Pairs small_tree = {{"a", ""},    {"a\\b", ""}, {"a\\b\\v", "1"}, {"a\\b\\w", "2"},
                          {"a\\c", ""}, {"a]", ""},   {"a]\\x", "3"}};

TEST(DataGridTree, IsReadAsItWasFed) {
  const Test_Redis redis;
  Feeder feeder(redis.port());
  Reader reader(redis.port()), other(redis.port(), " grid=other");
  EXPECT_EQ(reader.value("a\\b\\v"), "none") << "not fed yet";
  ASSERT_EQ(feeder.fill(small_tree, 7), Grid_Feed::DONE);
  EXPECT_EQ(reader.value("a\\b\\v"), "=1");
  EXPECT_EQ(reader.value("a\\b"), "key");
  EXPECT_EQ(reader.value("a\\b\\none"), "none");
  EXPECT_EQ(reader.value("\0fed"s), "none") << "no path";
  EXPECT_EQ(other.value("a\\b\\v"), "none") << "another grid";
  EXPECT_EQ(reader.tree("a"), "a\\b= a\\b\\v=1 a\\b\\w=2 a\\c= ");
  EXPECT_EQ(reader.tree("a\\c"), "");
  EXPECT_EQ(reader.tree("a\\b\\v"), "value");
  EXPECT_EQ(reader.tree("a\\d"), "none");

  // Changes of each kind, values that look like something else, a value that is too long.
  const std::string odd = "%d <x> '\r\n$1\r\n\xff"s, large(Grid_Feed::MOST_VALUE + 1, 'x');
  Grid_Feed::Changes changes;
  changes.remove("a\\b\\w");
  changes.remove_below("a]");
  changes.set("a\\c\\" + odd, "?1 v" + odd, 8);
  changes.set("a\\large", large, 8);
  ASSERT_EQ(feeder.apply(changes, feeder.state(), 8), Grid_Feed::DONE);
  EXPECT_EQ(reader.tree("a\\b"), "a\\b\\v=1 ");
  EXPECT_EQ(reader.tree("a]"), "");
  EXPECT_EQ(reader.value("a\\c\\" + odd), "=?1 v" + odd);
  EXPECT_EQ(reader.value("a\\large"), "none");
  EXPECT_EQ(reader.tree("a"), "none") << "not whole";
  EXPECT_EQ(reader.tree("a\\c"), "a\\c\\" + odd + "=?1 v" + odd + " ");

  // A subtree that takes several answers of the grid's own, and several messages of the feeder.
  Pairs many = {{"m", ""}};
  std::string expected;
  for (int i = 10000; i < 19001; ++i) {
    many.emplace_back("m\\" + std::to_string(i), std::to_string(i));
    expected += many.back().first + "=" + many.back().second + " ";
  }
  ASSERT_EQ(feeder.fill(many, 9), Grid_Feed::DONE);
  EXPECT_TRUE(reader.tree("m") == expected);
  EXPECT_EQ(reader.value("a\\b\\v"), "none") << "in place of all that was there";
}

TEST(DataGridTree, HidesWhatIsMarkedUntilItHasBeenReadAgain) {
  const Test_Redis redis;
  Feeder feeder(redis.port());
  Reader reader(redis.port());
  ASSERT_TRUE(reader.SetValue("a\\b\\v", "9")) << "nothing is there: nothing to hide";
  ASSERT_EQ(feeder.fill(small_tree, 7), Grid_Feed::DONE);
  const Grid_Feed::State before = feeder.state();

  ASSERT_TRUE(reader.SetValue("a\\b\\v", "9"));
  ASSERT_TRUE(reader.DeleteValue("a\\b\\new"));
  ASSERT_TRUE(reader.UpdateSubTree("a]"));
  const auto expect_hidden = [&] {
    EXPECT_EQ(reader.value("a\\b\\v"), "none");
    EXPECT_EQ(reader.tree("a\\b"), "none");
    EXPECT_EQ(reader.value("a]\\x"), "none");
    EXPECT_EQ(reader.value("a]"), "none");
    EXPECT_EQ(reader.value("a\\b\\w"), "=2") << "beside it";
    EXPECT_EQ(reader.tree("a\\c"), "") << "beside it";
  };
  expect_hidden();
  // What was read before the marks were seen.
  Grid_Feed::Changes read_before;
  for (const auto& [path, value] : small_tree) read_before.set(path, value, 8);
  ASSERT_EQ(feeder.apply(read_before, before, 8), Grid_Feed::DONE);
  expect_hidden();

  const Grid_Feed::State seen = feeder.state();
  EXPECT_EQ(seen.marked_trees, std::vector<std::string>({"a]"}));
  EXPECT_THAT(seen.marked_values, testing::UnorderedElementsAre("a\\b\\v", "a\\b\\new"));
  ASSERT_TRUE(reader.SetValue("a\\b\\w", "9")) << "after that";
  Grid_Feed::Changes read_after;
  read_after.set("a\\b\\v", "9", 9);
  read_after.remove("a\\b\\new");
  read_after.set("a\\b\\w", "2", 9);
  ASSERT_EQ(feeder.apply(read_after, seen, 9), Grid_Feed::DONE);
  EXPECT_EQ(reader.value("a\\b\\v"), "=9");
  EXPECT_EQ(reader.value("a]\\x"), "=3");
  EXPECT_EQ(reader.value("a\\b\\w"), "none");
  EXPECT_EQ(feeder.state().marked_values, std::vector<std::string>({"a\\b\\w"}));

  // What is marked while all is fed anew.
  ASSERT_EQ(feeder.start(), Grid_Feed::DONE);
  ASSERT_TRUE(reader.SetValue("a\\b\\v", "10"));
  ASSERT_TRUE(reader.UpdateSubTree("a\\c"));
  for (const auto& [path, value] : small_tree) feeder.add(path, value, 10);
  ASSERT_EQ(feeder.finish(ID, 10), Grid_Feed::DONE);
  EXPECT_EQ(reader.value("a\\b\\v"), "none");
  EXPECT_EQ(reader.tree("a\\c"), "none");
  EXPECT_EQ(reader.value("a\\b\\w"), "=2") << "marked before the start";

  // Marks without end become one of everything.
  for (int i = 0; i < 200; ++i) {
    ASSERT_TRUE(reader.UpdateSubTree("t\\" + std::to_string(i) + std::string(20, 'x')));
  }
  EXPECT_EQ(reader.value("a\\b\\w"), "none");
  EXPECT_EQ(feeder.state().marked_trees, std::vector<std::string>({""}));
  ASSERT_EQ(feeder.apply({}, feeder.state(), 11), Grid_Feed::DONE);
  for (int i = 0; i < 10100; ++i) reader.SetValue("t\\" + std::to_string(i), "");
  EXPECT_EQ(reader.value("a\\b\\w"), "none");
  EXPECT_EQ(feeder.state().marked_trees, std::vector<std::string>({""}));
}

TEST(DataGridTree, NothingOlderComesBack) {
  const Test_Redis redis;
  Feeder one(redis.port()), two(redis.port());
  Reader reader(redis.port());
  ASSERT_EQ(one.fill({{"v", "5"}}, 5), Grid_Feed::DONE);
  const Grid_Feed::State behind = two.state();
  Grid_Feed::Changes change_6, change_7;
  change_6.set("v", "6", 6);
  change_7.set("v", "7", 7);
  ASSERT_EQ(one.apply(change_7, one.state(), 7), Grid_Feed::DONE);
  EXPECT_EQ(two.apply(change_6, behind, 6), Grid_Feed::OTHER);
  EXPECT_EQ(two.apply(change_6, two.state(), 8), Grid_Feed::DONE) << "continues from 7";
  EXPECT_EQ(one.drop(behind), Grid_Feed::OTHER);

  // All anew, begun by one that then sleeps.
  ASSERT_EQ(one.start(), Grid_Feed::DONE);
  ASSERT_EQ(one.add("v", "5", 5), Grid_Feed::DONE);
  EXPECT_EQ(two.start(), Grid_Feed::OTHER) << "one at a time";
  EXPECT_EQ(one.finish(ID, 5), Grid_Feed::OTHER) << "what is there is newer";
  EXPECT_EQ(reader.value("v"), "=6");
  ASSERT_EQ(one.start(), Grid_Feed::DONE);
  redis.ask({"FLUSHALL"});
  ASSERT_EQ(two.fill({{"v", "9"}}, 9), Grid_Feed::DONE);
  EXPECT_EQ(one.finish(ID, 5), Grid_Feed::OTHER);
  EXPECT_EQ(one.apply(change_6, behind, 6), Grid_Feed::OTHER);
  EXPECT_EQ(reader.value("v"), "=9");
  EXPECT_EQ(two.drop(two.state()), Grid_Feed::DONE);
  EXPECT_EQ(two.fill({{"v", "4"}}, 4), Grid_Feed::DONE) << "a store that went back";
  EXPECT_EQ(one.fill({{"v", "1"}}, 1, "another store"), Grid_Feed::DONE);
  EXPECT_EQ(reader.value("v"), "=1");

  // Kept as long as somebody says that it is up to date.
  const auto rest = [&] { return std::stoll(redis.ask({"PTTL", "halvoria:{cfg}:records"})); };
  redis.ask({"PEXPIRE", "halvoria:{cfg}:records", "9000"});
  Grid_Feed::State state;
  one.look("another store", 2, state);
  one.look(ID, 1, state);
  EXPECT_LE(rest(), 9000);
  one.look("another store", 1, state);
  EXPECT_GT(rest(), 9000);
}

TEST(DataGridTree, AnswersNothingInPart) {
  const Test_Redis redis;
  Feeder feeder(redis.port());
  const std::string records = "halvoria:{cfg}:records", order = "halvoria:{cfg}:order";
  const struct {
    std::vector<std::string> loss;
    std::string value, tree;
    bool is_whole;
  } rows[] = {
      {{"FLUSHALL"}, "none", "none", false},
      {{"DEL", records}, "none", "none", false},
      {{"DEL", order}, "=1", "none", false},
      {{"DEL", "halvoria:{cfg}:marked"}, "=1", "a\\b\\v=1 a\\b\\w=2 ", true},
      {{"HDEL", records, "a\\b\\w"}, "=1", "none", false},
      {{"ZREM", order, "a\\b\\w"}, "=1", "none", false},
      {{"HSET", records, "a\\b\\v", ""}, "failed", "failed", true},
      {{"HSET", records, "a\\b\\v", "x v1"}, "failed", "failed", true},
      {{"HSET", records, "a\\b\\v", "99999999999999999999 v1"}, "failed", "failed", true},
      {{"SET", records, "text"}, "failed", "failed", false},
  };
  for (const auto& row : rows) {
    ASSERT_EQ(feeder.fill(small_tree, 7, row.loss.front() + row.loss.back()), Grid_Feed::DONE);
    Reader reader(redis.port());
    redis.ask(row.loss);
    EXPECT_EQ(reader.value("a\\b\\v"), row.value) << row.loss.front() << " " << row.loss.back();
    EXPECT_EQ(reader.tree("a\\b"), row.tree) << row.loss.front() << " " << row.loss.back();
    Grid_Feed::State state;
    const bool is_looked_at = feeder.look(ID, 0, state) == Grid_Feed::DONE;
    EXPECT_EQ(is_looked_at && state.is_whole, row.is_whole);
    if (!is_looked_at) feeder.connect();
    redis.ask({"FLUSHALL"});
  }
}

TEST(DataGridTree, SurvivesWhateverAnswers) {
  ScriptedGrid grid;
  const std::string no_limit = "$67108864\r\n" + std::string(size_t{3} << 20, 'x');
  const struct {
    std::string answer;
    bool is_slow, closes;
    const char* value;
    const char* tree;
  } rows[] = {
      {"*2\r\n$4\r\n1 v2\r\n$0\r\n\r\n", false, false, "=2", "failed"},
      {"*2\r\n$4\r\n1 v2\r\n$3\r\n1 \0\r\n"s, false, false, "none", "failed"},
      {"*2\r\n$4\r\n1 v2\r\n$2\r\nxx\r\n", false, false, "none", "failed"},
      {"*2\r\n$-1\r\n$0\r\n\r\n", false, false, "none", "failed"},
      {"$-1\r\n", false, false, "failed", "none"},
      {"$1\r\nv\r\n", false, false, "failed", "value"},
      {"$12\r\nk1:a6:10 vxy\r\n", false, false, "failed", "p\\a=xy "},
      {"$9\r\nk1:a6:10 \r\n", false, false, "failed", "failed"},
      {"$6\r\nk-1:ab\r\n", false, false, "failed", "failed"},
      {"$8\r\nk0:3:1 k\r\n", false, false, "failed", "failed"},
      {"$7\r\nk1:a2:?1\r\n", false, false, "failed", "failed"},
      {":1\r\n", false, false, "failed", "failed"},
      {"-OOM no memory\r\n", false, false, "failed", "failed"},
      {"*2\r\n*2\r\n$1\r\na\r\n$1\r\nb\r\n$0\r\n\r\n", false, false, "failed", "failed"},
      {"*1000000000\r\n", false, false, "failed", "failed"},
      {"*-5\r\n", false, false, "failed", "failed"},
      {"$9223372036854775807\r\n", false, true, "failed", "failed"},
      {"HTTP/1.1 400 Bad Request\r\n\r\n", false, false, "failed", "failed"},
      {"", false, true, "failed", "failed"},
      {"", false, false, "failed", "failed"},  // silence
      {"$1000\r\nx", true, false, "failed", "failed"},
      {no_limit, false, true, "failed", "failed"},
  };
  for (const auto& row : rows) {
    grid.answer(row.answer, row.is_slow, row.closes);
    {
      Reader reader(grid.port(), " timeout=200");
      ASSERT_TRUE(reader.is_connected);
      EXPECT_EQ(reader.value("p"), row.value) << row.answer.substr(0, 50);
    }
    Reader reader(grid.port(), " timeout=200");
    EXPECT_EQ(reader.tree("p"), row.tree) << row.answer.substr(0, 50);
  }
}

TEST(DataGridTree, IsFoundByItsConnectionString) {
  const struct {
    const char* text;
    const char* place;  // or what is wrong
  } rows[] = {
      {"", "127.0.0.1 6379   1000 cfg"},
      {" host=grid\tport=11110 ", "grid 11110   1000 cfg"},
      {"port=1 user=u password=p timeout=50 grid=a.b host=::1", "::1 1 u p 50 a.b"},
      {"host=h password='it''", "word 2 is not NAME=VALUE"},
      {"host=h password='it\\'s \\\\ ' port=2", "h 2  it's \\  1000 cfg"},
      {"host=h password=my secret", "word 3 is not NAME=VALUE"},
      {"host=h passwort=secret", "there is no setting 'passwort'"},
      {"port=65536", "port=65536 is no port, 1 to 65535"},
      {"timeout=9", "timeout=9 is no time, 10 to 60000 milliseconds"},
      {"grid={x}", "grid={x} is no name of a grid"},
      {"=x", "there is no setting ''"},
  };
  for (const auto& row : rows) {
    Grid_Place place;
    std::string fault;
    const Grid_Address& a = place.address;
    const std::string found = place.read(row.text, fault)
                                  ? a.host + " " + std::to_string(a.port) + " " + a.user + " " +
                                        a.password + " " + std::to_string(a.wait) + " " + place.grid
                                  : fault;
    EXPECT_EQ(found, row.place) << row.text;
  }
  const Test_Redis redis({"--requirepass", "se cret"});
  Log_Capture capture;
  EXPECT_TRUE(Reader(redis.port(), " password='se cret'").is_connected);
  EXPECT_TRUE(Reader(redis.port(), " user=default password='se cret'").is_connected);
  for (const char* wrong : {" password=xse_cretx", " password='xse_cretx", " xse_cretx", ""}) {
    EXPECT_FALSE(Reader(redis.port(), wrong).is_connected) << wrong;
  }
  EXPECT_TRUE(capture.has("the datagrid can not be reached: "));
  for (const auto& line : capture.lines()) EXPECT_EQ(line.text.find("cret"), std::string::npos);
}

TEST(DataGridTree, IsReadByManyThreadsAndByAChild) {
  std::optional<Test_Redis> redis(std::in_place);
  const int port = redis->port();
  Feeder feeder(port);
  ASSERT_EQ(feeder.fill(small_tree, 7), Grid_Feed::DONE);
  Reader reader(port);
  std::atomic<bool> is_over{false};
  std::atomic<int> reads{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 6; ++i) {
    threads.emplace_back([&] {
      while (!is_over) {
        EXPECT_EQ(reader.value("a\\b\\v"), "=1");
        EXPECT_EQ(reader.tree("a\\b"), "a\\b\\v=1 a\\b\\w=2 ");
        ++reads;
      }
    });
  }
#ifndef __SANITIZE_THREAD__  // which waits for ever in the child of a process with threads
  for (int i = 0; i < 20; ++i) {
    EXPECT_TRUE(holds_in_child([&] {
      for (int k = 0; k < 50; ++k) {
        if (reader.value("a\\b\\w") != "=2") return false;
      }
      return true;
    }));
  }
#endif
  while (reads < 500) std::this_thread::yield();
  is_over = true;
  for (std::thread& thread : threads) thread.join();

  // A server that begins anew may know less than what was read before.
  Reader idle(port), fresh(port);
  redis.emplace(std::vector<std::string>(), port);
  ASSERT_TRUE(redis->is_running());
  ASSERT_TRUE(feeder.connect());
  ASSERT_EQ(feeder.fill(small_tree, 7), Grid_Feed::DONE);
  EXPECT_EQ(idle.value("a\\b\\v"), "failed");
  EXPECT_EQ(idle.value("a\\b\\v"), "failed") << "over a new connection";
  EXPECT_FALSE(fresh.SetValue("a\\b\\v", "1"));
  EXPECT_EQ(Reader(port).value("a\\b\\v"), "=1");
}

}  // namespace
