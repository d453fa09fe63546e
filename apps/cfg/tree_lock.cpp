// A writer puts a new file in the place of the old one. Whoever waited for the lock on the
// old file gets it when it is nobody's file any more: so after each wait the file is looked
// up again, and when it is another one the wait is for that.
#include "tree_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include <strings/RWWString.h>
#include <system/Sys_FileName.h>

#include "failure.h"
#include "output.h"

namespace cli {

TreeLock::TreeLock(const std::string& file, double seconds)
    : m_file(Sys_NativeFileName(RWWString::fromUTF8(file)).str()) {
  while (open()) {
    wait(seconds);
    if (is_on_current_file()) return;
    close();
  }
}

TreeLock::~TreeLock() { close(); }

// False when there is nothing to lock: no such folder, or no right to open it. Saving will
// say why it fails.
bool TreeLock::open() {
  const std::string folder = Sys_FolderOf(RWCString(m_file)).str();
  m_descriptor = ::open(m_file.c_str(), O_RDWR | O_CLOEXEC | O_NOCTTY);
  if (m_descriptor < 0 && errno == ENOENT) {
    m_descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  } else if (m_descriptor < 0) {
    m_descriptor = ::open(m_file.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
  }
  return m_descriptor >= 0;
}

void TreeLock::wait(double seconds) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point begin = Clock::now();
  bool has_said = false;
  while (flock(m_descriptor, LOCK_EX | LOCK_NB) != 0) {
    // A file system without locks: as good as it gets.
    if (errno != EWOULDBLOCK && errno != EINTR) return;
    const std::chrono::duration<double> waited = Clock::now() - begin;
    if (waited.count() >= seconds) {
      throw Failure(UNREACHABLE, "another writer keeps " + m_file + " locked; waited " +
                                     std::to_string(static_cast<int>(seconds)) + " s");
    }
    if (!has_said && waited.count() > 0.5) {
      say("waiting for another writer of " + m_file);
      has_said = true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

bool TreeLock::is_on_current_file() const {
  struct stat locked, current;
  if (fstat(m_descriptor, &locked) != 0) return true;
  if (stat(m_file.c_str(), &current) != 0) return S_ISDIR(locked.st_mode);
  return locked.st_dev == current.st_dev && locked.st_ino == current.st_ino;
}

void TreeLock::close() {
  if (m_descriptor >= 0) ::close(m_descriptor);
  m_descriptor = -1;
}

}  // namespace cli
