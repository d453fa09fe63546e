#include "command_line.h"

#include <CLI/CLI.hpp>

#include <datagrid/Grid_Open.h>
#include <strings/RWWString.h>
#include <system/Sys_Environment.h>
#include <system/Sys_File.h>

namespace svcfg {

namespace {

constexpr char DEFAULT_FILE[] = "/etc/halvoria/svcfg.conf";

constexpr char FOOTER[] =
    "Each setting is a flag, a variable SVCFG_NAME, or a line 'name = value' of the settings\n"
    "file (with '_' for '-'); flags win over variables, variables over the file. Numbers may\n"
    "end with k, M or G. SIGTERM ends the service: running requests finish, open transactions\n"
    "are undone.\n"
    "Exit codes: 0 ended as asked, 1 it cannot serve or the store is damaged, 2 usage.\n";

std::string help_of(const service::SettingRow& row) {
  return std::string(row.help) + (*row.fallback ? " [" + std::string(row.fallback) + "]" : "");
}

// Every setting with its origin, as a settings file has it.
std::string print(const std::vector<service::SettingOrigin>& origins) {
  std::string text;
  size_t i = 0;
  for (const service::SettingRow& row : service::setting_rows()) {
    const service::SettingOrigin& found = origins[i++];
    std::string line = service::line_of(row) + " = " + service::without_password(found.value);
    if (line.size() < 48) line.resize(48, ' ');
    text += line + " # " + found.origin + "\n";
  }
  return text;
}

// The settings file asked for, or the default one where it exists.
std::string settings_file(const std::string& flag) {
  if (!flag.empty()) return flag;
  RWCString variable;
  if (Sys_Environment::Get("SVCFG_CONFIG", variable)) return variable.str();
  return Sys_File::Exists(RWWString::fromUTF8(DEFAULT_FILE)) ? DEFAULT_FILE : "";
}

}  // namespace

CommandLine::Result CommandLine::read(int argc, char** argv, std::string& text) {
  CLI::App app{"Serves one configuration tree to every process of an installation.", "svcfg"};
  app.set_version_flag("--version", "svcfg " HALVORIA_VERSION "\n");
  app.footer(FOOTER);
  app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  app.get_formatter()->column_width(36);
  std::string file;
  bool is_printing = false;
  app.add_option("--config", file, std::string("settings file [") + DEFAULT_FILE + "]")
      ->type_name("FILE");
  app.add_flag("--print-config", is_printing, "print every setting with its origin, and end");
  CLI::Option* check = app.add_option(
      "--check", m_checked, "look at everything in the store, say what is wrong, and end");
  check->type_name("STORE");
  app.add_option("--salvage", m_salvage,
                 "write what is sound to the XML file, and the rest's places to FILE.damage")
      ->type_name("FILE")
      ->needs(check);
  app.add_flag("--print-port", m_prints_port, "print the port once the service listens");
  std::map<std::string, std::string> given;
  std::vector<std::pair<const char*, CLI::Option*>> options;
  std::vector<std::string> values(service::setting_rows().size());
  size_t i = 0;
  for (const service::SettingRow& row : service::setting_rows()) {
    CLI::Option* option = app.add_option(std::string("--") + row.name, values[i++], help_of(row));
    option->type_name(row.text ? "TEXT" : "N");
    options.emplace_back(row.name, option);
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    text = app.help();
    return PRINT;
  } catch (const CLI::CallForVersion& version) {
    text = version.what();
    return PRINT;
  } catch (const CLI::ParseError& error) {
    text = std::string(error.what()) + "; see 'svcfg --help'";
    return WRONG;
  }
  for (size_t k = 0; k < options.size(); ++k) {
    if (options[k].second->count() > 0) given[options[k].first] = values[k];
  }
  service::SettingsReader reader;
  if (!reader.read(given, settings_file(file), m_settings, text)) return WRONG;
  if (!service::is_loopback(m_settings.listen)) {
    text = "listen: " + m_settings.listen +
           " is not an address of this computer's loopback (127.0.0.1, ::1): connections are "
           "neither encrypted nor checked yet, so the service is for this computer only";
    return WRONG;
  }
  Grid_Place place;
  std::string fault;
  const std::string& datagrid = m_settings.datagrid;
  if (!datagrid.empty() && !place.read(Sys_Environment::Expand(datagrid), fault)) {
    text = "datagrid: " + fault;
    return WRONG;
  }
  if (!m_checked.empty()) return CHECK;
  if (!is_printing) return SERVE;
  text = print(reader.origins());
  return PRINT;
}

}  // namespace svcfg
