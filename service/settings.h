// What an operator can set.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace service {

// The values in force. Times are in seconds, sizes in bytes.
struct Settings {
  std::string listen;
  int64_t port = 0;
  std::string store;
  std::string store_user;
  std::string node;
  int64_t threads = 0;
  int64_t workers = 0;
  int64_t max_sessions = 0;
  int64_t max_request = 0;
  int64_t max_streams = 0;
  int64_t max_unsent = 0;
  int64_t idle_time = 0;
  int64_t progress_time = 0;
  int64_t write_wait = 0;
  int64_t transaction_time = 0;
  int64_t extended_transaction_time = 0;
  int64_t silent_lock_time = 0;
  int64_t read_time = 0;
  int64_t stream_time = 0;
  int64_t stop_time = 0;
  int64_t store_wait = 0;
  int64_t keep_deletions = 0;
  std::string datagrid;
  int64_t datagrid_keep = 0;
  std::string log_level;
  std::string log_output;
};

// One setting: a flag --NAME, a variable SVCFG_NAME, a line NAME = VALUE of the settings file.
struct SettingRow {
  const char* name;  // with '-' between words; the variable and the file have '_'
  std::string Settings::*text;
  int64_t Settings::*number;  // one of the two
  const char* fallback;
  int64_t lowest, highest;  // of a number
  const char* help;
};
const std::vector<SettingRow>& setting_rows();

// A setting with where its value comes from: "default", "flag", "SVCFG_PORT", "FILE".
struct SettingOrigin {
  std::string value;
  std::string origin;
};

// Collects the settings from flags, environment, file and defaults; the earlier win.
class SettingsReader {
 public:
  using Flags = std::map<std::string, std::string>;  // by name, those given

  // `file` is empty for none. False with what is wrong: where, which setting, why.
  bool read(const Flags& flags, const std::string& file, Settings& settings, std::string& fault);
  // Every setting in the order of the table, as read.
  const std::vector<SettingOrigin>& origins() const { return m_origins; }

 private:
  std::vector<SettingOrigin> m_origins;
};

// "SVCFG_MAX_SESSIONS" of "max-sessions", and "max_sessions".
std::string variable_of(const SettingRow& row);
std::string line_of(const SettingRow& row);

// "64M", "10k", "4096": a size, or a plain number. False when it is none.
bool parse_number(std::string_view text, int64_t& number);

// A connection string that can be shown to anyone.
std::string without_password(std::string connection);

// Whether an address, or "localhost", can be reached from this computer only.
bool is_loopback(const std::string& address);

}  // namespace service
