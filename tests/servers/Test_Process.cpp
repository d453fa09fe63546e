#include "Test_Process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

Test_Process::~Test_Process() {
  if (is_running()) {
    signal(SIGKILL);
    wait();
  }
  if (m_output >= 0) close(m_output);
}

bool Test_Process::start(const std::vector<std::string>& command, const std::string& error_file) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  const pid_t parent = getpid();
  m_pid = fork();
  if (m_pid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(127);
    dup2(ends[1], STDOUT_FILENO);
    if (!error_file.empty()) {
      const int file = open(error_file.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
      if (file >= 0) dup2(file, STDERR_FILENO);
    }
    std::vector<char*> texts;
    for (const std::string& text : command) texts.push_back(const_cast<char*>(text.c_str()));
    texts.push_back(nullptr);
    execv(texts[0], texts.data());
    _exit(127);
  }
  close(ends[1]);
  if (m_output >= 0) close(m_output);
  m_output = ends[0];
  return m_pid > 0;
}

std::string Test_Process::read_line() {
  std::string line;
  for (char c; read(m_output, &c, 1) == 1 && c != '\n';) line += c;
  return line;
}

void Test_Process::signal(int number) {
  if (is_running()) kill(m_pid, number);
}

int Test_Process::wait() {
  int status = 0;
  if (!is_running() || waitpid(m_pid, &status, 0) != m_pid) return -1;
  m_pid = 0;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

long Test_Process::memory(const char* name) const {
  std::ifstream status("/proc/" + std::to_string(m_pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind(name, 0) == 0) return std::stol(line.substr(line.find(':') + 1));
  }
  return 0;
}
