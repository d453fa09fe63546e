#include <CFG/CFG_ConnectionParameters.h>

#include <CFG/CFG_ServicesImp.h>
#include <system/Sys_Environment.h>
#include <utility/Tmr_INI.h>

namespace {

using Parameters = CFG_ConnectionParameters;

constexpr struct {
  const char* name;
  RWCString Parameters::*value;
  bool is_lower_cased;
} keys[] = {
    {"cfg_type", &Parameters::cfg_type, true},
    {"mapping", &Parameters::mapping, false},
    {"client_or_server", &Parameters::client_or_server, false},
    {"remote_server_name", &Parameters::remote_server_name, true},
    {"remote_server_port", &Parameters::remote_server_port, true},
    {"connection_type", &Parameters::connection_type, true},
    {"connection_properties", &Parameters::connection_properties, true},
    {"user", &Parameters::user, false},
    {"conn_string", &Parameters::conn_string, false},
    {"sql_trace", &Parameters::sql_trace, true},
    {"set_nls_lang", &Parameters::set_nls_lang, true},
    {"xml_file", &Parameters::xml_file, false},
    {"offline_start", &Parameters::offline_start, true},
    {"local_host_name", &Parameters::local_host_name, false},
    {"local_host_ip", &Parameters::local_host_ip, false},
    {"local_host_af", &Parameters::local_host_af, true},
    {"compress_data_transfer", &Parameters::compress_data_transfer, true},
    {"notify_conn_activity", &Parameters::notify_conn_activity, false},
    {"notify_conn_activity_status", &Parameters::notify_conn_activity_status, false},
    {"use_datagrid_cache", &Parameters::use_datagrid_cache, false},
    {"use_in_process_cache", &Parameters::use_in_process_cache, false},
};

constexpr struct {
  const char* variable;
  const char* key;
} environment_overrides[] = {
    {"KESTRAL_G_Server_Port", "remote_server_port"},
    {"KESTRAL_G_Server_Name", "remote_server_name"},
    {"KESTRAL_G_Connection_Type", "cfg_type"},
};

}  // namespace

CFG_ConnectionParameters CFG_ConnectionParameters::From(Tmr_INI& ini) {
  for (const auto& [variable, key] : environment_overrides) {
    RWCString text;
    if (Sys_Environment::Get(variable, text)) ini.SetValue(key, text, true);
  }
  CFG_ConnectionParameters given;
  for (const auto& [name, value, is_lower_cased] : keys) {
    ini.GetValue(name, given.*value);
    if (is_lower_cased) CFG_ServicesImp::tolower(given.*value);
  }
  return given;
}
