#include "workers.h"

#include <exception>

#include <logging/Logger.h>

namespace service {

namespace {
constexpr Log_Logger logger("service/workers", 508);
}

class Workers::Worker : public Thread {
 public:
  explicit Worker(Workers& owner) : Thread("svcfg worker"), m_owner(owner) { start(); }
  ~Worker() override { join(); }

 private:
  void Run() override {
    for (std::function<void()> job; m_owner.take(job); job = nullptr) run(job);
  }
  // The others go on.
  static void run(const std::function<void()>& job) try {
    job();
  } catch (const std::exception& failure) {
    logger.error("a job failed: %s\n", failure.what());
  }

  Workers& m_owner;
};

Workers::Workers(int threads) {
  for (int i = 0; i < threads; ++i) m_threads.push_back(std::make_unique<Worker>(*this));
}

Workers::~Workers() { stop(); }

void Workers::post(std::function<void()> job) {
  {
    const MutexGuard guard(m_mutex);
    m_jobs.push_back(std::move(job));
  }
  m_changed.notify_one();
}

void Workers::stop() {
  {
    const MutexGuard guard(m_mutex);
    m_is_stopping = true;
  }
  m_changed.notify_all();
  m_threads.clear();
}

bool Workers::take(std::function<void()>& job) {
  const MutexGuard guard(m_mutex);
  m_changed.wait(m_mutex,
                 [&]() THREADAPI_REQUIRES(m_mutex) { return m_is_stopping || !m_jobs.empty(); });
  if (m_jobs.empty()) return false;
  job = std::move(m_jobs.front());
  m_jobs.pop_front();
  return true;
}

}  // namespace service
