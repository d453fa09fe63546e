#include <datagrid/DataGridConfigurations.h>

#include <system/Sys_Environment.h>
#include <utility/Tmr_CfgINI.h>

namespace {

std::string setting(const char* variable, const char* key, const char* otherwise) {
  RWCString text;
  if (Sys_Environment::Get(variable, text) && !text.isNull()) return text.str();
  if (Tmr_CfgINI::Instance().GetValue(key, text) && !text.isNull()) return text.str();
  return otherwise;
}

}  // namespace

std::string DataGridConfigurations::GetIgniteIp() {
  return setting("HALVORIA_DATAGRID_IP", "datagrid_ip", "127.0.0.1");
}

std::string DataGridConfigurations::GetIgnitePort() {
  return setting("HALVORIA_DATAGRID_PORT", "datagrid_port", "6379");
}
