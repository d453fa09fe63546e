// Children of the test's process.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>

#ifdef __SANITIZE_ADDRESS__
// A fork beside a thread that allocates may leave the child the sanitizer's allocator locked: a
// child that waits for ever is asked again. Elsewhere it is a fault at once.
constexpr int FORK_ATTEMPTS = 4;
#else
constexpr int FORK_ATTEMPTS = 1;
#endif

// What a child answers, which ends by itself should it wait for ever; -1 when it comes to another
// end.
inline int status_of_child(const std::function<int()>& answer) {
  for (int attempt = 1;; ++attempt) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(20);
      _exit(answer());
    }
    int status = 1;
    if (waitpid(child, &status, 0) != child) return -1;
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (attempt == FORK_ATTEMPTS || WTERMSIG(status) != SIGALRM) return -1;
  }
}

// Whether it holds in a child.
inline bool holds_in_child(const std::function<bool()>& holds) {
  return status_of_child([&] { return holds() ? 0 : 1; }) == 0;
}
