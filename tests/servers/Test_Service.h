// A service of its own for a test.
#pragma once

#include <string>
#include <vector>

#include "Test_Process.h"

// The svcfg of this build on a free port of the loopback. It keeps the port when it is started
// again.
class Test_Service {
 public:
  // `store`: a connection string; its log goes to `log_file`. `flags` come last.
  explicit Test_Service(std::string store, std::string log_file = "",
                        std::vector<std::string> flags = {});

  // False when it ends instead of listening.
  bool start();
  int stop();  // SIGTERM; its exit code
  void kill();
  int port() const { return m_port; }
  Test_Process& process() { return m_process; }
  // Sets the properties that remote repositories of this process connect by.
  void use() const;

 private:
  const std::string m_store;
  const std::string m_log_file;
  const std::vector<std::string> m_flags;
  Test_Process m_process;
  int m_port = 0;
};
