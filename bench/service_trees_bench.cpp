// Trees that the service sends and takes, and values that it sets for good, beside databases that
// do the same with plain rows.
#include <algorithm>

#include <CFG/CFG_SubTree.h>
#include <common/need.h>
#include <common/our_service.h>
#include <common/our_tree.h>
#include <common/scratch_database.h>
#include <common/wire_load.h>
#include <peers/bare_postgresql.h>
#include <peers/bare_sqlite.h>
#include <servers/Test_Postgres.h>

namespace bench {
namespace {

constexpr int kNodesOfHost = 51;

records installation_of(int nodes, const scale& s) {
  return make_installation(std::min(s.hosts, nodes / kNodesOfHost));
}

std::vector<std::pair<std::string, std::string>> pairs_of(const records& all) {
  std::vector<std::pair<std::string, std::string>> pairs;
  for (const record& r : all) pairs.emplace_back(r.path, r.value);
  std::sort(pairs.begin(), pairs.end());
  return pairs;
}

template <class Work>
rounds::measure wall_time(size_t calls, Work work) {
  return
      [=]() -> std::vector<double> { return {time_ns(WALL, work) / static_cast<double>(calls)}; };
}

// --- a tree that is read -----------------------------------------------------------------------

void read_tree(report& result, const scale& s) {
  const records all = installation_of(300000, s);
  std::optional<Test_Postgres> server;
  if (Test_Postgres::IsInstalled()) server.emplace("-c shared_buffers=256MB");
  const our_service service(all, s.scratch);
  if (!server) return;
  need(server->is_running(), server->problem());
  bare_postgresql peer(server->connection());
  peer.fill(pairs_of(all));
  const auto repository = our_service::connect();

  rounds cases;
  const auto ours = cases.add(wall_time(all.size(), [&] {
    RWCString path = "halvoria";
    const std::unique_ptr<CFG_SubTree> tree(repository->GetSubTree(path));
    need(tree && static_cast<size_t>(tree->GetSubTreeEntriesCount("")) == all.size() - 1,
         "the whole tree");
  }));
  const auto theirs = cases.add(
      wall_time(all.size(), [&] { need(peer.read_all() == all.size(), "the whole table"); }));
  cases.run(s.many_rounds);
  result.add({"a tree of " + grouped(all.size()) + " nodes, read and built",
              "PostgreSQL, SELECT, nothing built", "ns/node", 1 / 1.3, 0.6},
             cases.of(ours), cases.of(theirs));
}

// --- a tree that is written --------------------------------------------------------------------

void write_tree(report& result, const scale& s) {
  const records all = installation_of(100000, s);
  const our_service service(make_installation(1), s.scratch);
  const auto repository = our_service::connect();
  CFG_SubTree tree(build_tree(all));
  const std::unique_ptr<CFG_SubTree> system(tree.GetSubTree("system"));
  const scratch_database database(s.scratch, "rows");
  bare_sqlite peer(database.file());
  struct row {
    std::string path, value;
  };
  std::vector<row> rows;
  for (auto& [path, value] : pairs_of(all)) rows.push_back({path, value});

  rounds cases;
  int turn = 0, their_turn = 0;
  const auto ours = cases.add([&]() -> std::vector<double> {
    // A new place each time: no tree is replaced.
    system->GetData()->SetKeyName("system_" + std::to_string(++turn));
    const double time = time_ns(WALL, [&] {
      need(repository->AddOrReplaceSubTree(system.get(), "halvoria"), "writing a tree");
    });
    return {time / static_cast<double>(all.size())};
  });
  const auto theirs = cases.add([&]() -> std::vector<double> {
    const std::string table = "bulk_" + std::to_string(++their_turn);
    peer.run(
        ("CREATE TABLE " + table + " (path TEXT PRIMARY KEY, value TEXT) WITHOUT ROWID").c_str());
    const double time = time_ns(WALL, [&] { peer.insert(table.c_str(), rows); });
    return {time / static_cast<double>(all.size())};
  });
  cases.run(s.many_rounds);
  result.add({"a tree of " + grouped(all.size()) + " nodes, written", "SQLite, prepared inserts",
              "ns/node", 1 / 0.6, 1.3},
             cases.of(ours), cases.of(theirs));
}

// --- one value ---------------------------------------------------------------------------------

void set_values(report& result, const scale& s) {
  const on_one_processor pinned;
  const records all = make_installation(std::min(s.hosts, 110));
  const wire_data data = values_of(all, 4800);
  const our_service service(all, s.scratch);
  const auto repository = our_service::connect();
  const scratch_database database(s.scratch, "rows");
  bare_sqlite peer(database.file());
  peer.fill(data);

  const size_t commit_count = std::min<size_t>(100, s.calls / 30);
  rounds cases;
  int turn = 0;
  const auto commits = [&](auto set) {
    return wall_time(commit_count, [&, set] {
      for (size_t i = 0; i < commit_count; ++i) {
        set(data[(i * 37) % data.size()].first, std::to_string(++turn));
      }
    });
  };
  const auto ours = cases.add(commits([&](const std::string& path, const std::string& value) {
    need(repository->SetValue(path, value), "setting a value");
  }));
  const auto theirs = cases.add(commits(
      [&](const std::string& path, const std::string& value) { peer.update(path, value); }));
  cases.run(s.many_rounds);
  result.add({"a value set for good, one client, all on one processor",
              "SQLite, prepared",
              "ns/commit",
              1.3,
              {}},
             cases.of(ours), cases.of(theirs));
}

}  // namespace

report service_trees_suite(const scale& s) {
  report result;
  read_tree(result, s);
  write_tree(result, s);
  set_values(result, s);
  return result;
}

}  // namespace bench
