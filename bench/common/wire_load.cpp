#include <common/wire_load.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include <common/clock.h>
#include <common/need.h>
#include <common/rounds.h>

namespace bench {
namespace {

struct driven {
  double per_read, p50, p99;  // us
};

driven drive(const wire_peer& peer, const wire_data& data, int clients, double seconds) {
  std::vector<std::vector<double>> times(static_cast<size_t>(clients));
  std::vector<std::thread> threads;
  std::atomic<int> ready{0};
  std::atomic<bool> has_begun{false}, has_ended{false}, has_failed{false};
  for (std::vector<double>& own : times) {
    threads.emplace_back([&, number = threads.size()]() mutable {
      try {
        const auto client = peer.connect();
        own.reserve(1 << 16);
        const auto read = [&] {
          number = number * 1664525 + 1013904223;
          const auto& [path, value] = data[(number >> 8) % data.size()];
          keep(client->get(path));
        };
        for (int i = 0; i < 20; ++i) read();
        ++ready;
        while (!has_begun) std::this_thread::yield();
        while (!has_ended) own.push_back(time_ns(WALL, read) / 1000);
      } catch (const std::exception&) {
        has_failed = true, ++ready;
      }
    });
  }
  while (ready < clients) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  const double start = now_ns(WALL);
  has_begun = true;
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  has_ended = true;
  for (std::thread& thread : threads) thread.join();
  const double taken = (now_ns(WALL) - start) / 1000;
  need(!has_failed, std::string("reads of ") + peer.name);
  samples all;
  for (const auto& own : times) all.insert(all.end(), own.begin(), own.end());
  std::sort(all.begin(), all.end());
  const auto at = [&](double part) {
    return all[std::min(all.size() - 1,
                        static_cast<size_t>(part * static_cast<double>(all.size())))];
  };
  return {taken / static_cast<double>(all.size()), at(0.5), at(0.99)};
}

void check_answers(const wire_peer& peer, const wire_data& data) {
  const auto client = peer.connect();
  for (const auto& [path, value] : data) {
    need(client->get(path) == value.size(), std::string("the same answers of ") + peer.name);
  }
}

}  // namespace

wire_data values_of(const records& all, size_t most) {
  wire_data data;
  for (const record& r : all) {
    if (!r.value.empty() && data.size() < most) data.emplace_back(r.path, r.value);
  }
  return data;
}

wire_rows::wire_rows(const wire_data& data, const scale& s, std::vector<wire_peer> peers)
    : m_data(data), m_scale(s), m_peers(std::move(peers)) {
  for (const wire_peer& peer : m_peers) {
    if (peer.name != std::string_view(kBare)) check_answers(peer, data);
  }
}

void wire_rows::measure(report& result, int clients, const std::vector<wire_subject>& subjects) {
  rounds reads;
  std::vector<rounds::id> ids;
  for (const wire_peer& peer : m_peers) {
    ids.push_back(reads.add([&, clients]() -> std::vector<double> {
      const driven d = drive(peer, m_data, clients, m_scale.wire_seconds);
      return {d.per_read, d.p50, d.p99};
    }));
  }
  reads.run(m_scale.few_rounds);
  for (const wire_subject& what : subjects) {
    for (const wire_comparison& with : what.peers) {
      for (size_t i = 1; i < m_peers.size(); ++i) {
        if (m_peers[i].name != std::string_view(with.peer)) continue;
        result.add({what.name, with.peer, what.unit, with.target, with.stretch},
                   reads.of(ids[0], what.figure), reads.of(ids[i], what.figure));
      }
    }
  }
}

on_one_processor::on_one_processor() {
  sched_getaffinity(0, sizeof m_before, &m_before);
  int first = 0;
  while (!CPU_ISSET(first, &m_before)) ++first;
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(first, &one);
  sched_setaffinity(0, sizeof one, &one);
}

}  // namespace bench
