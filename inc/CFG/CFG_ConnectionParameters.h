// What a parameters file and the environment say about the store of a process.
#pragma once

#include <strings/Export.h>
#include <strings/RWCString.h>

class Tmr_INI;

// The parameters, named as in the file; empty where it says nothing. docs/guide.md tells what
// they mean.
struct HALVORIA_API CFG_ConnectionParameters {
  RWCString cfg_type, mapping, client_or_server;
  RWCString remote_server_name, remote_server_port, connection_type, connection_properties;
  RWCString user, conn_string, sql_trace, set_nls_lang;
  RWCString xml_file, offline_start;
  RWCString local_host_name, local_host_ip, local_host_af;
  RWCString compress_data_transfer, use_datagrid_cache, use_in_process_cache;
  RWCString notify_conn_activity, notify_conn_activity_status;

  // Those of `ini`, into which the variables of the environment that override a parameter are
  // put first. Texts that are compared regardless of case come back in small letters.
  static CFG_ConnectionParameters From(Tmr_INI& ini);
};
