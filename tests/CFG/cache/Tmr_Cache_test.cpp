#include <Tmr/Tmr_Cache.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include <logging/Log_Capture.h>
#include <support/forked.h>

namespace {

using testing::ElementsAre;
using Texts = Tmr_Cache_LRU<std::string, std::string>;

std::string keys_of(Texts& cache) {
  std::string keys;
  cache.each_key([&](const std::string& key) { keys += key; });
  return keys;
}

std::string read(Texts& cache, const std::string& key) {
  std::string value = "(left alone)";
  return cache.get_value(key, value) ? value : "miss " + value;
}

std::vector<std::string> lines_of(const Log_Capture& log, int level) {
  std::vector<std::string> texts;
  for (const auto& line : log.lines()) {
    if (line.level == level) texts.push_back(line.text);
  }
  return texts;
}

TEST(CacheLRU, DropsWhatWasSetOrReadLeastRecently) {
  Texts cache(3, 0);
  for (const char* key : {"a", "b", "c"}) cache.set_value(key, std::string("1") + key);
  EXPECT_EQ(read(cache, "a"), "1a");
  cache.set_value("b", "2b");  // a key that is there takes no other's place
  EXPECT_EQ(keys_of(cache), "bac");
  const Log_Capture log;
  cache.set_value("d", "1d");
  EXPECT_EQ(keys_of(cache), "dba");
  EXPECT_THAT(lines_of(log, 6), ElementsAre("cache is full,removing last element from it"));
  EXPECT_EQ(read(cache, "c"), "miss (left alone)");
  EXPECT_EQ(read(cache, "b"), "2b");
  EXPECT_TRUE(cache.is_in_cache("a"));
  EXPECT_EQ(keys_of(cache), "bda");  // asking is not reading
  EXPECT_EQ(cache.counts(), (Tmr_CacheCounts{2, 1, 1, 0}));

  cache.remove_from_cache("d");
  cache.remove_from_cache("d");
  cache.print_cache();
  EXPECT_THAT(lines_of(log, 6), ElementsAre("cache is full,removing last element from it",
                                            "removing from cache <d>", "cache list = b\na\n "));
  cache.clear_cache();
  EXPECT_EQ(cache.size(), 0u);
  EXPECT_EQ(read(cache, "b"), "miss (left alone)");
}

TEST(CacheLRU, WithoutRoomKeepsNothing) {
  for (const int capacity : {0, -1}) {
    Texts cache(capacity, 0);
    cache.set_value("a", "1");
    EXPECT_FALSE(cache.is_in_cache("a")) << capacity;
  }
}

TEST(CacheLRU, FindsAndRemovesByWhatHoldsForAKey) {
  Texts cache(9, 0);
  for (const char* key : {"x1", "y1", "x2", "y2"}) cache.set_value(key, key);
  const auto is_x = [](const std::string& key) { return key[0] == 'x'; };
  std::string key, value;
  ASSERT_TRUE(cache.find_first(is_x, key, value));
  EXPECT_EQ(key + value, "x2x2");
  EXPECT_EQ(keys_of(cache), "x2y2y1x1");  // it was read
  EXPECT_EQ(cache.take_if(is_x).size(), 2u);
  EXPECT_EQ(keys_of(cache), "y2y1");
  EXPECT_FALSE(cache.find_first(is_x, key, value));
  EXPECT_EQ(key + value, "x2x2");
}

// Values that ask their cache when they go, which would wait for ever with the lock held.
struct Asking {
  explicit Asking(Tmr_Cache_LRU<std::string, std::shared_ptr<Asking>>& of, int& gone)
      : cache(of), count(gone) {}
  ~Asking() {
    cache.is_in_cache("x");
    ++count;
  }
  Tmr_Cache_LRU<std::string, std::shared_ptr<Asking>>& cache;
  int& count;
};

TEST(CacheLRU, ValuesGoWithoutTheLock) {
  int gone = 0;
  Tmr_Cache_LRU<std::string, std::shared_ptr<Asking>> cache(2, 0);
  const auto set = [&](const char* key) {
    cache.set_value(key, std::make_shared<Asking>(cache, gone));
  };
  set("a");
  set("a");  // replaced
  set("b");
  set("c");  // evicts
  EXPECT_EQ(gone, 2);
  auto out = std::make_shared<Asking>(cache, gone);
  EXPECT_TRUE(cache.get_value("b", out));  // what was in there
  std::string key;
  auto other = std::make_shared<Asking>(cache, gone);
  EXPECT_TRUE(cache.find_first([](const std::string& k) { return k == "b"; }, key, other));
  EXPECT_EQ(gone, 4);
  out = other = nullptr;
  cache.remove_from_cache("b");
  RWCString name = "c";
  cache.OnTimerExpired(name);
  set("d");
  cache.clear_cache();
  EXPECT_EQ(gone, 7);
}

TEST(CacheLRU, AKeyExpiresHoweverOftenItIsRead) {
  Texts cache(9, 1);
  cache.set_value("a", "1");
  cache.set_value("b", "1");
  while (cache.is_in_cache("a")) read(cache, "b");
  while (cache.is_in_cache("b")) std::this_thread::yield();
  EXPECT_EQ(cache.counts().expiries, 2u);

  const Log_Capture log;
  RWCString name = "a";
  cache.set_value("a", "2");
  cache.OnTimerExpired(name);  // a timer of before takes whatever is there
  cache.OnTimerExpired(name);
  EXPECT_FALSE(cache.is_in_cache("a"));
  EXPECT_EQ(cache.counts().expiries, 3u);
  EXPECT_THAT(lines_of(log, 5), ElementsAre("timeout for key <a>", "timeout for key <a>"));
  EXPECT_THAT(lines_of(log, 6), ElementsAre("removing from cache <a>"));
}

TEST(CacheLRU, KeysExpireInAChildToo) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the sanitizer lets a child of several threads start none";
#endif
  Texts cache(9, 1);
  cache.set_value("a", "1");
  EXPECT_TRUE(holds_in_child([&] {
    while (read(cache, "a") == "1") std::this_thread::yield();
    return true;
  }));
}

// What may happen at once: reads, sets, removals, expiry, and the end right after.
TEST(CacheLRU, ManyThreadsUseOneCache) {
  for (int round = 0; round < 20; ++round) {
    Tmr_Cache_LRU<std::string, std::shared_ptr<int>> cache(4, 1);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&cache, t] {
        std::shared_ptr<int> value;
        std::string key;
        for (int i = 0; i < 400; ++i) {
          const std::string mine = "k" + std::to_string((i * (t + 1)) % 7);
          cache.set_value(mine, std::make_shared<int>(i));
          ASSERT_TRUE(!cache.get_value(mine, value) || *value >= 0);
          RWCString name = mine;
          if (i % 5 == 0) cache.OnTimerExpired(name);
          if (i % 7 == 0) cache.take_if([&](const std::string& k) { return k < mine; });
          cache.find_first([](const std::string& k) { return k > "k3"; }, key, value);
          if (i % 50 == t) cache.clear_cache();
          ASSERT_LE(cache.size(), 4u);
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
  }
}

}  // namespace
