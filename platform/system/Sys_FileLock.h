// Locks that processes and threads hold against each other.
#pragma once

#include <chrono>

#include <strings/Export.h>
#include <strings/RWCString.h>
#include <strings/RWWString.h>

// A lock in the name of a file that exists for nothing else: held by one alone or shared by many,
// each of them an object of this class, whether in one process or in several. It goes with
// `release`, with this object and with the process, however that ends.
//
// A child of fork holds nothing: what its parent held stays the parent's, whichever of the two ends
// first. Programs that are started inherit nothing. Who waits to hold it alone keeps out those who
// come later and would share it, so that many readers do not keep a writer waiting for ever.
//
// The file is made when it is missing and stays. Only who holds it alone may delete it, by
// `release_and_delete`: those who wait then find each other at the new file. A lock file that
// anybody else deletes while it is held locks nothing any more. On a network file system the lock
// holds between computers as far as that system's locks do.
// One thread at a time; another object for another thread.
class HALVORIA_API Sys_FileLock {
 public:
  enum Kind { ALONE, SHARED };
  enum Outcome { TAKEN, HELD_BY_OTHERS, FAILED };

  Sys_FileLock() = default;
  ~Sys_FileLock() { release(); }
  Sys_FileLock(const Sys_FileLock&) = delete;
  Sys_FileLock& operator=(const Sys_FileLock&) = delete;

  // Waits at most that long while others hold the lock; releases first what this object holds.
  // FAILED, at once, when the file cannot be opened or locked, with the reason in `error`: what
  // was tried, the file's name and the system's reason. To share a lock it is enough that the file
  // is there and may be read.
  Outcome take(const RWWString& file, Kind kind, std::chrono::milliseconds limit);
  void release();

  // For who holds it alone: 0, or the system's error when the file cannot be deleted. Released
  // either way; without the lock nothing is deleted.
  int release_and_delete();

  bool is_held() const { return m_is_held; }
  const RWCString& error() const { return m_error; }

 private:
  friend class Sys_OpenLocks;
  enum Attempt { DONE, WAIT, AGAIN, NO };
  Attempt attempt(Kind kind);
  bool open(Kind kind);
  bool lock(int type, int first, int count);
  bool is_of_the_name() const;
  bool is_ordinary() const;
  void forget();
  Attempt fail(const char* what, int reason);

  int m_descriptor = -1;
  bool m_is_held = false;
  Kind m_kind = ALONE;
  RWCString m_name;  // as the system knows it
  RWCString m_error;
};
