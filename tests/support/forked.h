// Children of the test's process.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <functional>

// What a child answers, which ends by itself should it wait for ever; -1 when it comes to another
// end.
inline int status_of_child(const std::function<int()>& answer) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(20);
    _exit(answer());
  }
  int status = 1;
  const bool has_answered = waitpid(child, &status, 0) == child && WIFEXITED(status);
  return has_answered ? WEXITSTATUS(status) : -1;
}

// Whether it holds in a child.
inline bool holds_in_child(const std::function<bool()>& holds) {
  return status_of_child([&] { return holds() ? 0 : 1; }) == 0;
}
