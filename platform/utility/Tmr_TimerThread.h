// Calls after a time.
#pragma once

#include <memory>
#include <vector>

#include <strings/Export.h>
#include <strings/RWCString.h>
#include <thread/ForkHandler.h>

class Tmr_Timers;

// Implemented by whoever sets timers.
class HALVORIA_API Tmr_TimerInterace {
 public:
  Tmr_TimerInterace() = default;
  Tmr_TimerInterace(const Tmr_TimerInterace&) {}  // timers are of one object
  Tmr_TimerInterace& operator=(const Tmr_TimerInterace&) { return *this; }
  // As Tmr_TimerThread::ForgetListener. By now the object is no longer what the call was for: the
  // class that has OnTimerExpired calls that itself, first thing in its destructor.
  virtual ~Tmr_TimerInterace();

  // On the timer thread, where one call at a time is made: others wait, and the end of the process
  // does. Must not throw.
  virtual void OnTimerExpired(RWCString& name) = 0;
};

// The process's timers, all served by one thread, which starts with the first. Any thread may call
// any operation, with locks held that OnTimerExpired takes, but for ForgetListener.
//
// When the process ends, the call that is running comes to its end and no other follows. A child
// of a fork has its parent's timers; they go off once a thread of its own runs there, which the
// next timer or Resume starts.
//
// A million timers that are set within one time-out take 157 MB and 0.9 us each when every one has
// a name of its own, of 32 bytes; over a hundred names they fold to one for each name and second,
// which takes 0.1 us.
class HALVORIA_API Tmr_TimerThread {
 public:
  static Tmr_TimerThread& GetInstance();

  // Calls listener->OnTimerExpired(name) once after that time, at once for none. Timers under one
  // name add up, those that end within the same second being one. When the system gives no
  // thread, it waits for the next call here.
  void SetDisposableTimer(RWCString& name, int seconds, Tmr_TimerInterace* listener);
  // Its timers of that name are gone; one that is just going off is not waited for.
  void CancelTimer(Tmr_TimerInterace* listener, const RWCString& name);
  // Its timers are gone, and none of its calls is running on return, unless this comes from there.
  void ForgetListener(Tmr_TimerInterace* listener);

  // In a child of a fork: has the timers go off there, when there are any.
  void Resume();

 private:
  class Worker;
  friend struct Tmr_TimerThreadEnd;

  Tmr_TimerThread();
  ~Tmr_TimerThread();
  static void told(void* object, ForkHandler::Phase phase);
  void start() THREADAPI_REQUIRES(m_mutex);
  void serve(Worker& worker);
  void end();

  Mutex m_mutex;
  const std::unique_ptr<Tmr_Timers> m_all;                              // guarded by m_mutex
  Tmr_TimerInterace* m_called THREADAPI_GUARDED_BY(m_mutex) = nullptr;  // whose call is running
  // Those whose end waits for their call: it sets no timer any more.
  std::vector<Tmr_TimerInterace*> m_leaving THREADAPI_GUARDED_BY(m_mutex);
  bool m_is_ended THREADAPI_GUARDED_BY(m_mutex) = false;
  std::unique_ptr<Worker> m_worker THREADAPI_GUARDED_BY(m_mutex);
  ForkHandler m_handler;
};
