#include <datagrid/Grid_Open.h>

#include <algorithm>
#include <charconv>

#include <datagrid/DataGridConfigurations.h>
#include <system/Sys_ModuleFinder.h>

namespace {

constexpr std::string_view BLANKS = " \t\r\n";

bool read_number(std::string_view text, int lowest, int highest, int& number) {
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && rest == end && number >= lowest && number <= highest;
}

bool is_grid_name(std::string_view text) {
  const auto is_allowed = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '-' || c == '.';
  };
  return !text.empty() && std::all_of(text.begin(), text.end(), is_allowed);
}

// Takes a value off the front of the text. False when its quote does not end.
bool take_value(std::string_view& text, std::string& value) {
  if (text.empty() || text.front() != '\'') {
    const size_t end = std::min(text.find_first_of(BLANKS), text.size());
    value = text.substr(0, end);
    text.remove_prefix(end);
    return true;
  }
  for (size_t i = 1; i < text.size(); ++i) {
    if (text[i] == '\'') {
      text.remove_prefix(i + 1);
      return text.empty() || BLANKS.find(text.front()) != BLANKS.npos;
    }
    if (text[i] == '\\' && i + 1 < text.size()) ++i;
    value += text[i];
  }
  return false;
}

bool put(std::string_view name, const std::string& value, Grid_Place& place, std::string& fault) {
  Grid_Address& address = place.address;
  if (name == "host") return address.host = value, true;
  if (name == "user") return address.user = value, true;
  if (name == "password") return address.password = value, true;
  fault = std::string(name) + "=" + value;
  if (name == "port") {
    fault += " is no port, 1 to 65535";
    return read_number(value, 1, 65535, address.port);
  }
  if (name == "timeout") {
    fault += " is no time, 10 to 60000 milliseconds";
    return read_number(value, 10, 60000, address.wait);
  }
  if (name == "grid") {
    fault += " is no name of a grid";
    return is_grid_name(value) && (place.grid = value, true);
  }
  fault = "there is no setting '" + std::string(name) + "'";
  return false;
}

}  // namespace

bool Grid_Place::read(std::string_view connection, std::string& fault) {
  *this = Grid_Place();
  grid = "cfg";
  for (int word = 1;; ++word) {
    const size_t begin = connection.find_first_not_of(BLANKS);
    if (begin == connection.npos) break;
    connection.remove_prefix(begin);
    const size_t sign = connection.find_first_of(std::string(BLANKS) + "=");
    std::string value;
    const std::string_view name = connection.substr(0, sign);
    const bool is_pair = sign != connection.npos && connection[sign] == '=';
    if (is_pair) connection.remove_prefix(sign + 1);
    if (!is_pair || !take_value(connection, value)) {
      fault = "word " + std::to_string(word) + " is not NAME=VALUE";
      return false;
    }
    if (!put(name, value, *this, fault)) return false;
  }
  if (address.host.empty()) address.host = DataGridConfigurations::GetIgniteIp();
  const std::string port = DataGridConfigurations::GetIgnitePort();
  if (address.port == 0 && !put("port", port, *this, fault)) return false;
  fault.clear();
  return true;
}

std::unique_ptr<Grid_Store> Grid_Open(const Grid_Address& address, std::string& reason) {
  RWCString missing;
  void* const function = Sys_ModuleFunction("libhalvoria_redis.so", GRID_OPEN_STORE, missing);
  if (!function) {
    reason = missing.str();
    return nullptr;
  }
  reason = "no connection";
  return std::unique_ptr<Grid_Store>(reinterpret_cast<Grid_OpenStore>(function)(address, reason));
}
