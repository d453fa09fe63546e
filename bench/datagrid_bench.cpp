// Values read from the datagrid that the service fills, and what filling it costs who writes.
#include <algorithm>
#include <chrono>
#include <thread>

#include <CFG/CFG_Cache.h>
#include <CFG/CFG_SubTree.h>
#include <common/need.h>
#include <common/our_tree.h>
#include <common/scratch_database.h>
#include <common/wire_load.h>
#include <servers/Test_Redis.h>
#include <servers/Test_Service.h>

namespace bench {
namespace {

const RWCString kConfiguration("halvoria\\system\\applications\\cfg\\datagrid_cache\\");

constexpr int kMostWriters = 4;

// A service on a SQLite file of its own, which holds an installation; with a datagrid for all of
// it, complete, when a Redis is given.
class fed_service {
 public:
  fed_service(const records& all, const std::string& folder, const char* name,
              const Test_Redis* redis)
      : m_store(folder, name), m_service("sqlite:" + m_store.file(), "/dev/null", flags(redis)) {
    need(m_service.start(), "svcfg that listens");
    m_service.use();
    // The first request opens the connection, as long as the properties are those of this service.
    for (auto& repository : m_repositories) {
      repository = std::make_unique<CFG_Repository>();
      need(repository->Connect() && !repository->GetServerSyncID().isNull(), "a client");
    }
    CFG_SubTree tree(build_tree(all));
    need(client(0).AddOrReplaceSubTree(&tree, ""), "filling the service");
    if (redis) configure(*redis);
  }
  ~fed_service() { m_service.stop(); }

  // One of them for a thread.
  CFG_Repository& client(int number) { return *m_repositories[static_cast<size_t>(number)]; }

 private:
  static std::string place_of(const Test_Redis& redis) {
    return "host=127.0.0.1 port=" + std::to_string(redis.port());
  }
  static std::vector<std::string> flags(const Test_Redis* redis) {
    return redis ? std::vector<std::string>{"--datagrid", place_of(*redis)}
                 : std::vector<std::string>();
  }
  void configure(const Test_Redis& redis) {
    const auto set = [&](const char* name, const RWCString& value) {
      need(client(0).SetValue(kConfiguration + name, value), "configuring the datagrid");
    };
    set("enabled", "true");
    set("connection_string", RWCString(place_of(redis)));
    set("cache_paths", "halvoria");
    for (int i = 0; !client(0).GetBooleanValueWrapper(kConfiguration + "cache_ready", false); ++i) {
      need(i < 2000, "a datagrid that is filled");
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }

  const scratch_database m_store;
  Test_Service m_service;
  std::unique_ptr<CFG_Repository> m_repositories[kMostWriters];
};

class grid_client final : public wire_client {
 public:
  grid_client() { need(m_repository.Connect(), "a repository before which there is a datagrid"); }
  size_t get(const std::string& path) override { return m_repository.GetValue(path).length(); }

 private:
  CFG_Cache<CFG_Repository> m_repository;
};

struct fed_world {
  fed_world(const records& all, const std::string& folder) : service(all, folder, "fed", &redis) {}
  Test_Redis redis;
  fed_service service;
};

void read_values(report& result, const scale& s) {
  const records all = make_installation(std::min(s.hosts, 110));
  const wire_data data = values_of(all, 4800);
  const auto peers = [&] {
    std::vector<wire_peer> both = {{"CFG_Cache before svcfg",
                                    [] { return std::make_unique<grid_client>(); },
                                    std::make_shared<fed_world>(all, s.scratch)}};
    if (auto redis = redis_get(data, s.scratch)) both.push_back(*redis);
    return both;
  };
  {
    const on_one_processor pinned;
    wire_rows rows(data, s, peers());
    rows.measure(result, 1,
                 {{"a value from the datagrid, one client, all on one processor, p50",
                   "us",
                   wire_subject::P50,
                   {{kRedis, 1.15, {}}}}});
  }
  wire_rows rows(data, s, peers());
  rows.measure(result, 8,
               {{"values from the datagrid, 8 clients",
                 "us/read",
                 wire_subject::PER_READ,
                 {{kRedis, {}, {}}}}});
}

// Each writer sets values for good, one after the other.
void write_values(report& result, const scale& s) {
  const records all = make_installation(std::min(s.hosts, 110));
  const wire_data data = values_of(all, 4800);
  fed_world fed(all, s.scratch);
  fed_service alone(all, s.scratch, "unfed", nullptr);
  const size_t count = std::min<size_t>(400, s.calls / 30);
  for (const int writers : {1, kMostWriters}) {
    rounds cases;
    int turn = 0;
    const auto sets = [&](fed_service& service) {
      return cases.add([&, count, writers]() -> std::vector<double> {
        const std::string text = std::to_string(++turn);
        const double time = time_ns(WALL, [&] {
          std::vector<std::thread> threads;
          for (int w = 0; w < writers; ++w) {
            threads.emplace_back([&, w] {
              for (size_t i = 0; i < count; ++i) {
                const size_t at = (i * 37 + static_cast<size_t>(w) * 1009) % data.size();
                need(service.client(w).SetValue(data[at].first, text), "setting a value");
              }
            });
          }
          for (std::thread& thread : threads) thread.join();
        });
        return {time / static_cast<double>(count) / writers};
      });
    };
    const auto ours = sets(fed.service);
    const auto theirs = sets(alone);
    cases.run(s.many_rounds);
    result.add({"a value set for good, the service feeds a datagrid, " + std::to_string(writers) +
                    (writers == 1 ? " client" : " clients"),
                "the service alone",
                "ns/commit",
                1.15,
                {}},
               cases.of(ours), cases.of(theirs));
  }
}

}  // namespace

report datagrid_suite(const scale& s) {
  report result;
  read_values(result, s);
  write_values(result, s);
  return result;
}

}  // namespace bench
