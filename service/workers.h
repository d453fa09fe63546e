// Threads for what takes long.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <vector>

#include <thread/ConditionVar.h>
#include <thread/Thread.h>

namespace service {

// Runs jobs in the order in which they came. Any thread may post.
class Workers {
 public:
  explicit Workers(int threads);
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;
  ~Workers();  // stops

  void post(std::function<void()> job);
  // Runs what was posted, and posts no more. Not to be called by a job.
  void stop();

 private:
  class Worker;
  bool take(std::function<void()>& job);

  Mutex m_mutex;
  ConditionVar m_changed;
  std::deque<std::function<void()>> m_jobs THREADAPI_GUARDED_BY(m_mutex);
  bool m_is_stopping THREADAPI_GUARDED_BY(m_mutex) = false;
  std::vector<std::unique_ptr<Worker>> m_threads;
};

}  // namespace service
