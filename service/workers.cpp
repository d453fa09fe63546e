#include "workers.h"

#include <algorithm>
#include <exception>

#include <logging/Logger.h>

namespace service {

namespace {
constexpr Log_Logger logger("service/workers", 508);

constexpr size_t index_of(Lane lane) { return static_cast<size_t>(lane); }
}  // namespace

class Workers::Worker : public Thread {
 public:
  explicit Worker(Workers& owner) : Thread(owner.m_name), m_owner(owner) {}
  ~Worker() override { join(); }

 private:
  void Run() override {
    Job job;
    Lane lane;
    uint64_t done_by_each = 0;
    while (m_owner.take(job, lane, done_by_each)) {
      run(job);
      m_owner.is_done(lane);
    }
  }
  // The others go on.
  static void run(Job& job) try { job(); } catch (const std::exception& failure) {
    logger.error("a job failed: %s\n", failure.what());
  }

  Workers& m_owner;
};

Workers::Workers(const char* name) : m_name(name) {}

Workers::~Workers() { stop(); }

bool Workers::start(int threads) {
  {
    const MutexGuard guard(m_mutex);
    m_count = threads;
  }
  for (int i = 0; i < threads; ++i) {
    m_threads.push_back(std::make_unique<Worker>(*this));
    if (m_threads.back()->start()) continue;
    stop();
    return false;
  }
  return true;
}

void Workers::post(Lane lane, Job job) {
  {
    const MutexGuard guard(m_mutex);
    if (m_has_stopped) return;
    m_jobs[index_of(lane)].push_back({m_posted, std::move(job)});
    ++m_posted;
  }
  m_changed.notify_one();
}

void Workers::post_to_each(void (*work)()) {
  {
    const MutexGuard guard(m_mutex);
    m_work_of_each = work;
    ++m_posted_to_each;
  }
  m_changed.notify_all();
}

uint64_t Workers::posted() {
  const MutexGuard guard(m_mutex);
  return m_posted;
}

void Workers::stop() {
  {
    const MutexGuard guard(m_mutex);
    m_is_stopping = true;
  }
  m_changed.notify_all();
  m_threads.clear();
  std::array<std::deque<Posted>, LANES> left;  // goes without the lock
  const MutexGuard guard(m_mutex);
  m_has_stopped = true;
  left.swap(m_jobs);
}

bool Workers::has_room(size_t lane) const {
  if (lane == index_of(Lane::SHORT)) return true;
  const int long_ones = m_running[index_of(Lane::LONG)];
  const int streams = m_running[index_of(Lane::STREAM)];
  if (long_ones + streams >= std::max(m_count - 1, 1)) return false;
  return lane == index_of(Lane::STREAM) || long_ones < std::max(m_count / 2, 1);
}

size_t Workers::next_lane() const {
  size_t next = LANES;
  for (size_t lane = 0; lane < LANES; ++lane) {
    if (m_jobs[lane].empty() || !has_room(lane)) continue;
    if (next == LANES || m_jobs[lane].front().number < m_jobs[next].front().number) next = lane;
  }
  return next;
}

// Who is stopping runs what there is, whichever thread has room for it first.
bool Workers::take(Job& job, Lane& lane, uint64_t& done_by_each) {
  const MutexGuard guard(m_mutex);
  size_t next = LANES;
  m_changed.wait(m_mutex, [&]() THREADAPI_REQUIRES(m_mutex) {
    next = next_lane();
    return m_is_stopping || next != LANES || done_by_each != m_posted_to_each;
  });
  if (next != LANES) {
    job = std::move(m_jobs[next].front().job);
    m_jobs[next].pop_front();
    lane = static_cast<Lane>(next);
  } else if (done_by_each != m_posted_to_each) {
    done_by_each = m_posted_to_each;
    job = m_work_of_each;
    lane = Lane::SHORT;
  } else {
    return false;
  }
  ++m_running[index_of(lane)];
  return true;
}

void Workers::is_done(Lane lane) {
  {
    const MutexGuard guard(m_mutex);
    --m_running[index_of(lane)];
  }
  m_changed.notify_one();
}

}  // namespace service
