#include <system/Sys_FileLock.h>

#include <sys/stat.h>

#include <algorithm>
#include <set>
#include <system_error>
#include <thread>

#include <system/Sys_Descriptor.h>
#include <system/Sys_FileName.h>
#include <thread/ForkHandler.h>

// The locks are those of the open file (F_OFD_SETLK): they hold between two openings of the file,
// in one process or in several, go with the last descriptor of the opening, and are sent to the
// server by network file systems. What fork copies is a descriptor of the same opening; hence
// a child closes its copies, and a release unlocks before it closes, for the sake of copies that
// a child has not closed yet.
//
// Two bytes are locked, which need not exist. The second is the lock. Whoever wants it goes
// through the first: a reader for a moment, and together with others; a writer alone and
// for as long as he waits for the second and holds it.

namespace {

constexpr int kGate = 0, kLock = 1, kBoth = 2;
constexpr std::chrono::milliseconds kShortestPause{1}, kLongestPause{16};

}  // namespace

// Those that have their file open, so that a child closes it.
class Sys_OpenLocks {
 public:
  static Sys_OpenLocks& instance() {
    static Sys_OpenLocks& all = *new Sys_OpenLocks;
    return all;
  }
  Sys_FileLock::Attempt attempt(Sys_FileLock& lock, Sys_FileLock::Kind kind) {
    const MutexGuard guard(m_mutex);
    m_open.insert(&lock);
    const Sys_FileLock::Attempt attempt = lock.attempt(kind);
    if (lock.m_descriptor < 0) m_open.erase(&lock);
    return attempt;
  }
  void release(Sys_FileLock& lock) {
    const MutexGuard guard(m_mutex);
    if (m_open.erase(&lock) == 0) return;
    lock.lock(F_UNLCK, kGate, kBoth);
    lock.forget();
  }

 private:
  static void told(void* object, ForkHandler::Phase phase) THREADAPI_UNCHECKED {
    auto& self = *static_cast<Sys_OpenLocks*>(object);
    if (phase == ForkHandler::BEFORE) return self.m_mutex.lock();
    if (phase == ForkHandler::IN_CHILD) {
      for (Sys_FileLock* lock : self.m_open) lock->forget();
      self.m_open.clear();
    }
    self.m_mutex.unlock();
  }

  Mutex m_mutex;
  std::set<Sys_FileLock*> m_open THREADAPI_GUARDED_BY(m_mutex);
  ForkHandler m_handler{ForkHandler::FILES, told, this};
};

[[maybe_unused]] static const Sys_OpenLocks& made_early = Sys_OpenLocks::instance();

Sys_FileLock::Outcome Sys_FileLock::take(const RWWString& file, Kind kind,
                                         std::chrono::milliseconds limit) {
  release();
  m_name = Sys_NativeFileName(file);
  m_error = Sys_FileNameFault(m_name);
  if (!m_error.isNull()) return FAILED;
  const auto end = std::chrono::steady_clock::now() + limit;
  for (auto pause = kShortestPause;;) {
    const Attempt attempt = Sys_OpenLocks::instance().attempt(*this, kind);
    if (attempt == DONE) return TAKEN;
    if (attempt == NO) return FAILED;
    const auto now = std::chrono::steady_clock::now();
    if (now >= end) break;
    if (attempt == AGAIN) continue;
    std::this_thread::sleep_for(std::min<std::chrono::nanoseconds>(pause, end - now));
    pause = std::min(pause * 2, kLongestPause);
  }
  release();
  return HELD_BY_OTHERS;
}

// Keeps what it got until the next attempt, so that who waits to be alone holds the gate.
Sys_FileLock::Attempt Sys_FileLock::attempt(Kind kind) {
  if (m_descriptor < 0) {
    if (!open(kind)) return fail("cannot open the lock file", errno);
    if (!is_ordinary()) return fail("cannot lock what is no ordinary file", EINVAL);
  }
  const int type = kind == ALONE ? F_WRLCK : F_RDLCK;
  const bool is_in = lock(type, kGate, 1) && lock(type, kLock, 1);
  const int reason = errno;
  if (kind == SHARED) lock(F_UNLCK, kGate, 1);
  if (!is_in && reason != EAGAIN && reason != EACCES) return fail("cannot lock", reason);
  if (!is_of_the_name()) {
    forget();
    return AGAIN;
  }
  m_kind = kind;
  m_is_held = is_in;
  return is_in ? DONE : WAIT;
}

// A link in the place of the file would lead somewhere else. Creating is asked for only where there
// is nothing: in a folder that all may write, the system refuses it for the files of others.
bool Sys_FileLock::open(Kind kind) {
  constexpr int flags = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  m_descriptor = ::open(m_name.data(), O_RDWR | flags);
  if (m_descriptor < 0 && errno == ENOENT) {
    m_descriptor = ::open(m_name.data(), O_RDWR | O_CREAT | flags, 0666);
  } else if (m_descriptor < 0 && kind == SHARED && (errno == EACCES || errno == EROFS)) {
    m_descriptor = ::open(m_name.data(), O_RDONLY | flags);
  }
  m_descriptor = Sys_BesideStreams(m_descriptor);
  return m_descriptor >= 0;
}

bool Sys_FileLock::is_ordinary() const {
  struct stat status;
  return fstat(m_descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

bool Sys_FileLock::lock(int type, int first, int count) {
  struct flock range {};
  range.l_type = static_cast<short>(type);
  range.l_whence = SEEK_SET;
  range.l_start = first;
  range.l_len = count;
  int result;
  do {
    result = fcntl(m_descriptor, F_OFD_SETLK, &range);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

// Whoever deletes the file leaves those behind who have it open: what they lock is nothing to
// who opens the new one.
bool Sys_FileLock::is_of_the_name() const {
  struct stat opened, named;
  return fstat(m_descriptor, &opened) == 0 && lstat(m_name.data(), &named) == 0 &&
         opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

void Sys_FileLock::release() { Sys_OpenLocks::instance().release(*this); }

int Sys_FileLock::release_and_delete() {
  if (!m_is_held || m_kind != ALONE) return EPERM;
  int reason = ENOENT;  // somebody else deleted it, and what is there now is another's
  if (is_of_the_name()) reason = unlink(m_name.data()) == 0 ? 0 : errno;
  release();
  return reason;
}

void Sys_FileLock::forget() {
  if (m_descriptor >= 0) ::close(m_descriptor);
  m_descriptor = -1;
  m_is_held = false;
}

Sys_FileLock::Attempt Sys_FileLock::fail(const char* what, int reason) {
  forget();
  m_error = RWCString(what) + " <" + m_name + ">: " + std::generic_category().message(reason);
  return NO;
}
