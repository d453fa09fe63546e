// The stored tree beside the same database without our rules: no sequence numbers, no kept
// deletions, no look at the parent.
#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>

#include <common/installation.h>
#include <common/need.h>
#include <common/suite.h>
#include <database/CFGDB_Conn.h>
#include <peers/bare_postgresql.h>
#include <peers/bare_sqlite.h>
#include <servers/Test_Postgres.h>

namespace bench {
namespace {

using stored_records = Tmr_PtrSortedVector<Tree_NodeInfo>;

struct pair {
  std::string path, value;
};

// What is read, in the database already, and what is written in bulk.
struct content {
  std::vector<pair> rows;
  std::vector<std::string> values;  // paths to read
  std::vector<pair> bulk;           // below another key
  stored_records rows_to_store, bulk_to_store;
};

constexpr char kNodes[] = "halvoria\\system\\nodes";

content make_content(const scale& s) {
  content all;
  for (record& row : make_installation(s.hosts / 2)) {
    all.rows.push_back({std::move(row.path), std::move(row.value)});
  }
  std::sort(all.rows.begin(), all.rows.end(),
            [](const pair& a, const pair& b) { return a.path < b.path; });
  for (const pair& row : all.rows) {
    if (!row.value.empty()) all.values.push_back(row.path);
  }
  std::shuffle(all.values.begin(), all.values.end(), std::mt19937(3));
  all.values.resize(std::min(all.values.size(), s.calls / 5));
  const size_t bulk = std::min<size_t>(100000, all.rows.size() / 5);
  all.bulk.push_back({"halvoria\\bulk", ""});
  for (const pair& row : all.rows) {
    if (all.bulk.size() == bulk) break;
    if (row.path.size() < sizeof kNodes) continue;
    all.bulk.push_back({"halvoria\\bulk" + row.path.substr(sizeof kNodes - 1), row.value});
  }
  const auto store = [](const std::vector<pair>& from, stored_records& to) {
    for (const pair& row : from) to.append(new Tree_NodeInfo(row.path, row.value));
  };
  store(all.rows, all.rows_to_store);
  store(all.bulk, all.bulk_to_store);
  return all;
}

// Ours, with the operations of the peers.
class stored_tree {
 public:
  stored_tree(const std::string& connection, const content& all) : m_conn(true) {
    need(m_conn.Init(connection, "", false) == 1, "open " + connection);
    need(m_conn.WriteSubTree(all.rows_to_store, "") == CFGDB_Conn::OK, "fill " + connection);
  }
  RWCString read(const std::string& path) { return m_conn.GetValue(path); }
  size_t read_range(const std::string& path) {
    size_t count = 0;
    std::string_view name, value;
    m_conn.StartTreeQuery(path, false, false, nullptr, false, false);
    while (m_conn.next_record(name, value)) ++count;
    m_conn.CloseTreeQuery(true);
    return count;
  }
  void clear_bulk() {
    m_conn.RemoveSubTree("halvoria\\bulk", 1, true);
    m_conn.PurgeDeletedEntries(-1);
  }
  void insert(const stored_records& rows) {
    need(m_conn.WriteSubTree(rows, "") == CFGDB_Conn::OK, "write in bulk");
  }
  // What the repository sets a value with.
  void update(const RWCString& path, const std::string& value) {
    const Tree_NodeInfo record(path, RWCString(value));
    need(m_conn.InsertLine(record, 1, true) == CFGDB_Conn::OK, "set a value");
  }

 private:
  CFGDB_Conn m_conn;
};

struct targets {
  double point, range, bulk, durable;
};

template <class Peer>
void compare(report& result, const content& all, stored_tree& ours, Peer& peer,
             const std::string& store, const char* table, const targets& most, int round_count,
             const std::function<void(bool)>& place) {
  rounds cases;
  peer.run(table);
  peer.insert("bulk", all.bulk);
  ours.clear_bulk();
  ours.insert(all.bulk_to_store);
  const auto measured = [&cases, &place](size_t calls, bool on_one, auto prepare, auto work) {
    return cases.add([=]() -> std::vector<double> {
      prepare();
      place(on_one);
      const double time = time_ns(WALL, work) / static_cast<double>(calls);
      place(false);
      return {time};
    });
  };
  const auto nothing = [] {};
  const size_t points = all.values.size();
  const auto our_points = measured(points, true, nothing, [&] {
    for (const std::string& path : all.values) keep(ours.read(path));
  });
  const auto their_points = measured(points, true, nothing, [&] {
    for (const std::string& path : all.values) keep(peer.read(path));
  });
  const size_t nodes = all.rows.size() - 3;
  const auto our_range = measured(
      nodes, false, nothing, [&] { need(ours.read_range(kNodes) == nodes, "read the range"); });
  const auto their_range = measured(nodes, false, nothing, [&] {
    const std::string from = std::string(kNodes) + "\\", to = std::string(kNodes) + "]";
    need(peer.read_range(from, to) == nodes, "read the range");
  });
  const auto our_bulk = measured(
      all.bulk.size(), false, [&] { ours.clear_bulk(); }, [&] { ours.insert(all.bulk_to_store); });
  const auto their_bulk = measured(
      all.bulk.size(), false, [&] { peer.run(table); }, [&] { peer.insert("bulk", all.bulk); });
  constexpr size_t kCommits = 100;
  int turn = 0;
  const auto commits = [&](auto update) {
    return [&all, &turn, update] {
      for (size_t i = 0; i < kCommits; ++i) {
        update(all.values[i % all.values.size()], std::to_string(++turn));
      }
    };
  };
  const auto our_commits = measured(kCommits, true, nothing,
                                    commits([&](const std::string& path, const std::string& value) {
                                      ours.update(path, value);
                                    }));
  const auto their_commits = measured(
      kCommits, true, nothing, commits([&](const std::string& path, const std::string& value) {
        peer.update(path, value);
      }));
  cases.run(round_count);

  const auto add = [&](const std::string& subject, const char* unit, double target,
                       rounds::id our_case, rounds::id their_case) {
    result.add({store + subject, Peer::name, unit, target, 1.0}, cases.of(our_case),
               cases.of(their_case));
  };
  add(", a value by path", "ns/read", most.point, our_points, their_points);
  add(", a subtree row by row", "ns/row", most.range, our_range, their_range);
  add(", 100,000 rows at once", "ns/row", most.bulk, our_bulk, their_bulk);
  add(", one value set for good", "ns/commit", most.durable, our_commits, their_commits);
}

void compare_sqlite(report& result, const content& all, const scale& s) {
  const std::string folder = s.scratch + "/store_bench";
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder);
  {
    bare_sqlite peer(folder + "/bare.db");
    peer.run("CREATE TABLE cfg (path TEXT PRIMARY KEY, value TEXT) WITHOUT ROWID");
    peer.insert("cfg", all.rows);
    peer.prepare();
    stored_tree ours("sqlite:" + folder + "/ours.db", all);
    const char* table =
        "DROP TABLE IF EXISTS bulk;"
        "CREATE TABLE bulk (path TEXT PRIMARY KEY, value TEXT) WITHOUT ROWID";
    compare(result, all, ours, peer, "in a file", table, {1.15, 1.15, 1.15, 1.3}, s.many_rounds,
            [](bool) {});
  }
  std::filesystem::remove_all(folder);
}

void compare_postgresql(report& result, const content& all, const scale& s) {
  const Test_Postgres server("-c shared_buffers=256MB -c max_wal_size=1GB", true);
  need(server.is_running(), server.problem());
  bare_postgresql peer(server.connection());
  peer.run("CREATE TABLE cfg (path bytea PRIMARY KEY, value bytea)");
  peer.insert("cfg", all.rows);
  stored_tree ours(server.connection(), all);
  peer.run("VACUUM ANALYZE");
  peer.run("SET enable_seqscan = off");
  peer.run("SET enable_bitmapscan = off");
  peer.prepare();
  const char* table =
      "DROP TABLE IF EXISTS bulk; CREATE TABLE bulk (path bytea PRIMARY KEY, value bytea)";
  compare(result, all, ours, peer, "on a server", table, {1.15, 1.15, 1.3, 1.3}, s.many_rounds,
          [&peer](bool on_one) { peer.place(on_one); });
}

}  // namespace

report store_suite(const scale& s) {
  const content all = make_content(s);
  report result;
  compare_sqlite(result, all, s);
  if (Test_Postgres::IsInstalled()) compare_postgresql(result, all, s);
  return result;
}

}  // namespace bench
