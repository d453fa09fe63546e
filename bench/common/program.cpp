#include <common/program.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <common/clock.h>
#include <common/need.h>

namespace bench {

pid_t start_program(const words& command, const std::string& out) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  words copy = command;
  std::vector<char*> arguments;
  for (std::string& word : copy) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  pid_t child = 0;
  const int fault =
      ::posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  need(fault == 0, "start of " + command[0]);
  return child;
}

pid_t start_copy(const std::function<void()>& work) {
  const pid_t child = ::fork();
  need(child >= 0, "fork");
  if (child == 0) {
    work();
    ::_exit(0);
  }
  return child;
}

double processor_time_of(pid_t child) {
  rusage used{};
  int status = 0;
  need(::wait4(child, &status, 0, &used) == child && status == 0, "a process");
  const auto ms = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_usec) / 1e3;
  };
  return ms(used.ru_utime) + ms(used.ru_stime);
}

double time_of_program(const words& command, const std::string& out) {
  return time_ns(WALL, [&] { processor_time_of(start_program(command, out)); }) / 1e6;
}

}  // namespace bench
