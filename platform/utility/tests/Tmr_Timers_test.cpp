#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include <support/forked.h>
#include <utility/Tmr_TimerThread.h>
#include <utility/Tmr_Timers.h>

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;

Tmr_Timers::Time at(int ms) { return Tmr_Timers::Time(milliseconds(ms)); }

// What was called, and a call that lasts until somebody ends it.
class Listener : public Tmr_TimerInterace {
 public:
  ~Listener() override { Tmr_TimerThread::GetInstance().ForgetListener(this); }

  void OnTimerExpired(RWCString& name) override {
    std::unique_lock lock(m_mutex);
    m_called.push_back(name.str());
    m_changed.notify_all();
    if (!m_is_held) return void(++m_returned);
    m_changed.wait(lock, [this] { return !m_is_held; });
    lock.unlock();
    for (int i = 0; i < 1000; ++i) std::this_thread::yield();  // for who does not wait for the end
    lock.lock();
    ++m_returned;
  }
  void hold(bool held) {
    const std::lock_guard lock(m_mutex);
    m_is_held = held;
    m_changed.notify_all();
  }
  void wait_for_calls(size_t count) {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [&] { return m_called.size() >= count; });
  }
  void set(RWCString name, int seconds) {
    Tmr_TimerThread::GetInstance().SetDisposableTimer(name, seconds, this);
  }
  std::vector<std::string> called() const {
    const std::lock_guard lock(m_mutex);
    return m_called;
  }
  bool is_called() const {
    const std::lock_guard lock(m_mutex);
    return m_returned != m_called.size();
  }

 private:
  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<std::string> m_called;
  size_t m_returned = 0;
  bool m_is_held = false;
};

class Timers : public testing::Test {
 protected:
  // What goes off until then, in order: 'a' and a name for the first listener.
  std::vector<std::string> fired_until(int ms) {
    std::vector<std::string> all;
    for (Tmr_Timers::Fired fired; timers.Take(at(ms), fired);) {
      all.push_back((fired.listener == &a ? "a " : "b ") + fired.name.str());
    }
    return all;
  }

  Listener a, b;
  Tmr_Timers timers;
};

TEST_F(Timers, GoOffInOrderOfTimeAndNotBefore) {
  timers.Set(&a, "late", at(5000));
  timers.Set(&a, "early", at(3000));
  timers.Set(&b, "late", at(4000));
  EXPECT_EQ(timers.next(), at(3000));
  EXPECT_THAT(fired_until(2999), ElementsAre());
  EXPECT_THAT(fired_until(4000), ElementsAre("a early", "b late"));
  EXPECT_THAT(fired_until(9000), ElementsAre("a late"));
  EXPECT_TRUE(timers.empty());
}

TEST_F(Timers, OfOneListenerNameAndSecondAreOne) {
  for (const int due : {7100, 7999, 8000, 8001, 2500, 9000}) timers.Set(&a, "x", at(due));
  timers.Set(&b, "x", at(7100));
  timers.Set(&a, "y", at(7100));
  EXPECT_EQ(timers.size(), 6u);
  EXPECT_EQ(fired_until(7999).size(), 4u);  // those at 2500 and three at 7100
  timers.Set(&a, "x", at(9500));            // one that is set still
  EXPECT_THAT(fired_until(20'000), ElementsAre("a x", "a x"));
  timers.Set(&a, "x", at(9600));  // none is
  EXPECT_THAT(fired_until(20'000), ElementsAre("a x"));
}

TEST_F(Timers, OfAListenerAreCancelledByNameOrAll) {
  for (int second = 1; second <= 50; ++second) {
    for (const char* name : {"x", "y"}) {
      timers.Set(&a, name, at(1000 * (51 - second)));
      timers.Set(&b, name, at(1000 * second));
    }
  }
  timers.Cancel(&a, "x");
  timers.Cancel(&a, "unknown");
  timers.CancelAll(&b);
  EXPECT_EQ(fired_until(60'000), std::vector<std::string>(50, "a y"));
}

TEST(TimerThread, CallsOnceForEachTimer) {
  Listener listener;
  listener.set("far", 100'000);
  listener.set("now", 0);
  listener.wait_for_calls(1);
  listener.set("soon", 1);  // before what the thread waits for
  listener.wait_for_calls(2);
  EXPECT_THAT(listener.called(), ElementsAre("now", "soon"));
}

TEST(TimerThread, TheEndOfAListenerWaitsForItsCallAndLetsNoneFollow) {
  Listener listener, other;
  listener.hold(true);
  listener.set("running", 0);
  listener.set("waiting", 0);
  listener.wait_for_calls(1);
  listener.hold(false);
  Tmr_TimerThread::GetInstance().ForgetListener(&listener);
  EXPECT_FALSE(listener.is_called());
  const size_t calls = listener.called().size();
  other.set("after", 0);
  other.wait_for_calls(1);
  EXPECT_EQ(listener.called().size(), calls);
}

// Ends itself in its call.
class Passing : public Tmr_TimerInterace {
 public:
  explicit Passing(Listener& then) : m_then(then) {}
  ~Passing() override { Tmr_TimerThread::GetInstance().ForgetListener(this); }
  void OnTimerExpired(RWCString&) override {
    m_then.set("gone", 0);
    delete this;
  }

 private:
  Listener& m_then;
};

TEST(TimerThread, AListenerMayEndInItsCall) {
  Listener then;
  RWCString name = "x";
  auto* const passing = new Passing(then);
  Tmr_TimerThread::GetInstance().SetDisposableTimer(name, 0, passing);
  then.wait_for_calls(1);
}

// Sets its timer again in each call.
class Repeating : public Tmr_TimerInterace {
 public:
  ~Repeating() override { Tmr_TimerThread::GetInstance().ForgetListener(this); }
  void OnTimerExpired(RWCString& name) override {
    Tmr_TimerThread::GetInstance().SetDisposableTimer(name, 0, this);
  }
};

TEST(TimerThread, AListenerMayEndThatSetsItsTimerAgain) {
  Listener after;
  for (int i = 0; i < 200; ++i) {
    Repeating repeating;
    RWCString name = "again";
    repeating.OnTimerExpired(name);
    after.set("after", 0);
    after.wait_for_calls(static_cast<size_t>(i + 1));
  }
}

TEST(TimerThread, AChildHasItsParentsTimersAndAThreadOfItsOwn) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the sanitizer lets a child of several threads start none";
#endif
  Listener listener, other;
  listener.hold(true);
  listener.set("parent's", 0);
  listener.wait_for_calls(1);  // which lasts while the process forks
  other.set("both", 1);
  EXPECT_TRUE(holds_in_child([&] {
    Tmr_TimerThread::GetInstance().Resume();
    other.wait_for_calls(1);
    Tmr_TimerThread::GetInstance().ForgetListener(&listener);  // whose call is not running here
    return other.called().size() == 1;
  }));
  listener.hold(false);
  other.wait_for_calls(1);
}

TEST(TimerThread, ManyThreadsSetCancelAndEnd) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int round = 0; round < 50; ++round) {
        Listener listener;
        for (int i = 0; i < 20; ++i) listener.set("timer " + std::to_string(i), (i + t) % 3);
        Tmr_TimerThread::GetInstance().CancelTimer(&listener, "timer 3");
        if (round % 2) listener.wait_for_calls(1);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
