// Reads of single values as callers make them: a path, each third with capitals in it, and a
// text of the caller's own for an answer.
#include <span>
#include <stdexcept>

#include <CFG/CFG_SubTree.h>
#include <common/clock.h>
#include <common/our_stores.h>
#include <common/suite.h>
#include <common/two_threads.h>
#include <peers/flat_map.h>
#include <tree/Tree_Node.h>

namespace bench {
namespace {

// The same paths for us and for the peer.
struct calls {
  std::vector<RWCString> ours;
  std::vector<std::string> theirs;

  calls(const std::vector<std::string>& paths, size_t cut) {
    for (const std::string& path : paths) {
      ours.emplace_back(path.substr(cut));
      theirs.push_back(path.substr(cut));
    }
  }
};

void read_ours(CFG_Services& store, const std::vector<RWCString>& paths, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    const RWCString value = store.GetValue(paths[i]);
    keep(value.data());
  }
}

template <auto Lower>
void read_theirs(const flat_map& map, const std::vector<std::string>& paths, size_t count) {
  std::string lowered;
  for (size_t i = 0; i < count; ++i) {
    const std::string value = map.read<Lower>(paths[i], lowered);
    keep(value.data());
  }
}

void expect_same(CFG_Services& store, const flat_map& map, const calls& paths) {
  std::string lowered;
  for (size_t i = 0; i < paths.ours.size(); ++i) {
    const std::string wanted = map.read(paths.theirs[i], lowered);
    if (wanted.empty() || store.GetValue(paths.ours[i]).str() != wanted) {
      throw std::runtime_error("wrong answer for " + paths.theirs[i]);
    }
  }
}

struct store_case {
  const char* name;
  CFG_Services& store;
  const calls& hot;
  const calls& cold;
  const flat_map& peer;
};

void add_reads(report& result, const store_case& c, const scale& s) {
  expect_same(c.store, c.peer, c.hot);
  expect_same(c.store, c.peer, c.cold);
  rounds reads;
  using maybe = std::optional<double>;
  const auto hot_or_cold = [&](const calls& paths, const std::string& kind, maybe stretch,
                               maybe stretch_in_blocks) {
    const size_t n = paths.ours.size();
    const auto ours = reads.add(per_call(n, [&, n] { read_ours(c.store, paths.ours, n); }));
    const auto scalar =
        reads.add(per_call(n, [&, n] { read_theirs<lower_scalar>(c.peer, paths.theirs, n); }));
    const auto blocks =
        reads.add(per_call(n, [&, n] { read_theirs<lower_in_blocks>(c.peer, paths.theirs, n); }));
    const std::string subject = kind + " paths, " + c.name;
    return [=, &reads, &result] {
      result.add({subject, flat_map::name, "ns/read", 1.0, stretch}, reads.of(ours),
                 reads.of(scalar));
      result.add({subject, "the same map, SSE2 lower-casing", "ns/read", {}, stretch_in_blocks},
                 reads.of(ours), reads.of(blocks));
    };
  };
  const auto hot = hot_or_cold(c.hot, grouped(s.hot_paths) + " hot", {}, 1.0);
  const auto cold = hot_or_cold(c.cold, grouped(s.cold_paths), 0.85, {});
  reads.run(s.many_rounds);
  hot();
  cold();
}

// From a tree that nothing was read from before, so few that it gets no index meanwhile.
void add_first_reads(report& result, const Tree_NodePtr& top, const calls& cold,
                     const flat_map& peer, size_t nodes, int count) {
  const size_t n = std::min(cold.ours.size(), nodes / 10);
  rounds reads;
  const auto ours = reads.add([&]() -> std::vector<double> {
    CFG_SubTree fresh(top->DuplicateFromHereDown(TRUE));
    return {time_ns(CPU, [&] { read_ours(fresh, cold.ours, n); }) / static_cast<double>(n)};
  });
  const auto theirs =
      reads.add(per_call(n, [&, n] { read_theirs<lower_scalar>(peer, cold.theirs, n); }));
  reads.run(count);
  result.add(
      {grouped(n) + " paths, first of a tree, no path index", flat_map::name, "ns/read", {}, {}},
      reads.of(ours), reads.of(theirs));
}

// Nothing but registers: what two threads cost the machine itself.
void count_up(size_t steps) {
  uint64_t state = 1;
  for (size_t i = 0; i < steps; ++i) {
    state ^= state << 13;
    state ^= state >> 7;
    keep(state);
  }
}

// Both threads read the same paths in the same order. The last rows show what the machine
// makes of a second thread where threads share little or nothing.
void add_threads(report& result, std::span<const store_case> stores, int count) {
  if (!two_processors()) return;
  constexpr double target = 1.3, stretch = 1.1;
  const char *alone = "the same with one thread", *unit = "ns/read";
  rounds reads;
  const auto both = [&](size_t n, std::function<void()> work) {
    return reads.add([=]() -> std::vector<double> {
      const shared_cost cost = cost_of_sharing(work);
      return {cost.together / static_cast<double>(n), cost.alone / static_cast<double>(n)};
    });
  };
  const store_case& any = stores.front();
  const size_t n = std::min<size_t>(any.hot.ours.size(), 1000);
  const auto map = both(n, [&, n] { read_theirs<lower_scalar>(any.peer, any.hot.theirs, n); });
  const auto registers = both(n, [=] { count_up(n * 50); });
  std::vector<rounds::id> ours;
  for (const store_case& c : stores) {
    ours.push_back(both(n, [=] { read_ours(c.store, c.hot.ours, n); }));
  }
  reads.run(count);
  for (size_t i = 0; i < ours.size(); ++i) {
    const std::string subject = std::string("two threads on the same paths, ") + stores[i].name;
    result.add({subject, alone, unit, target, stretch}, reads.of(ours[i], 0), reads.of(ours[i], 1));
    result.add({subject, "absl::flat_hash_map, two threads", unit, 1.0, {}}, reads.of(ours[i], 0),
               reads.of(map, 0));
  }
  const auto add_control = [&](const char* subject, rounds::id control, const char* of) {
    result.add({subject, alone, of, {}, {}}, reads.of(control, 0), reads.of(control, 1));
  };
  add_control("control: two threads on absl::flat_hash_map", map, unit);
  add_control("control: two threads that count in registers", registers, "ns/50 steps");
}

}  // namespace

report read_suite(const scale& s) {
  const records all = make_installation(s.hosts);
  const std::vector<std::string> hot_paths = paths_to_read(all, s.calls, s.hot_paths);
  const std::vector<std::string> cold_paths = paths_to_read(all, s.calls, s.cold_paths);
  const calls hot(hot_paths, 0), cold(cold_paths, 0);
  const calls hot_below(hot_paths, root_cut), cold_below(cold_paths, root_cut);
  const flat_map peer(all), peer_below(all, root_cut);

  our_stores ours(all, s);
  report result;
  const store_case stores[] = {
      {"subtree handle", ours.handle, hot_below, cold_below, peer_below},
      {"memory repository", ours.memory, hot, cold, peer},
      {"file repository", ours.file, hot, cold, peer},
  };
  for (const store_case& c : stores) add_reads(result, c, s);
  add_first_reads(result, ours.handle.GetData(), cold_below, peer_below, all.size(), s.few_rounds);
  add_threads(result, stores, s.few_rounds);
  return result;
}

}  // namespace bench
