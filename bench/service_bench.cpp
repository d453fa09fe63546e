// Reads of the service, as its clients make them: CFG_Repository, svcfg and SQLite, beside servers
// that others made for such reads.
#include <algorithm>

#include <common/our_service.h>
#include <common/wire_load.h>

namespace bench {
namespace {

class service_peers {
 public:
  service_peers(const records& all, const scale& s)
      : m_all(all), m_scale(s), m_data(values_of(all, 4800)) {}

  const wire_data& data() const { return m_data; }

  // What is forked comes first, as etcd's client has threads.
  std::vector<wire_peer> start(bool with_etcd) const {
    std::vector<wire_peer> peers = {service_peer(m_all, m_scale.scratch), bare_tcp(),
                                    bare_fields_and_sqlite(m_data, m_scale.scratch)};
    const auto add = [&peers](std::unique_ptr<wire_peer> peer) {
      if (peer) peers.push_back(*peer);
    };
    add(redis_get(m_data, m_scale.scratch));
    add(postgresql_select(m_data));
    if (with_etcd) add(etcd_range(m_data, m_scale.scratch));
    return peers;
  }

 private:
  const records& m_all;
  const scale& m_scale;
  const wire_data m_data;
};

}  // namespace

report service_suite(const scale& s) {
  report result;
  const records all = make_installation(std::min(s.hosts, 110));
  const service_peers peers(all, s);
  {
    const on_one_processor pinned;
    wire_rows rows(peers.data(), s, peers.start(false));
    rows.measure(result, 1,
                 {{"a value, one client, all on one processor, p50",
                   "us",
                   wire_subject::P50,
                   {{kBare, {}, {}},
                    {kFieldsAndSqlite, 1.10, 1.05},
                    {kRedis, 1.0, 0.9},
                    {kPostgres, {}, {}}}}});
  }
  wire_rows rows(peers.data(), s, peers.start(true));
  const auto most = [](double redis) -> std::vector<wire_comparison> {
    return {{kBare, {}, {}},
            {kFieldsAndSqlite, {}, {}},
            {kRedis, redis, 0.87},
            {kPostgres, 0.5, 0.45},
            {kEtcd, 1.0 / 12, {}}};
  };
  rows.measure(result, 8, {{"values, 8 clients", "us/read", wire_subject::PER_READ, most(1.0)}});
  rows.measure(result, 32,
               {{"values, 32 clients", "us/read", wire_subject::PER_READ, most(0.9)},
                {"a value, 32 clients, p99",
                 "us",
                 wire_subject::P99,
                 {{kBare, 1.2, 1.05}, {kRedis, 1.1, {}}}}});
  return result;
}

}  // namespace bench
