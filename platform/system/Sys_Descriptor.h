// Numbers of open files, for the sources of this library.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

// The descriptor under a number that is no standard stream's: in a process without those, what it
// writes to one would get into the file. -1 with the reason in errno when there is no other.
inline int Sys_BesideStreams(int descriptor) {
  if (descriptor < 0 || descriptor > STDERR_FILENO) return descriptor;
  const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int reason = errno;
  ::close(descriptor);
  errno = reason;
  return moved;
}
