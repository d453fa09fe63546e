#include <common/two_threads.h>

#include <pthread.h>
#include <sched.h>

#include <array>
#include <atomic>
#include <barrier>
#include <stdexcept>
#include <thread>
#include <vector>

#include <common/clock.h>
#include <common/rounds.h>

namespace bench {
namespace {

constexpr int batch = 8;       // runs in a row, after one that fills the caches
constexpr size_t enough = 80;  // runs of each kind
constexpr double patience_ns = 4e9;
constexpr size_t too_few = 3;

std::vector<int> usable_processors() {
  cpu_set_t usable;
  std::vector<int> numbers;
  if (::sched_getaffinity(0, sizeof usable, &usable) != 0) return numbers;
  for (int i = 0; i < CPU_SETSIZE; ++i) {
    if (CPU_ISSET(i, &usable)) numbers.push_back(i);
  }
  return numbers;
}

void stay_on(int processor) {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(processor, &one);
  if (::pthread_setaffinity_np(::pthread_self(), sizeof one, &one) != 0) {
    throw std::runtime_error("cannot choose a processor");
  }
}

struct timed_run {
  double start = 0, end = 0, on_processor = 0;

  explicit timed_run(const std::function<void()>& work) {
    const double before = now_ns(CPU);
    start = now_ns(WALL);
    work();
    end = now_ns(WALL);
    on_processor = now_ns(CPU) - before;
  }
  timed_run() = default;
  double time() const { return end - start; }
  bool is_undisturbed() const { return on_processor > 0.97 * time(); }
};

bool overlap(const timed_run& a, const timed_run& b) {
  const double both = std::min(a.end, b.end) - std::max(a.start, b.start);
  return both > 0.9 * std::min(a.time(), b.time());
}

// The two threads take the same steps; each step begins when both are there.
class duet {
 public:
  explicit duet(const std::function<void()>& work) : m_work(work) {}

  shared_cost play() {
    const std::vector<int> processors = usable_processors();
    std::thread second([&] { play_part(1, processors.at(1)); });
    std::thread first([&] { play_part(0, processors.at(0)); });
    first.join();
    second.join();
    return {median(m_alone.size() < too_few ? m_alone_disturbed : m_alone),
            median(m_together.size() < too_few ? m_together_disturbed : m_together)};
  }

 private:
  void play_part(int part, int processor) {
    stay_on(processor);
    m_work();
    const double begin = now_ns(WALL);
    while (!m_done) {
      for (int soloist : {0, 1}) {
        m_asleep.arrive_and_wait();
        if (part == soloist) play_solo();
      }
      m_asleep.arrive_and_wait();
      for (int i = 0; i <= batch; ++i) play_together(part, i > 0);
      m_asleep.arrive_and_wait();
      if (part == 0) m_done = is_enough() || now_ns(WALL) - begin > patience_ns;
      m_asleep.arrive_and_wait();
    }
  }

  void play_solo() {
    m_work();
    for (int i = 0; i < batch; ++i) add_solo(timed_run(m_work));
  }

  // Both spin until both are there, so that neither starts late.
  void play_together(int part, bool counts) {
    const int turn = ++m_arrived[part];
    while (m_arrived[1 - part] < turn) continue;
    m_run[part] = timed_run(m_work);
    ++m_finished[part];
    while (m_finished[1 - part] < turn) continue;
    if (part == 0 && counts) add_pair(m_run[0], m_run[1]);
    if (part == 0) ++m_pairs;
    while (m_pairs < turn) continue;
  }

  void add_solo(const timed_run& run) {
    (run.is_undisturbed() ? m_alone : m_alone_disturbed).push_back(run.time());
  }
  void add_pair(const timed_run& a, const timed_run& b) {
    const bool counts = a.is_undisturbed() && b.is_undisturbed() && overlap(a, b);
    for (const timed_run* run : {&a, &b}) {
      (counts ? m_together : m_together_disturbed).push_back(run->time());
    }
  }
  bool is_enough() const { return m_alone.size() >= enough && m_together.size() >= enough; }

  const std::function<void()>& m_work;
  std::barrier<> m_asleep{2};  // who comes first sleeps
  std::array<std::atomic<int>, 2> m_arrived{}, m_finished{};
  std::atomic<int> m_pairs{0};  // that are over
  std::array<timed_run, 2> m_run;
  std::atomic<bool> m_done{false};
  samples m_alone, m_alone_disturbed, m_together, m_together_disturbed;
};

}  // namespace

bool two_processors() { return usable_processors().size() >= 2; }

shared_cost cost_of_sharing(const std::function<void()>& work) { return duet(work).play(); }

}  // namespace bench
