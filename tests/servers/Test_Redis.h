// A Redis server for tests.
#pragma once

#include <string>
#include <vector>

// A server of its own on this machine, listening on a port of 127.0.0.1 and keeping nothing. It
// runs as long as this object, and no longer than the process, however that ends.
class Test_Redis {
 public:
  // Further words for the server's command line; on a free port unless one is given.
  explicit Test_Redis(const std::vector<std::string>& settings = {}, int port = 0);
  Test_Redis(const Test_Redis&) = delete;
  Test_Redis& operator=(const Test_Redis&) = delete;
  ~Test_Redis();

  bool is_running() const { return m_watcher > 0; }
  int port() const { return m_port; }
  // What the server answers to a command, as text; empty for nothing.
  std::string ask(const std::vector<std::string>& words) const;

 private:
  bool start(const std::vector<std::string>& settings);
  void stop();

  int m_port = 0;
  int m_pipe = -1;     // the server ends when this is closed
  int m_watcher = -1;  // process id
};
