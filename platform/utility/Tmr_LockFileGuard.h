// Lock files.
#pragma once

#include <chrono>
#include <memory>

#include <strings/Export.h>
#include <strings/RWWString.h>

class Sys_FileLock;

// Holds the lock of a lock file, between processes and between the threads of one, from Lock to
// Release or to its own end. A process that crashes leaves no lock behind, and a child of fork
// holds nothing of its parent's. Sys_FileLock.h says more.
// A guard is one thread's; threads that want the same lock have a guard each.
class HALVORIA_API Tmr_LockFileGuard {
 public:
  enum Type { EXCLUSIVE = 0, SHARED = 1 };
  static constexpr std::chrono::milliseconds DEFAULT_LIMIT{10'000};

  // Takes nothing yet. A type that is neither 0 nor 1 counts as 0.
  Tmr_LockFileGuard(const RWWString& lock_file, int type);
  ~Tmr_LockFileGuard();
  Tmr_LockFileGuard(const Tmr_LockFileGuard&) = delete;
  Tmr_LockFileGuard& operator=(const Tmr_LockFileGuard&) = delete;

  // True once the lock is held. False, with one line in the log (3) that names the file, when
  // others still hold it after that time or, at once, when it cannot be had at all: a folder that
  // is not there or is read-only, no descriptor left.
  bool Lock(std::chrono::milliseconds limit = DEFAULT_LIMIT);
  void Release();
  bool IsLocked() const;

  // For the next Lock. Releases what is held: others may come in between.
  void SetType(int type);

  // Deletes the lock file and releases it: 0, or the system's error. Needs the lock as type 0;
  // the only way to delete a lock file that others may be waiting for.
  int ReleaseAndDelete();

 private:
  const RWWString m_file;
  int m_type;
  const std::unique_ptr<Sys_FileLock> m_lock;
};
