// Reads of single values as callers make them: a path, each third with capitals in it, and a
// text of the caller's own for an answer.
#include <atomic>
#include <stdexcept>
#include <thread>

#include <CFG/CFG_FileRepository.h>
#include <CFG/CFG_MemoryRepository.h>
#include <CFG/CFG_SubTree.h>
#include <common/clock.h>
#include <common/our_tree.h>
#include <common/suite.h>
#include <peers/flat_map.h>

namespace bench {
namespace {

constexpr size_t root_cut = sizeof "halvoria\\" - 1;

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

template <class Read>
rounds::measure per_read(size_t count, Read read) {
  return [=]() -> std::vector<double> { return {time_ns(CPU, read) / static_cast<double>(count)}; };
}

// Threads that read at the same time. A burst lasts from the moment when all are ready to the
// end of the last one, so that threads which take turns on one processor look as slow as they
// are. Short bursts, and the best of them, since any other process disturbs two threads on a
// small machine.
double best_burst(int threads, const std::function<void()>& work) {
  constexpr int bursts = 300;
  struct burst {
    std::atomic<int> ready{0};
    std::atomic<bool> started{false};
    double start = 0;
    std::atomic<double> end{0};
  };
  std::vector<burst> all(bursts);
  std::vector<std::thread> running;
  for (int t = 0; t < threads; ++t) {
    running.emplace_back([&] {
      for (burst& b : all) {
        if (++b.ready == threads) {
          b.start = now_ns(WALL);
          b.started = true;
        }
        while (!b.started) continue;
        work();
        const double end = now_ns(WALL);
        for (double seen = b.end; seen < end && !b.end.compare_exchange_weak(seen, end);) continue;
      }
    });
  }
  for (std::thread& thread : running) thread.join();
  double best = all[0].end - all[0].start;
  for (const burst& b : all) best = std::min(best, b.end - b.start);
  return best;
}

rounds::measure threads_per_read(int threads, size_t count, std::function<void()> read) {
  return [=]() -> std::vector<double> {
    return {best_burst(threads, read) / static_cast<double>(count)};
  };
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

// A tree that is read a great deal gets a path index.
void warm_up(CFG_Services& store, const std::vector<RWCString>& paths, size_t nodes) {
  for (size_t left = lookups_to_index(nodes); left > 0;) {
    const size_t count = std::min(left, paths.size());
    read_ours(store, paths, count);
    left -= count;
  }
}

struct store_case {
  const char* name;
  CFG_Services& store;
  const calls& hot;
  const calls& cold;
  const flat_map& peer;
};

void add_reads(report& result, const store_case& c, int count) {
  expect_same(c.store, c.peer, c.hot);
  expect_same(c.store, c.peer, c.cold);
  rounds reads;
  using maybe = std::optional<double>;
  const auto hot_or_cold = [&](const calls& paths, const char* kind, maybe stretch,
                               maybe stretch_in_blocks) {
    const size_t n = paths.ours.size();
    const auto ours = reads.add(per_read(n, [&, n] { read_ours(c.store, paths.ours, n); }));
    const auto scalar =
        reads.add(per_read(n, [&, n] { read_theirs<lower_scalar>(c.peer, paths.theirs, n); }));
    const auto blocks =
        reads.add(per_read(n, [&, n] { read_theirs<lower_in_blocks>(c.peer, paths.theirs, n); }));
    const std::string subject = std::string("read, ") + kind + ", " + c.name;
    return [=, &reads, &result] {
      result.add({subject, flat_map::name, "ns/read", 1.0, stretch}, reads.of(ours),
                 reads.of(scalar));
      result.add({subject, "the same map, SSE2 lower-casing", "ns/read", {}, stretch_in_blocks},
                 reads.of(ours), reads.of(blocks));
    };
  };
  const auto hot = hot_or_cold(c.hot, "hot", {}, 1.0);
  const auto cold = hot_or_cold(c.cold, "cold", 0.85, {});
  reads.run(count);
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
      reads.add(per_read(n, [&, n] { read_theirs<lower_scalar>(peer, cold.theirs, n); }));
  reads.run(count);
  result.add({"read, cold, first of a tree, no path index", flat_map::name, "ns/read", {}, {}},
             reads.of(ours), reads.of(theirs));
}

void add_threads(report& result, CFG_Services& store, const calls& hot, const flat_map& peer,
                 int count) {
  const size_t n = std::min<size_t>(hot.ours.size(), 2000);
  const auto ours = [&, n] { read_ours(store, hot.ours, n); };
  const auto theirs = [&, n] { read_theirs<lower_scalar>(peer, hot.theirs, n); };
  rounds reads;
  const auto one = reads.add(threads_per_read(1, n, ours));
  const auto two = reads.add(threads_per_read(2, n, ours));
  const auto peer_two = reads.add(threads_per_read(2, n, theirs));
  reads.run(count);
  const char* subject = "read, hot, two threads, memory repository";
  result.add({subject, flat_map::name, "ns/read", 1.0, {}}, reads.of(two), reads.of(peer_two));
  result.add({subject, "the same with one thread", "ns/read", 1.3, {}}, reads.of(two),
             reads.of(one));
}

void need(int done, const char* what) {
  if (!done) throw std::runtime_error(std::string("failed: ") + what);
}

}  // namespace

report read_suite(const scale& s) {
  const records all = make_installation(s.hosts);
  const std::vector<std::string> hot_paths = paths_to_read(all, s.calls, s.hot_paths);
  const std::vector<std::string> cold_paths = paths_to_read(all, s.calls, s.cold_paths);
  const calls hot(hot_paths, 0), cold(cold_paths, 0);
  const calls hot_below(hot_paths, root_cut), cold_below(cold_paths, root_cut);
  const flat_map peer(all), peer_below(all, root_cut);

  const Tree_NodePtr top = build_tree(all);
  CFG_SubTree handle(top);
  CFG_MemoryRepository memory(&handle);
  const RWWString file_name = RWWString::fromUTF8(s.scratch + "/read_bench.xml");
  need(memory.ExportPath("halvoria", file_name), "export");
  CFG_FileRepository file(file_name);
  need(file.Connect(), "connect");
  warm_up(memory, cold.ours, all.size());
  warm_up(file, cold.ours, all.size());

  report result;
  const store_case stores[] = {
      {"subtree handle", handle, hot_below, cold_below, peer_below},
      {"memory repository", memory, hot, cold, peer},
      {"file repository", file, hot, cold, peer},
  };
  for (const store_case& c : stores) add_reads(result, c, s.many_rounds);
  add_first_reads(result, top, cold_below, peer_below, all.size(), s.few_rounds);
  add_threads(result, memory, hot, peer, s.many_rounds);
  std::remove((s.scratch + "/read_bench.xml").c_str());
  return result;
}

}  // namespace bench
