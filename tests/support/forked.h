// Children of the test's process.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <functional>

// Whether it holds in a child, which ends by itself should it wait for ever.
inline bool holds_in_child(const std::function<bool()>& holds) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(20);
    _exit(holds() ? 0 : 1);
  }
  int status = 1;
  return waitpid(child, &status, 0) == child && status == 0;
}
