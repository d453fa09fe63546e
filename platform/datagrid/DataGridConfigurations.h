// Where the datagrid is.
#pragma once

#include <string>

#include <strings/Export.h>

// From the environment (HALVORIA_DATAGRID_IP, HALVORIA_DATAGRID_PORT), else from the process's
// parameters file (`datagrid_ip`, `datagrid_port`), else 127.0.0.1 and 6379. Any thread.
class HALVORIA_API DataGridConfigurations {
 public:
  DataGridConfigurations() = delete;
  static std::string GetIgniteIp();
  static std::string GetIgnitePort();
};
