// A repository in front of which there is a datagrid.
#include <CFG/CFG_Cache.h>

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <random>
#include <thread>

#include <CFG/CFG_InMemoryCache_Thin.h>
#include <CFG/cache/process_name.h>
#include <CFG/temporary_folder.h>
#include <CFG/test_trees.h>
#include <datagrid/Grid_Feed.h>
#include <logging/Log_Capture.h>
#include <servers/Test_Redis.h>
#include <servers/Test_Seed.h>
#include <servers/Test_Service.h>
#include <support/comes.h>
#include <support/scripted_grid.h>

namespace {

using namespace std::chrono_literals;

const std::string kConfiguration = "halvoria\\system\\applications\\cfg\\datagrid_cache\\";
constexpr char kGivenUp[] =
    "an exception occured while querying datagrid cache, won't use it for that process";

RWCString configured(const char* name) { return RWCString(kConfiguration + name); }

TEST(DatagridConfiguration, SaysWhichPathsGoWhere) {
  const RWCString process("tool");
  CFG_SubTree tree = tree_of("datagrid_cache", {{"enabled", "true"},
                                                {"cache_ready", "true"},
                                                {"updater_interval_seconds", "7"},
                                                {"cache_paths", "h\\a;h\\b"},
                                                {"connection_string", "host=x"},
                                                {"tool\\blacklist", "h\\a\\no;h\\x"},
                                                {"tool\\readonly_blacklist", "h\\a\\told"}});
  Log_Capture log;
  CFG_DataGridCache_Configurations all(&tree, process);
  EXPECT_TRUE(log.has("Adding path : <h\\x> to datagrid cache blacklist"));
  EXPECT_TRUE(log.has("adding path h\\x to blacklist"));
  EXPECT_TRUE(log.has("Adding path : <h\\a\\told> to datagrid cache readonly blacklist"));
  EXPECT_EQ(all.updater_interval(), 7);
  EXPECT_EQ(all.connection_string(), "host=x");
  tree.SetValue("cache_ready", "false");
  CFG_DataGridCache_Configurations unready(&tree, process);
  tree.SetValue("tool\\enabled", "false");
  CFG_DataGridCache_Configurations disabled(&tree, process);
  tree.SetValue("enabled", "false");
  tree.SetValue("tool\\enabled", "true");
  EXPECT_TRUE(CFG_DataGridCache_Configurations(&tree, process).is_enabled());
  EXPECT_FALSE(CFG_DataGridCache_Configurations(&tree, "other").is_enabled());
  CFG_DataGridCache_Configurations none(nullptr, process);
  EXPECT_EQ(none.updater_interval(), 10);

  const std::string not_cached = "> is not in cache paths, will not use datagrid cache";
  const struct {
    CFG_DataGridCache_Configurations& configuration;
    const char* path;
    bool for_read, is_used;
    std::string line;
  } rows[] = {
      {none, "h\\a", true, false, "datagrid cache disable, won't use cache for this path : <h\\a>"},
      {disabled, "h\\a", false, false,
       "datagrid cache disable, won't use cache for this path : <h\\a>"},
      {unready, "h\\a", true, false,
       "datagrid cache is enabled but cache is not ready yet, will not use cache for this path : "
       "<h\\a>"},
      {unready, "h\\a", false, true, "going to use datagrid cache for path : <h\\a>"},
      {all, "h\\a", true, true, "going to use datagrid cache for path : <h\\a>"},
      {all, "x\\h\\b\\c", true, true, "going to use datagrid cache for path : <x\\h\\b\\c>"},
      {all, "h\\ab", true, false, "path : <h\\ab" + not_cached},
      {all, "h", true, false, "path : <h" + not_cached},
      {all, "h\\a\\no\\c", true, false,
       "path : <h\\a\\no\\c> is in black list, will not use datagrid cache"},
      {all, "h\\a\\no", false, false,
       "path : <h\\a\\no> is in black list, will not use datagrid cache"},
      {all, "h\\a\\told\\c", true, false,
       "path : <h\\a\\told\\c> is in read only black list,will not use datagrid cache"},
      {all, "h\\a\\told\\c", false, true, "going to use datagrid cache for path : <h\\a\\told\\c>"},
  };
  for (const auto& row : rows) {
    log.clear();
    EXPECT_EQ(row.configuration.UseCache(row.path, row.for_read), row.is_used) << row.path;
    EXPECT_TRUE(log.has(row.line)) << row.line;
  }
  EXPECT_TRUE(all.ConcernsCache("h"));
  EXPECT_TRUE(all.ConcernsCache("h\\a\\no"));
  EXPECT_FALSE(all.ConcernsCache("h\\c"));
}

// A store whose datagrid holds what the test says: texts that the store does not have show where a
// value came from.
template <class T>
class Cache : public testing::Test {
 protected:
  void SetUp() override {
    store().SetValue(configured("enabled"), "true");
    store().SetValue(configured("cache_ready"), "true");
    store().SetValue(configured("cache_paths"), "halvoria\\grid;halvoria\\one");
    store().SetValue(configured("connection_string"),
                     "host=${TEST_GRID_HOST} port=%TEST_GRID_PORT% timeout=500 password=se-cret");
    const RWCString own(kConfiguration + cfg::process_name().str());
    store().SetValue(own + "\\blacklist", "halvoria\\grid\\black");
    store().SetValue(own + "\\readonly_blacklist", "halvoria\\grid\\read");
    for (const char* path : {"k\\v", "k\\w", "black\\v", "read\\v"}) {
      store().SetValue(RWCString("halvoria\\grid\\") + path, "stored");
    }
    store().SetValue("halvoria\\beside\\v", "stored");
    setenv("TEST_GRID_HOST", "127.0.0.1", 1);
    use_grid(redis->port());
    feed();
  }
  static void use_grid(int port) { setenv("TEST_GRID_PORT", std::to_string(port).c_str(), 1); }

  CFG_DBRepository& store() {
    if (!m_store) {
      m_store.emplace(RWCString(connection), RWCString());
      EXPECT_TRUE(m_store->Connect());
    }
    return *m_store;
  }
  std::unique_ptr<CFG_Cache<T>> connected() {
    std::unique_ptr<CFG_Cache<T>> cache;
    if constexpr (std::is_same_v<T, CFG_Repository>) {
      if (!m_service) {
        m_service = std::make_unique<Test_Service>(connection, (m_folder / "log").string());
        EXPECT_TRUE(m_service->start());
      }
      m_service->use();
      cache = std::make_unique<CFG_Cache<T>>();
    } else {
      cache = std::make_unique<CFG_Cache<T>>(RWCString(connection), RWCString());
    }
    EXPECT_TRUE(cache->Connect());
    return cache;
  }
  // All anew, every value with the text; nothing that was marked is hidden after it.
  void feed(const std::string& text = "grid") { feed("password=se-cret", text); }
  void feed(const std::string& how, const std::string& text) {
    Grid_Place place;
    std::string fault;
    EXPECT_TRUE(place.read(how + " port=" + std::to_string(redis->port()), fault));
    Grid_Feed grid(place, 60000);
    EXPECT_TRUE(grid.connect()) << grid.error();
    EXPECT_EQ(grid.start(), Grid_Feed::DONE);
    for (const char* path : {"", "\\k", "\\k\\v", "\\k\\w", "\\black", "\\black\\v", "\\read",
                             "\\read\\v", "\\only"}) {
      const bool is_value = std::string(path).find("\\v") != std::string::npos ||
                            std::string(path).find("\\w") != std::string::npos;
      grid.add("halvoria\\grid" + std::string(path), is_value ? text : "", 1);
    }
    EXPECT_EQ(grid.finish(std::to_string(++m_fed), 1), Grid_Feed::DONE);
  }

  TemporaryFolder m_folder;
  const std::string connection = "sqlite:" + (m_folder / "tree.db").string();
  const std::vector<std::string> m_settings = {"--requirepass", "se-cret"};
  std::optional<Test_Redis> redis{std::in_place, m_settings};
  std::unique_ptr<Test_Service> m_service;

 private:
  std::optional<CFG_DBRepository> m_store;
  int m_fed = 0;
};

using Kinds = testing::Types<CFG_Repository, CFG_DBRepository>;
TYPED_TEST_SUITE(Cache, Kinds);

TYPED_TEST(Cache, ReadsWhatTheDatagridHasAndAllElseFromTheRepository) {
  Log_Capture log;
  const auto cache = this->connected();
  const struct {
    const char* path;
    const char* value;
    const char* line;
  } rows[] = {
      {"Halvoria\\Grid\\k\\v", "grid",
       "path found in cache and is valid. path = <halvoria\\grid\\k\\v>, value = <grid>"},
      {"halvoria\\grid\\none", "", "path not found in cache, path = <halvoria\\grid\\none>"},
      {"halvoria\\one", "", "path not found in cache, path = <halvoria\\one>"},
      {"halvoria\\grid\\k", "", "got subtree while expecting value in path <halvoria\\grid\\k>"},
      {"halvoria\\grid\\black\\v", "stored", "is in black list"},
      {"halvoria\\grid\\read\\v", "stored", "is in read only black list"},
      {"halvoria\\beside\\v", "stored", "is not in cache paths"},
  };
  for (const auto& row : rows) {
    log.clear();
    EXPECT_EQ(cache->GetValue(RWCString(row.path)), row.value) << row.path;
    EXPECT_TRUE(log.has(row.line)) << row.line;
  }
  const auto tree_at = [&](const char* path) {
    return SubTreePtr(cache->GetSubTree(RWCString(path)));
  };
  EXPECT_EQ(tree_at("halvoria\\grid\\k")->GetValue(RWCString("w")), "grid");
  EXPECT_TRUE(log.has("Subtree <halvoria\\grid\\k> found in cache, will load it from cache"));
  EXPECT_EQ(tree_at("halvoria\\grid\\k")->GetPath(), "halvoria\\grid\\k");
  EXPECT_TRUE(tree_at("halvoria\\grid\\only"));
  EXPECT_FALSE(tree_at("halvoria\\grid\\k\\v"));
  EXPECT_TRUE(log.has("got value while expecting subtree in path <halvoria\\grid\\k\\v>"));
  EXPECT_FALSE(tree_at("halvoria\\grid\\none"));
  EXPECT_TRUE(log.has("subtree not found in cache, path = <halvoria\\grid\\none>"));

  // Along search paths the first place decides: behind it something may be that the grid has not.
  const char* grid_first[] = {"halvoria\\grid\\k", "halvoria\\beside"};
  const char* beside_first[] = {"halvoria\\beside", "halvoria\\grid\\k"};
  const char* black_first[] = {"halvoria\\grid\\black", "halvoria\\grid\\k"};
  const char* none_first[] = {"halvoria\\grid\\none", "halvoria\\grid\\k"};
  const auto found = [&](const char** rule) {
    const std::unique_ptr<Tree_ValueAndPath> at(cache->GetValue(RWCString("v"), rule, 2));
    return at ? std::string(at->GetValue()) + " " + at->GetPath() : "nothing";
  };
  EXPECT_EQ(found(grid_first), "grid halvoria\\grid\\k");
  EXPECT_EQ(found(beside_first), "stored halvoria\\beside");
  EXPECT_TRUE(log.has("Not using cache for path = <halvoria\\beside\\v>"));
  EXPECT_EQ(found(black_first), "stored halvoria\\grid\\black");
  EXPECT_EQ(found(none_first), "stored halvoria\\grid\\k");
  EXPECT_EQ(cache->GetValue(RWCString("v"), nullptr, 0), nullptr);
  const char* top[] = {"halvoria\\grid", "halvoria"};
  EXPECT_EQ(SubTreePtr(cache->GetSubTree(RWCString("k"), top, 2))->GetValue(RWCString("v")),
            "grid");
  EXPECT_TRUE(log.has("subtree found in cache. path = <halvoria\\grid\\k>"));
  for (const auto& line : log.lines()) {
    EXPECT_EQ(line.text.find("se-cret"), std::string::npos) << line.text;
  }
}

TYPED_TEST(Cache, NeverReadsWhatItHasOverwritten) {
  const auto cache = this->connected();
  const RWCString path("halvoria\\grid\\k\\v"), beside("halvoria\\grid\\k\\w");
  const RWCString key("halvoria\\grid\\k");
  const auto value = [&] { return cache->GetValue(path).str(); };
  const auto in_tree = [&] {
    const SubTreePtr tree(cache->GetSubTree(RWCString("halvoria\\grid")));
    return tree ? tree->GetValue(RWCString("k\\v")).str() : "none";
  };
  ASSERT_EQ(value() + in_tree(), "gridgrid");
  Log_Capture log;
  ASSERT_TRUE(cache->SetValue(path, "new"));
  EXPECT_TRUE(log.has("Going to set path = <halvoria\\grid\\k\\v> with value = <new> to cache"));
  EXPECT_EQ(value() + in_tree(), "newnew");
  EXPECT_EQ(cache->GetValue(beside), "grid");
  ASSERT_TRUE(cache->DeleteValue(path));
  EXPECT_TRUE(log.has("Going to delete path = <halvoria\\grid\\k\\v> from cache"));
  EXPECT_EQ(value() + in_tree(), "");

  // An update: its own values, what is stored otherwise, and nothing older when it is over, though
  // what was told meanwhile has been brought back by then.
  for (const bool failed : {false, true}) {
    this->feed();
    ASSERT_TRUE(cache->StartTransactionUpdate());
    EXPECT_EQ(cache->GetValue(beside), "stored");
    const std::string text = failed ? "undone" : "kept";
    ASSERT_TRUE(cache->SetValue(path, RWCString(text)));
    this->feed("stale");
    EXPECT_EQ(value(), text);
    cache->EndTransactionUpdate(failed);
    EXPECT_EQ(value(), "kept");
    EXPECT_EQ(cache->GetValue(beside), "stale") << "was not written";
  }

  // Subtrees: written, merged into what is stored, renamed, deleted from above.
  this->feed();
  CFG_SubTree tree = tree_of("k", {{"v", "tree"}});
  ASSERT_TRUE(cache->AddOrReplaceSubTree(&tree, "halvoria\\grid"));
  EXPECT_TRUE(log.has("Going to update path = <halvoria\\grid\\k> to cache"));
  EXPECT_EQ(value() + in_tree(), "treetree");
  this->feed("stale");
  CFG_SubTree more = tree_of("k", {{"x", "more"}});
  ASSERT_TRUE(cache->AddOrReplaceSubTree(&more, "halvoria\\grid", TRUE));
  EXPECT_EQ(this->store().GetValue(path), "tree") << "not what the datagrid had";
  EXPECT_EQ(value(), "tree");
  this->feed();
  ASSERT_TRUE(cache->SetKeyName(key, "renamed"));
  EXPECT_EQ(value(), "");
  EXPECT_EQ(cache->GetValue(RWCString("halvoria\\grid\\renamed\\v")), "tree");
  this->feed();
  const RWCString black("halvoria\\grid\\black\\v");
  ASSERT_TRUE(cache->SetValue(black, "own"));
  const SubTreePtr whole(cache->GetSubTree(RWCString("halvoria\\grid")));
  EXPECT_EQ(whole->GetValue(RWCString("black\\v")), "own") << "by way of a key above it";
  this->feed();
  ASSERT_TRUE(cache->DeleteSubTree("halvoria\\grid"));
  EXPECT_EQ(value() + in_tree(), "none");
}

TYPED_TEST(Cache, GoesOnWithoutADatagridThatFails) {
  const RWCString path("halvoria\\grid\\k\\v");
  this->store().SetValue(configured("connection_string"), "port=%TEST_GRID_PORT% timeout=500");
  this->redis.emplace();
  this->use_grid(this->redis->port());
  for (const bool is_silent : {false, true}) {
    this->feed("", "grid");
    const auto reads = this->connected(), writes = this->connected(), trees = this->connected();
    EXPECT_EQ(reads->GetValue(path), "grid");
    EXPECT_TRUE(writes->SetValue("halvoria\\grid\\other", "1"));
    EXPECT_EQ(trees->GetValue(path), "grid");
    if (is_silent) {
      this->redis->ask({"CLIENT", "PAUSE", "60000", "ALL"});
    } else {
      const int port = this->redis->port();
      this->redis.reset();
      this->redis.emplace(std::vector<std::string>(), port);
    }
    Log_Capture log;
    EXPECT_EQ(reads->GetValue(path), "stored") << is_silent;
    EXPECT_TRUE(log.has(kGivenUp));
    log.clear();
    EXPECT_TRUE(writes->SetValue(path, "stored"));
    EXPECT_TRUE(log.has(kGivenUp));
    log.clear();
    EXPECT_TRUE(SubTreePtr(trees->GetSubTree(RWCString("halvoria\\grid\\k"))));
    EXPECT_TRUE(log.has(kGivenUp));
    log.clear();
    for (const auto* cache : {&reads, &writes, &trees}) {
      EXPECT_EQ((*cache)->GetValue(path), "stored");
      EXPECT_TRUE((*cache)->SetValue(path, "stored"));
    }
    EXPECT_FALSE(log.has(kGivenUp)) << "off for good";
  }
  // None at the beginning, and one that answers nonsense.
  ScriptedGrid nonsense;
  nonsense.answer("+what?\r\n");
  for (const int port : {1, nonsense.port()}) {
    this->use_grid(port);
    EXPECT_EQ(this->connected()->GetValue(path), "stored");
  }
}

TYPED_TEST(Cache, BeginsToReadWhenTheDatagridIsReady) {
  this->store().SetValue(configured("cache_ready"), "false");
  this->store().SetValue(configured("updater_interval_seconds"), "1");
  const auto cache = this->connected(), leaves = this->connected();
  const RWCString path("halvoria\\grid\\k\\v");
  EXPECT_EQ(cache->GetValue(path), "stored");
  EXPECT_TRUE(cache->SetValue("halvoria\\grid\\k\\w", "new")) << "told already";
  this->store().SetValue(configured("cache_ready"), "true");
  EXPECT_TRUE(comes([&] { return cache->GetValue(path) == "grid"; }));
  EXPECT_EQ(cache->GetValue(RWCString("halvoria\\grid\\k\\w")), "new");
}

// With a service that feeds: whatever one object does, it reads what its repository has.
TEST(CacheAtAService, ReadsAsItsRepositoryAfterEachOperation) {
  std::mt19937 random(test_seed());
  const Test_Redis redis;
  const TemporaryFolder folder;
  const std::string place = "host=127.0.0.1 port=" + std::to_string(redis.port());
  Test_Service service("sqlite:" + (folder / "tree.db").string(), (folder / "log").string(),
                       {"--datagrid", place});
  ASSERT_TRUE(service.start());
  service.use();
  CFG_Repository other;
  ASSERT_TRUE(other.Connect());
  other.SetValue(configured("enabled"), "true");
  other.SetValue(configured("connection_string"), RWCString(place));
  other.SetValue("halvoria\\grid\\a\\v", "0");
  other.SetValue(configured("cache_paths"), "halvoria\\grid");
  ASSERT_TRUE(
      comes([&] { return other.GetBooleanValueWrapper(configured("cache_ready"), false); }));
  CFG_Cache<CFG_Repository> cache;
  ASSERT_TRUE(cache.Connect());
  const auto any_key = [&] {
    return RWCString("halvoria\\grid\\" + std::string(1, static_cast<char>('a' + random() % 4)));
  };
  const auto any_path = [&] { return any_key() + (random() % 2 ? "\\v" : "\\w"); };
  CFG_InMemoryCache_Thin grid("");
  std::string connection = place;
  ASSERT_TRUE(grid.Connect(connection));
  int hits = 0;
  for (int i = 0; i < 1500; ++i) {
    const RWCString text(std::to_string(i));
    CFG_SubTree tree = tree_of("b", {{"v", text.data()}, {"x", text.data()}});
    switch (random() % 10) {
      case 0:
        cache.DeleteValue(any_path());
        break;
      case 1:
        cache.DeleteSubTree(any_key());
        break;
      case 2:
        cache.AddOrReplaceSubTree(&tree, "halvoria\\grid", static_cast<int>(random() % 2));
        break;
      case 3:
        cache.SetKeyName(any_key(), "c");
        break;
      case 4: {
        ASSERT_TRUE(cache.StartTransactionUpdate());
        const RWCString path = any_path();
        cache.SetValue(path, text);
        EXPECT_EQ(cache.GetValue(path), cache.CFG_Repository::GetValue(path));
        cache.EndTransactionUpdate(random() % 2 == 0);
        break;
      }
      default:
        cache.SetValue(any_path(), text);
    }
    if (random() % 4 == 0) std::this_thread::sleep_for(8ms);  // the feeder comes in between, or not
    for (int k = 0; k < 4; ++k) {
      const RWCString path = any_path();
      RWCString found;
      hits += grid.GetValue(path, found) == CACHE_FOUND;
      ASSERT_EQ(cache.GetValue(path), cache.CFG_Repository::GetValue(path)) << path << " " << i;
    }
    RWCString top("halvoria\\grid");
    const SubTreePtr read(cache.GetSubTree(top)), stored(cache.CFG_Repository::GetSubTree(top));
    ASSERT_EQ(read != nullptr, stored != nullptr);
    if (read) {
      ASSERT_EQ(shown(read), shown(stored)) << i;
    }
  }
  EXPECT_TRUE(comes([&] {
    const RWCString path = any_path();
    RWCString found;
    hits += grid.GetValue(path, found) == CACHE_FOUND;
    EXPECT_EQ(cache.GetValue(path), cache.CFG_Repository::GetValue(path)) << path;
    return hits > 100;
  })) << "hardly anything came from the datagrid: "
      << hits;
}

}  // namespace
