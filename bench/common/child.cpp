#include <common/child.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace bench {
namespace {

[[noreturn]] void run_child(const std::function<std::string()>& work, int out) {
  int status = 1;
  try {
    const std::string answer = work();
    size_t done = 0;
    while (done < answer.size()) {
      const ssize_t n = ::write(out, answer.data() + done, answer.size() - done);
      if (n < 0) break;
      done += static_cast<size_t>(n);
    }
    if (done == answer.size()) status = 0;
  } catch (const std::exception& fault) {
    std::fprintf(stderr, "%s\n", fault.what());
  }
  ::_exit(status);
}

}  // namespace

std::string in_child(const std::function<std::string()>& work) {
  int ends[2];
  std::fflush(nullptr);
  if (::pipe(ends) != 0) throw std::runtime_error("no pipe");
  const pid_t child = ::fork();
  if (child < 0) throw std::runtime_error("no process");
  if (child == 0) run_child(work, ends[1]);
  ::close(ends[1]);
  std::string answer;
  char piece[4096];
  for (ssize_t n; (n = ::read(ends[0], piece, sizeof piece)) > 0;) {
    answer.append(piece, static_cast<size_t>(n));
  }
  ::close(ends[0]);
  int status = 0;
  if (::waitpid(child, &status, 0) != child || status != 0) {
    throw std::runtime_error("a measuring process failed");
  }
  return answer;
}

std::vector<double> figures_in_child(const std::function<std::vector<double>()>& work) {
  const std::string bytes = in_child([&] {
    const std::vector<double> figures = work();
    return std::string(reinterpret_cast<const char*>(figures.data()),
                       figures.size() * sizeof(double));
  });
  std::vector<double> figures(bytes.size() / sizeof(double));
  std::memcpy(figures.data(), bytes.data(), figures.size() * sizeof(double));
  return figures;
}

}  // namespace bench
