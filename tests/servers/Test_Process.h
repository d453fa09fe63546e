// A program that runs beside a test.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

// Ends with the test, however that ends. One thread.
class Test_Process {
 public:
  Test_Process() = default;
  Test_Process(const Test_Process&) = delete;
  Test_Process& operator=(const Test_Process&) = delete;
  ~Test_Process();  // kills it

  // Starts the program with the arguments; what it writes on standard output can be read, and what
  // it writes on standard error goes to the file, or stays the test's. False when it cannot run.
  bool start(const std::vector<std::string>& command, const std::string& error_file = "");
  // The next line of its standard output; empty at the end of it.
  std::string read_line();
  void signal(int number);
  // Waits for its end: its exit code, or -1 when a signal ended it.
  int wait();
  bool is_running() const { return m_pid > 0; }
  pid_t pid() const { return m_pid; }
  // A line of /proc/PID/status in kilobytes: "VmRSS", "VmHWM". 0 when there is none.
  long memory(const char* name) const;

 private:
  pid_t m_pid = 0;
  int m_output = -1;
};
