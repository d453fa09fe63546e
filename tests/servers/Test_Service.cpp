#include "Test_Service.h"

#include <signal.h>

#include <CFG/CFG_SubTree.h>

Test_Service::Test_Service(std::string store, std::string log_file, std::vector<std::string> flags)
    : m_store(std::move(store)), m_log_file(std::move(log_file)), m_flags(std::move(flags)) {}

bool Test_Service::start() {
  std::vector<std::string> command = {
      HALVORIA_BINARY_DIR "/bin/svcfg", "--config",    "/dev/null", "--store", m_store, "--port",
      std::to_string(m_port),           "--print-port"};
  command.insert(command.end(), m_flags.begin(), m_flags.end());
  if (!m_process.start(command, m_log_file)) return false;
  const std::string port = m_process.read_line();
  if (port.empty()) {
    m_process.wait();
    return false;
  }
  m_port = std::stoi(port);
  return true;
}

int Test_Service::stop() {
  m_process.signal(SIGTERM);
  return m_process.wait();
}

void Test_Service::kill() {
  m_process.signal(SIGKILL);
  m_process.wait();
}

void Test_Service::use() const {
  CFG_SubTree properties{RWCString("properties")};
  properties.SetProperty("HALVORIA_REMOTE_SERVER_NAME", "127.0.0.1");
  properties.SetProperty("HALVORIA_REMOTE_SERVER_PORT", RWCString(std::to_string(m_port)));
}
