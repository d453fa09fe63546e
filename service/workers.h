// Threads for what takes long.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include <thread/ConditionVar.h>
#include <thread/Thread.h>

#include "once.h"

namespace service {

// What a job is, by how long it may take. Jobs of one lane run in the order in which they came,
// and those of several in that order as far as the lanes have room.
enum class Lane : uint8_t {
  SHORT,   // may take every thread
  STREAM,  // a chunk of a tree: every thread but one, together with the long ones
  LONG,    // half of the threads
};

// Any thread may post.
class Workers {
 public:
  explicit Workers(const char* name);
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;
  ~Workers();  // stops

  // False when the system gives fewer threads; then there are none.
  bool start(int threads);
  void post(Lane lane, Job job);
  // Runs what was posted; what is posted then is dropped. Not to be called by a job.
  void stop();
  // Runs it once on each thread, when that has nothing else to do.
  void post_to_each(void (*work)());
  // Counts up with every job.
  uint64_t posted();

 private:
  class Worker;
  struct Posted {
    uint64_t number;
    Job job;
  };
  static constexpr size_t LANES = 3;

  bool take(Job& job, Lane& lane, uint64_t& done_by_each);
  void is_done(Lane lane);
  bool has_room(size_t lane) const THREADAPI_REQUIRES(m_mutex);
  // The lane whose turn it is; LANES when there is nothing to do.
  size_t next_lane() const THREADAPI_REQUIRES(m_mutex);

  const char* const m_name;
  Mutex m_mutex;
  ConditionVar m_changed;
  std::array<std::deque<Posted>, LANES> m_jobs THREADAPI_GUARDED_BY(m_mutex);
  std::array<int, LANES> m_running THREADAPI_GUARDED_BY(m_mutex){};
  uint64_t m_posted THREADAPI_GUARDED_BY(m_mutex) = 0;
  void (*m_work_of_each)() THREADAPI_GUARDED_BY(m_mutex) = nullptr;
  uint64_t m_posted_to_each THREADAPI_GUARDED_BY(m_mutex) = 0;
  int m_count THREADAPI_GUARDED_BY(m_mutex) = 0;
  bool m_is_stopping THREADAPI_GUARDED_BY(m_mutex) = false;
  bool m_has_stopped THREADAPI_GUARDED_BY(m_mutex) = false;
  std::vector<std::unique_ptr<Worker>> m_threads;
};

}  // namespace service
