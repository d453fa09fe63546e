#include <gtest/gtest.h>

#include <ace/Guard_T.h>
#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Thread_Mutex.h>
#include <pthread.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <vector>

#include <support/forked.h>
#include <thread/ConditionVar.h>
#include <thread/ForkHandler.h>
#include <thread/Mutex.h>
#include <thread/ReadMostlyLock.h>
#include <thread/RecursiveThreadMutexWrapper.h>
#include <thread/Thread.h>
#include <thread/ThreadEvent.h>

namespace {

using std::chrono::milliseconds;

class Task : public Thread {
 public:
  explicit Task(std::function<void()> work, const RWCString& name = "task")
      : Thread(name), m_work(std::move(work)) {
    EXPECT_TRUE(start());
  }
  ~Task() override { join(); }

 private:
  void Run() override { m_work(); }
  std::function<void()> m_work;
};

// Adds from four threads under `lock`; a hole in the lock loses counts and shows to
// the race detector.
template <class Locked>
void expect_exclusive(Locked locked) {
  int count = 0;
  {
    const auto add = [&] {
      for (int i = 0; i < 20000; ++i) locked([&] { ++count; });
    };
    Task a(add), b(add), c(add), d(add);
  }
  EXPECT_EQ(count, 80000);
}

TEST(Locks, LetOneThreadInAtATime) {
  Mutex mutex;
  expect_exclusive([&](auto work) {
    const MutexGuard guard(mutex);
    work();
  });
  expect_exclusive([&](auto work) {
    const std::lock_guard<Mutex> guard(mutex);
    work();
  });
  RecursiveThreadMutexWrapper wrapper;
  expect_exclusive([&](auto work) {
    const RecursiveThreadMutexWrapper::ReadGuard reading(wrapper);
    const RecursiveThreadMutexWrapper::WriteGuard writing(wrapper);  // from reading to writing
    work();
  });
  ACE_Thread_Mutex plain;
  ACE_Recursive_Thread_Mutex recursive;
  expect_exclusive([&](auto work) {
    const ACE_Guard<ACE_Thread_Mutex> guard(plain);
    const ACE_Guard<ACE_Recursive_Thread_Mutex> once(recursive), again(recursive);
    work();
  });
}

TEST(Locks, TryLockTellsWhetherSomebodyElseHoldsIt) {
  Mutex mutex;
  bool taken = true;
  mutex.lock();
  {
    Task task([&] { taken = mutex.try_lock(); });
  }
  EXPECT_FALSE(taken);
  mutex.unlock();
  ASSERT_TRUE(mutex.try_lock());
  mutex.unlock();
}

TEST(ConditionVar, PassesEveryItemFromOneThreadToAnother) {
  Mutex mutex;
  ConditionVar changed;
  std::vector<int> queue, taken;
  {
    Task consumer([&] {
      while (taken.size() < 1000) {
        const MutexGuard guard(mutex);
        changed.wait(mutex, [&] { return !queue.empty(); });
        taken.insert(taken.end(), queue.begin(), queue.end());
        queue.clear();
      }
    });
    for (int i = 0; i < 1000; ++i) {
      const MutexGuard guard(mutex);
      queue.push_back(i);
      changed.notify_one();
    }
  }
  ASSERT_EQ(taken.size(), 1000u);
  EXPECT_EQ(taken.back(), 999);
  const MutexGuard guard(mutex);
  EXPECT_FALSE(changed.wait_for(mutex, milliseconds(1), [] { return false; }));
}

TEST(ThreadEvent, AutoResetLetsOneThroughAndManualResetEverybody) {
  ThreadEvent one(ThreadEvent::AUTO_RESET), all(ThreadEvent::MANUAL_RESET);
  one.signal();
  one.signal();  // counts once
  EXPECT_TRUE(one.wait_for(milliseconds(0)));
  EXPECT_FALSE(one.wait_for(milliseconds(0)));

  Task first([&] { all.wait(), one.signal(); }), second([&] { all.wait(); });
  all.signal();
  one.wait();
  second.join();
  EXPECT_TRUE(all.wait_for(milliseconds(0)));
  all.reset();
  EXPECT_FALSE(all.wait_for(milliseconds(0)));
}

TEST(Thread, RunsOnceUnderItsNameAndAgainAfterAJoin) {
  int runs = 0;
  char name[16] = "";
  ThreadEvent named(ThreadEvent::AUTO_RESET);
  Task task([&] { named.wait(), pthread_getname_np(pthread_self(), name, sizeof name), ++runs; },
            "synchronizer of users");
  EXPECT_FALSE(task.start());
  named.signal();
  task.join();
  task.join();
  EXPECT_STREQ(name, "synchronizer of");
  named.signal();
  EXPECT_TRUE(task.start());
  task.join();
  EXPECT_EQ(runs, 2);
}

TEST(ReadMostlyLock, ShowsReadersAllOfAChangeAndLetsEverybodyIn) {
  ReadMostlyLock lock;
  int halves[2] = {0, 0};  // guarded by lock
  std::atomic<int> running{4}, torn{0};
  const auto read = [&] {
    for (int i = 0; i < 20'000; ++i) {
      const std::shared_lock guard(lock);
      if (halves[0] != halves[1]) ++torn;
    }
    --running;
  };
  int written = 0;  // guarded by lock
  const auto write = [&] {
    while (running > 0) {
      const std::unique_lock guard(lock);
      ++halves[0];
      std::this_thread::yield();
      ++halves[1];
      ++written;
    }
  };
  {
    std::vector<std::unique_ptr<Task>> tasks;
    for (int i = 0; i < 4; ++i) tasks.push_back(std::make_unique<Task>(read));
    for (int i = 0; i < 2; ++i) tasks.push_back(std::make_unique<Task>(write));
  }
  EXPECT_EQ(torn, 0);
  EXPECT_EQ(halves[0], written);
  // Among endless readers a writer has its turn.
  std::atomic<bool> is_over{false};
  const auto read_on = [&] {
    while (!is_over) const std::shared_lock guard(lock);
  };
  Task one(read_on), another(read_on);
  for (int i = 0; i < 10; ++i) const std::unique_lock guard(lock);
  is_over = true;
}

TEST(ReadMostlyLock, IsFreeInAChildWhoeverHeldIt) {
  ReadMostlyLock lock;
  int halves[2] = {0, 0};  // guarded by lock
  std::atomic<bool> is_over{false};
  Task writes([&] {
    while (!is_over) {
      const std::unique_lock guard(lock);
      ++halves[0];
      ++halves[1];
    }
  });
  Task reads([&] {
    while (!is_over) const std::shared_lock guard(lock);
  });
  for (int i = 0; i < 20; ++i) {
    EXPECT_TRUE(holds_in_child([&] {
      {
        const std::shared_lock guard(lock);
        if (halves[0] != halves[1]) return false;
      }
      const std::unique_lock guard(lock);
      return ++halves[0] == ++halves[1];
    }));
  }
  is_over = true;
}

TEST(Fork, WaitsForLocksAndLeavesThemFreeOnBothSides) {
  ForkMutex mutex(ForkHandler::VALUES);
  int halves[2] = {0, 0};  // guarded by mutex
  std::atomic<bool> is_over{false};
  Task busy([&] {
    while (!is_over) {
      const MutexGuard guard(mutex);
      ++halves[0];
      ++halves[1];
    }
  });
  const unsigned generation = ForkHandler::Generation();
  for (int i = 0; i < 20; ++i) {
    EXPECT_TRUE(holds_in_child([&] {
      const MutexGuard guard(mutex);
      return halves[0] == halves[1] && ForkHandler::Generation() == generation + 1;
    }));
  }
  EXPECT_EQ(ForkHandler::Generation(), generation);
  is_over = true;
}

TEST(Fork, TakesLocksFromAboveAndReleasesThemFromBelow) {
  static std::string told;
  const auto note = [](void* name, ForkHandler::Phase phase) {
    (told += static_cast<const char*>(name)) += "<=>"[phase];
  };
  char low[] = "low", high[] = "high", gone[] = "gone";
  const ForkHandler lower(ForkHandler::LOG, note, low);
  const ForkHandler upper(ForkHandler::REPOSITORIES, note, high);
  ForkHandler(ForkHandler::VALUES, note, gone);
  EXPECT_TRUE(holds_in_child([] { return told == "high<low<low>high>"; }));
  EXPECT_EQ(told, "high<low<low=high=");
}

}  // namespace
