// The cache of a process: the container beside one of a few lines, and reads through a repository
// beside what they spare.
#include <algorithm>
#include <memory>
#include <optional>

#include <CFG/CFG_InProcessCacheRepository.h>
#include <CFG/CFG_SubTree.h>
#include <Tmr/Tmr_Cache.h>
#include <common/child.h>
#include <common/footprint.h>
#include <common/need.h>
#include <common/our_service.h>
#include <common/suite.h>
#include <common/two_threads.h>
#include <common/wire_load.h>
#include <peers/list_and_map.h>
#include <peers/time_map.h>
#include <tree/Tree_Node.h>
#include <utility/Tmr_Timers.h>

namespace bench {
namespace {

constexpr int kEntries = 100;
constexpr int kTimeout = 1800;  // seconds

using value_cache = Tmr_Cache_LRU<std::string, std::string>;

// --- the container -----------------------------------------------------------------------------

void add_hits(report& result, const scale& s, const wire_data& data) {
  value_cache ours(kEntries, 0);
  list_and_map theirs(kEntries);
  for (const auto& [path, value] : data) {
    ours.set_value(path, value);
    theirs.set(path, value);
  }
  const size_t n = data.size();
  const auto read_ours = [&] {
    std::string text;
    for (const auto& entry : data) keep(ours.get_value(entry.first, text));
  };
  const auto read_theirs = [&] {
    std::string text;
    for (const auto& entry : data) keep(theirs.get(entry.first, text));
  };
  const auto often = [&](auto read) {
    const size_t turns = std::max<size_t>(s.calls / n, 1);
    return per_call(turns * n, [=] {
      for (size_t i = 0; i < turns; ++i) read();
    });
  };
  rounds one;
  const auto our_read = one.add(often(read_ours)), their_read = one.add(often(read_theirs));
  one.run(s.many_rounds);
  result.add({"a value hit", list_and_map::name, "ns/read", 1.0, {}}, one.of(our_read),
             one.of(their_read));
  if (!two_processors()) return;
  rounds two;
  const auto both = [&](std::function<void()> read) {
    return two.add([=]() -> std::vector<double> {
      return {cost_of_sharing([&] {
                for (int i = 0; i < 5; ++i) read();
              }).together /
              static_cast<double>(5 * n)};
    });
  };
  const auto our_reads = both(read_ours), their_reads = both(read_theirs);
  two.run(s.few_rounds);
  result.add({"a value hit, two threads", list_and_map::name, "ns/read", 0.5, {}},
             two.of(our_reads), two.of(their_reads));
}

void add_sets(report& result, const scale& s, const wire_data& data) {
  value_cache ours(kEntries, 0), timed(kEntries, kTimeout);
  list_and_map theirs(kEntries);
  const auto each = [&](auto set) {
    return per_call(data.size(), [&data, set] {
      for (const auto& [path, value] : data) set(path, value);
    });
  };
  rounds sets;
  const auto our_set =
      sets.add(each([&](auto& path, auto& value) { ours.set_value(path, value); }));
  const auto timed_set =
      sets.add(each([&](auto& path, auto& value) { timed.set_value(path, value); }));
  const auto their_set = sets.add(each([&](auto& path, auto& value) { theirs.set(path, value); }));
  sets.run(s.many_rounds);
  const char* const unit = "ns/set";
  result.add({"a set that pushes out another", list_and_map::name, unit, 1.0, {}}, sets.of(our_set),
             sets.of(their_set));
  result.add({"the same, and it expires", "the same that does not", unit, {}, {}},
             sets.of(timed_set), sets.of(our_set));
}

// --- timers --------------------------------------------------------------------------------------

constexpr size_t kTimers = 1000000;

// So many sets within one time-out: what the timers cost that are on their way then.
template <class Timers>
std::vector<double> cost_of_timers(const std::vector<std::string>& names) {
  return figures_in_child([&]() -> std::vector<double> {
    using namespace std::chrono;
    const auto begin = steady_clock::now();
    const double before = footprint_now().in_use;
    Timers timers;
    const double ns = time_ns(CPU, [&] {
      for (size_t i = 0; i < kTimers; ++i) {
        timers.Set(nullptr, names[i % names.size()], begin + i * seconds(kTimeout) / kTimers);
      }
    });
    return {ns / kTimers, (footprint_now().in_use - before) / kTimers};
  });
}

void add_timers(report& result, const scale& s) {
  for (const size_t count : {kTimers, kTimers / 10000}) {
    std::vector<std::string> names;
    for (size_t i = 0; i < count; ++i) {
      std::string number = std::to_string(i);
      names.push_back(std::string(32 - number.size(), 'n') + number);
    }
    rounds one;
    const auto ours = one.add([&] { return cost_of_timers<Tmr_Timers>(names); });
    const auto theirs = one.add([&] { return cost_of_timers<time_map>(names); });
    one.run(s.few_rounds);
    const std::string subject = count == kTimers ? "a timer, of a million with a name each"
                                                 : "a timer, of a million over 100 names";
    result.add({subject, time_map::name, "ns/timer", {}, {}}, one.of(ours), one.of(theirs));
    result.add({subject, time_map::name, "bytes/timer", {}, {}}, one.of(ours, 1),
               one.of(theirs, 1));
  }
}

// --- a repository ------------------------------------------------------------------------------

// One of the service, with the cache configured in the tree for this program.
std::unique_ptr<CFG_InProcessCacheRepository<CFG_Repository>> cached_repository() {
  const RWCString place("halvoria\\system\\applications\\cfg\\in_process_cache\\halvoria_bench\\");
  need(our_service::connect()->SetValue(place + "enable", "true") &&
           our_service::connect()->SetValue(place + "load_on_start", "halvoria\\system\\nodes"),
       "configuring the cache");
  auto cached = std::make_unique<CFG_InProcessCacheRepository<CFG_Repository>>();
  need(cached->Connect(), "a repository behind a cache");
  return cached;
}

void add_reads(report& result, const scale& s) {
  const on_one_processor pinned;
  const records all = make_installation(std::min(s.hosts, 110));
  const our_service service(all, s.scratch);
  const auto plain = our_service::connect();
  const auto cached = cached_repository();
  wire_data data = values_of(all, kEntries / 2);
  const auto wall = [&](CFG_Repository& store, size_t turns) -> rounds::measure {
    return [&data, &store, turns]() -> std::vector<double> {
      return {time_ns(WALL,
                      [&] {
                        for (size_t i = 0; i < turns; ++i) {
                          for (const auto& entry : data)
                            keep(store.GetValue(RWCString(entry.first)));
                        }
                      }) /
              static_cast<double>(turns * data.size())};
    };
  };
  for (const auto& entry : data) {
    need(cached->GetValue(RWCString(entry.first)).str() == entry.second, "a value");
  }
  rounds reads;
  const auto hit = reads.add(wall(*cached, std::max<size_t>(s.calls / data.size(), 1)));
  const auto asked = reads.add(wall(*plain, 2));
  // Each first read of a value is answered from the subtree that is kept.
  const auto below = reads.add([&]() -> std::vector<double> {
    cached->ClearCache();
    RWCString nodes("halvoria\\system\\nodes");
    bool flag;
    need(cached->GetCachedSubTree(nodes, flag) != nullptr, "a subtree");
    return wall(*cached, 1)();
  });
  reads.run(s.many_rounds);
  result.add({"a value hit through a repository, one processor",
              "the same read at the service",
              "ns/read",
              0.02,
              {}},
             reads.of(hit), reads.of(asked));
  result.add({"a value below a subtree that is kept, one processor",
              "the same read at the service",
              "ns/read",
              {},
              {}},
             reads.of(below), reads.of(asked));

  RWCString path("halvoria\\system\\nodes");
  bool flag;
  const auto kept = cached->GetCachedSubTree(path, flag);
  need(kept && kept->GetSubTreeEntriesCount("") > 0, "a subtree");
  const auto entries = static_cast<double>(kept->GetSubTreeEntriesCount(""));
  rounds trees;
  const auto ours = trees.add([&]() -> std::vector<double> {
    return {time_ns(CPU, [&] { keep(std::unique_ptr<CFG_SubTree>(cached->GetSubTree(path))); }) /
            entries};
  });
  const auto copy = trees.add([&]() -> std::vector<double> {
    return {
        time_ns(CPU,
                [&] {
                  keep(std::make_unique<CFG_SubTree>(kept->GetData()->DuplicateFromHereDown(true)));
                }) /
        entries};
  });
  trees.run(s.many_rounds * 4);
  result.add({"a subtree hit", "a deep copy of it", "ns/node", 1.1, {}}, trees.of(ours),
             trees.of(copy));
}

}  // namespace

report cache_suite(const scale& s) {
  const records all = make_installation(std::min(s.hosts, 1000));
  report result;
  add_hits(result, s, values_of(all, kEntries));
  add_sets(result, s, values_of(all, s.calls / 10));
  add_timers(result, s);
  add_reads(result, s);
  return result;
}

}  // namespace bench
