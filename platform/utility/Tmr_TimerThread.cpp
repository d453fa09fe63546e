#include <utility/Tmr_TimerThread.h>

#include <algorithm>

#include <logging/Logger.h>
#include <thread/ConditionVar.h>
#include <thread/Thread.h>
#include <utility/Tmr_Timers.h>

namespace {

constexpr Log_Logger logger("platform/utility/Tmr_TimerThread", 504);

using clock_type = std::chrono::steady_clock;

}  // namespace

// The thread, and what is waited for with it. A child of a fork leaves its parent's alone.
class Tmr_TimerThread::Worker : public Thread {
 public:
  explicit Worker(Tmr_TimerThread& timers) : Thread("timers"), m_timers(timers) {}
  ~Worker() override { join(); }

  bool is_this_thread() const { return m_id == std::this_thread::get_id(); }

  ConditionVar work;       // a timer that is due before the others, or the end
  ConditionVar call_done;  // a call has returned

 protected:
  void Run() override {
    m_id = std::this_thread::get_id();
    m_timers.serve(*this);
  }

 private:
  Tmr_TimerThread& m_timers;
  std::atomic<std::thread::id> m_id{std::thread::id()};
};

// Never destroyed: whoever ends late still has timers to give up.
Tmr_TimerThread& Tmr_TimerThread::GetInstance() {
  static Tmr_TimerThread& instance = *new Tmr_TimerThread;
  return instance;
}

struct Tmr_TimerThreadEnd {
  Tmr_TimerThread& timers = Tmr_TimerThread::GetInstance();  // made before any fork
  ~Tmr_TimerThreadEnd() { timers.end(); }
};
static const Tmr_TimerThreadEnd at_end;

Tmr_TimerInterace::~Tmr_TimerInterace() { Tmr_TimerThread::GetInstance().ForgetListener(this); }

Tmr_TimerThread::Tmr_TimerThread()
    : m_all(std::make_unique<Tmr_Timers>()), m_handler(ForkHandler::TIMERS, told, this) {}
Tmr_TimerThread::~Tmr_TimerThread() = default;

void Tmr_TimerThread::told(void* object, ForkHandler::Phase phase) THREADAPI_UNCHECKED {
  auto& self = *static_cast<Tmr_TimerThread*>(object);
  if (phase == ForkHandler::BEFORE) return self.m_mutex.lock();
  if (phase == ForkHandler::IN_CHILD) {
    static_cast<void>(self.m_worker.release());  // there is no such thread to be joined
    self.m_called = nullptr;
    self.m_leaving.clear();
  }
  self.m_mutex.unlock();
}

void Tmr_TimerThread::SetDisposableTimer(RWCString& name, int seconds,
                                         Tmr_TimerInterace* listener) {
  const Tmr_Timers::Time due = clock_type::now() + std::chrono::seconds(seconds);
  const MutexGuard guard(m_mutex);
  if (m_is_ended) return;
  if (std::find(m_leaving.begin(), m_leaving.end(), listener) != m_leaving.end()) return;
  m_all->Set(listener, name.view(), due);
  if (!m_worker) return start();
  if (m_all->next() == due) m_worker->work.notify_one();
}

void Tmr_TimerThread::Resume() {
  const MutexGuard guard(m_mutex);
  if (!m_is_ended && !m_worker && !m_all->empty()) start();
}

void Tmr_TimerThread::start() {
  m_worker = std::make_unique<Worker>(*this);
  if (m_worker->start()) return;
  m_worker.reset();
  logger.error("the system gives no thread for timers, they wait\n");
}

void Tmr_TimerThread::serve(Worker& worker) {
  const MutexGuard guard(m_mutex);
  // In a child that was forked by a call, the worker of this thread is no longer the one.
  while (!m_is_ended && m_worker.get() == &worker) {
    Tmr_Timers::Fired fired;
    if (m_all->Take(clock_type::now(), fired)) {
      m_called = fired.listener;
      m_mutex.unlock();
      fired.listener->OnTimerExpired(fired.name);
      m_mutex.lock();
      m_called = nullptr;
      worker.call_done.notify_all();
    } else if (m_all->empty()) {
      worker.work.wait(m_mutex);
    } else {
      worker.work.wait_until(m_mutex, m_all->next());
    }
  }
}

void Tmr_TimerThread::CancelTimer(Tmr_TimerInterace* listener, const RWCString& name) {
  const MutexGuard guard(m_mutex);
  m_all->Cancel(listener, name);
}

void Tmr_TimerThread::ForgetListener(Tmr_TimerInterace* listener) {
  const MutexGuard guard(m_mutex);
  m_all->CancelAll(listener);
  const auto is_called = [&]() THREADAPI_UNCHECKED {
    return m_called == listener && m_worker && !m_worker->is_this_thread();
  };
  if (!is_called()) return;
  m_leaving.push_back(listener);
  while (is_called()) m_worker->call_done.wait(m_mutex);
  m_leaving.erase(std::find(m_leaving.begin(), m_leaving.end(), listener));
}

void Tmr_TimerThread::end() {
  Worker* worker;
  {
    const MutexGuard guard(m_mutex);
    m_is_ended = true;
    worker = m_worker.get();
    if (worker) worker->work.notify_one();
  }
  if (worker) worker->join();
}
