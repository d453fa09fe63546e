#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <support/comes.h>
#include <support/forked.h>
#include <support/temporary_folder.h>
#include <system/Sys_FileLock.h>

namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;
using testing::HasSubstr;

constexpr auto ALONE = Sys_FileLock::ALONE;
constexpr auto SHARED = Sys_FileLock::SHARED;
constexpr milliseconds AT_ONCE{0};

class FileLock : public testing::Test {
 protected:
  bool take(Sys_FileLock& lock, Sys_FileLock::Kind kind, milliseconds limit = AT_ONCE) const {
    return lock.take(m_file, kind, limit) == Sys_FileLock::TAKEN;
  }
  bool can_take(Sys_FileLock::Kind kind) const {
    Sys_FileLock lock;
    return take(lock, kind);
  }
  std::string reason(const std::string& name, Sys_FileLock::Kind kind) const {
    Sys_FileLock lock;
    return lock.take(m_folder.file(name), kind, AT_ONCE) == Sys_FileLock::FAILED
               ? lock.error().str()
               : "not refused";
  }
  std::string path(const std::string& name) const { return m_folder / name; }

  TemporaryFolder m_folder;
  const RWWString m_file = m_folder.file("tree.LOCK");
};

// A process that takes the lock, says so and does something, with a pipe of its own.
class Holder {
 public:
  explicit Holder(const std::function<bool()>& take) {
    int ends[2];
    if (pipe(ends) != 0) return;
    m_child = fork();
    if (m_child == 0) {
      alarm(60);
      const char answer = take() ? 'y' : 'n';
      if (write(ends[1], &answer, 1) == 1) pause();
      _exit(0);
    }
    char answer = 0;
    m_has_it = read(ends[0], &answer, 1) == 1 && answer == 'y';
    close(ends[0]);
    close(ends[1]);
  }
  ~Holder() { kill(); }
  bool has_it() const { return m_has_it; }
  void kill() {
    if (m_child <= 0) return;
    ::kill(m_child, SIGKILL);
    waitpid(m_child, nullptr, 0);
    m_child = -1;
  }

 private:
  pid_t m_child = -1;
  bool m_has_it = false;
};

TEST_F(FileLock, IsHeldByOneAloneOrSharedByManyInOneProcessAndInSeveral) {
  Sys_FileLock first, second;
  ASSERT_TRUE(take(first, ALONE));
  EXPECT_FALSE(can_take(ALONE));
  EXPECT_FALSE(can_take(SHARED));
  EXPECT_TRUE(holds_in_child([&] { return !can_take(ALONE) && !can_take(SHARED); }));

  ASSERT_TRUE(take(first, SHARED));  // one object changes over
  ASSERT_TRUE(take(second, SHARED));
  EXPECT_FALSE(can_take(ALONE));
  EXPECT_TRUE(holds_in_child([&] { return can_take(SHARED) && !can_take(ALONE); }));
  second.release();
  EXPECT_FALSE(second.is_held());
  EXPECT_TRUE(first.is_held());
  EXPECT_FALSE(can_take(ALONE));
  first.release();
  first.release();
  EXPECT_TRUE(can_take(ALONE));
}

TEST_F(FileLock, WhoWaitsToBeAloneIsNotKeptOutByThoseWhoComeLater) {
  auto reader = std::make_unique<Sys_FileLock>();
  ASSERT_TRUE(take(*reader, SHARED));
  std::atomic<bool> is_taken{false};
  std::thread writer([&] {
    Sys_FileLock lock;
    is_taken = take(lock, ALONE, minutes(1));
  });
  EXPECT_TRUE(comes([&] { return !can_take(SHARED); }));  // the writer waits
  EXPECT_FALSE(is_taken);
  reader.reset();
  writer.join();
  EXPECT_TRUE(is_taken);
  EXPECT_TRUE(can_take(SHARED));
}

TEST_F(FileLock, ManyThreadsAndProcessesNeverMeet) {
  const std::string counter = path("counter");
  std::ofstream(counter) << 0;
  const auto add = [&](int times) {
    for (int i = 0; i < times; ++i) {
      Sys_FileLock lock;
      if (!take(lock, ALONE, minutes(1))) return false;
      int count = -1;
      std::ifstream(counter) >> count;
      std::ofstream(counter) << count + 1;  // emptied first: readers would see nothing
      // Some give the lock back by deleting its file.
      if (i % 5 == 0 && lock.release_and_delete() != 0) return false;
    }
    return true;
  };
  const auto look = [&](int times) {
    for (int i = 0; i < times; ++i) {
      Sys_FileLock lock;
      int count = -1;
      if (!take(lock, SHARED, minutes(1)) || !(std::ifstream(counter) >> count)) return false;
    }
    return true;
  };
  std::vector<pid_t> children;
  for (int i = 0; i < 3; ++i) {
    children.push_back(fork());
    if (children.back() == 0) _exit(add(50) && look(50) ? 0 : 1);
  }
  std::atomic<int> failed{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&, i] { failed += !(i % 2 == 0 ? add(25) : look(50)); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failed, 0);
  for (const pid_t child : children) {
    int status = 1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  int count = -1;
  std::ifstream(counter) >> count;
  EXPECT_EQ(count, 3 * 50 + 4 * 25);
}

TEST_F(FileLock, GoesWithTheProcessThatHeldIt) {
  Sys_FileLock mine;
  Holder holder([&] { return take(mine, ALONE); });
  ASSERT_TRUE(holder.has_it());
  EXPECT_FALSE(take(mine, SHARED));
  holder.kill();
  EXPECT_TRUE(take(mine, ALONE, minutes(1)));
}

TEST_F(FileLock, AChildHoldsNothingOfItsParents) {
  auto lock = std::make_unique<Sys_FileLock>();
  ASSERT_TRUE(take(*lock, ALONE));
  EXPECT_TRUE(holds_in_child([&] {
    const bool was_held = lock->is_held();
    lock->release();  // nothing: the parent holds on
    const bool is_free = can_take(SHARED) || take(*lock, ALONE);
    lock.reset();
    return !was_held && !is_free;
  }));
  EXPECT_TRUE(lock->is_held());
  EXPECT_FALSE(can_take(SHARED));

  // The parent goes, by force, while its child lives on.
  lock->release();
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  Holder parent([&] {
    if (!take(*lock, ALONE)) return false;
    if (fork() == 0) {
      close(ends[1]);
      char byte;
      _exit(read(ends[0], &byte, 1) == 0 ? 0 : 1);  // until the test is over
    }
    return true;
  });
  ASSERT_TRUE(parent.has_it());
  EXPECT_FALSE(can_take(SHARED));
  parent.kill();
  EXPECT_TRUE(take(*lock, ALONE, minutes(1)));
  close(ends[0]);
  close(ends[1]);
}

TEST_F(FileLock, ForksInTheMiddleOfOtherThreadsCallsLeaveNothingHeld) {
  std::atomic<bool> is_over{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      while (!is_over) {
        Sys_FileLock lock;
        take(lock, ALONE, milliseconds(2));
      }
    });
  }
  std::vector<pid_t> children;
  for (int i = 0; i < 50; ++i) {
    children.push_back(fork());
    if (children.back() == 0) {
      alarm(60);
      pause();
      _exit(0);
    }
  }
  is_over = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(can_take(ALONE));  // while fifty children live
  for (const pid_t child : children) {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }
}

TEST_F(FileLock, IsReleasedUnderAChildThatNobodyTold) {
  Sys_FileLock lock;
  ASSERT_TRUE(take(lock, ALONE));
  const pid_t child = _Fork();  // no handler is called
  if (child == 0) {
    alarm(60);
    pause();
    _exit(0);
  }
  lock.release();
  EXPECT_TRUE(can_take(ALONE));
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

TEST_F(FileLock, ProgramsThatAreStartedInheritNothing) {
  Sys_FileLock lock;
  ASSERT_TRUE(take(lock, ALONE));
  EXPECT_EQ(system(("ls -l /proc/self/fd | grep -q '" + path("tree.LOCK") + "'").c_str()) >> 8, 1);
}

TEST_F(FileLock, OfADeletedFileIsNoLock) {
  Sys_FileLock holder;
  ASSERT_TRUE(take(holder, ALONE));
  std::atomic<int> inside{0}, met{0};
  std::vector<std::thread> waiting;
  for (int i = 0; i < 4; ++i) {
    waiting.emplace_back([&] {
      Sys_FileLock lock;
      EXPECT_TRUE(take(lock, ALONE, minutes(1)));
      if (++inside > 1) ++met;
      std::this_thread::yield();
      --inside;
    });
  }
  EXPECT_EQ(holder.release_and_delete(), 0);
  EXPECT_FALSE(holder.is_held());
  for (std::thread& thread : waiting) thread.join();
  EXPECT_EQ(met, 0);

  EXPECT_EQ(holder.release_and_delete(), EPERM);  // not held
  ASSERT_TRUE(take(holder, SHARED));
  EXPECT_EQ(holder.release_and_delete(), EPERM);
  ASSERT_TRUE(take(holder, ALONE));
  std::filesystem::remove(path("tree.LOCK"));  // against the rules
  Sys_FileLock other;
  ASSERT_TRUE(take(other, ALONE));
  EXPECT_EQ(holder.release_and_delete(), ENOENT);  // not the other's
  EXPECT_TRUE(other.is_held());
  EXPECT_FALSE(can_take(ALONE));
}

TEST_F(FileLock, WhatCannotBeLockedIsNamedWithItsReason) {
  EXPECT_EQ(reason("none/x.LOCK", ALONE),
            "cannot open the lock file <" + path("none/x.LOCK") + ">: No such file or directory");
  std::filesystem::create_directory(path("folder"));
  EXPECT_THAT(reason("folder", ALONE), HasSubstr("Is a directory"));
  ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
  EXPECT_THAT(reason("pipe", SHARED), HasSubstr("no ordinary file"));
  std::filesystem::create_symlink("elsewhere", path("link"));
  EXPECT_THAT(reason("link", ALONE), HasSubstr("symbolic link"));
  EXPECT_FALSE(std::filesystem::exists(path("elsewhere")));
  EXPECT_THAT(reason(std::string(3000, 'n'), ALONE), HasSubstr("File name too long"));
  Sys_FileLock lock;
  EXPECT_EQ(lock.take(L"", ALONE, AT_ONCE), Sys_FileLock::FAILED);

  EXPECT_TRUE(holds_in_child([&] {
    const rlimit none{0, 0};
    setrlimit(RLIMIT_NOFILE, &none);
    return reason("full.LOCK", ALONE).find("Too many open files") != std::string::npos;
  }));
  EXPECT_TRUE(holds_in_child([&] {  // a folder that we may not write
    std::ofstream(path("there.LOCK"));
    chmod(path("there.LOCK").c_str(), 0444);
    chmod(m_folder.path().c_str(), 0555);
    if (setuid(65534) != 0) return false;
    return reason("there.LOCK", SHARED) == "not refused" &&
           reason("there.LOCK", ALONE).find("Permission denied") != std::string::npos &&
           reason("new.LOCK", SHARED).find("Permission denied") != std::string::npos;
  }));
}

TEST_F(FileLock, TakesNoStandardStreamsPlace) {
  EXPECT_TRUE(holds_in_child([&] {
    close(STDERR_FILENO);
    Sys_FileLock lock;
    return take(lock, ALONE) && fcntl(STDERR_FILENO, F_GETFD) < 0 && !can_take(ALONE);
  }));
}

}  // namespace
