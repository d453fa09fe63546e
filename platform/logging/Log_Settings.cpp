#include <logging/Log_Settings.h>

#include <ini.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>

#include <logging/Tmr_GLog.h>

namespace {

constexpr std::string_view kLevelNames[] = {"off",         "",       "severe", "error", "warning",
                                            "information", "detail", "trace"};

// The whole text as a number within the bounds; false leaves `out` alone.
template <class N>
bool read_number(std::string_view text, N lowest, N highest, N& out) {
  N value{};
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (failure != std::errc() || end != text.data() + text.size()) return false;
  if (value < lowest || value > highest) return false;
  out = value;
  return true;
}

bool read_level(std::string_view text, int& out) {
  if (read_number(text, 0, int{LOG_LEVEL_TRACE}, out)) return true;
  for (int level = 0; level <= LOG_LEVEL_TRACE && !text.empty(); ++level) {
    if (text == kLevelNames[level]) {
      out = level;
      return true;
    }
  }
  return false;
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

// A line of the settings file; false when it is wrong, and the reason in `why`.
bool take_setting(Log_Settings& settings, std::string_view name, std::string_view value,
                  std::string& why) {
  constexpr std::string_view module_prefix = "module.";
  const auto check = [&why](bool is_right, const char* wanted) {
    if (!is_right) why = wanted;
    return is_right;
  };
  if (name == "level") return check(read_level(value, settings.level), "a level 0..7 is wanted");
  if (name.substr(0, module_prefix.size()) == module_prefix) {
    int module = 0, level = 0;
    if (!check(read_number(name.substr(module_prefix.size()), 0, Tmr_GLog::kModules - 1, module),
               "a module is 0..1023") ||
        !check(read_level(value, level), "a level 0..7 is wanted")) {
      return false;
    }
    settings.module_levels[module] = level;
    return true;
  }
  if (name == "output") {
    const bool file = value == "file", json = value == "json";
    if (!check(file || json || value == "stderr", "stderr, file or json is wanted")) return false;
    settings.output = file   ? Log_Settings::TO_FILE
                      : json ? Log_Settings::TO_JSON
                             : Log_Settings::TO_STDERR;
    return true;
  }
  if (name == "file") {
    if (!check(!value.empty(), "a path is wanted")) return false;
    settings.file = value;
    return true;
  }
  if (name == "max_bytes") {
    return check(read_number<size_t>(value, 1024, size_t{1} << 40, settings.max_bytes),
                 "1024 bytes or more are wanted");
  }
  if (name == "max_repeats") {
    return check(read_number<size_t>(value, 0, 1000000, settings.max_repeats),
                 "0..1000000 is wanted");
  }
  if (name == "max_files") {
    return check(read_number<size_t>(value, 0, 10000, settings.max_files), "0..10000 is wanted");
  }
  return check(false, "no setting has that name");
}

std::string complaint(const std::string& where, std::string_view what, const std::string& why) {
  return where + ": \"" + std::string(what) + "\" is ignored, " + why;
}

}  // namespace

void Log_Settings::ReadLevels(std::string_view text, const std::string& where,
                              std::vector<std::string>& complaints) {
  while (!text.empty()) {
    const size_t comma = std::min(text.find(','), text.size());
    const std::string_view item = trimmed(text.substr(0, comma));
    text.remove_prefix(std::min(comma + 1, text.size()));
    const size_t equals = item.find('=');
    const bool is_module = equals != item.npos;
    const std::string name =
        is_module ? "module." + std::string(trimmed(item.substr(0, equals))) : "level";
    const std::string_view value = is_module ? trimmed(item.substr(equals + 1)) : item;
    std::string why;
    if (!take_setting(*this, name, value, why)) complaints.push_back(complaint(where, item, why));
  }
}

void Log_Settings::ReadOutput(std::string_view text, const std::string& where,
                              std::vector<std::string>& complaints) {
  const std::string_view kind = text.substr(0, text.find(':'));
  const std::string_view path = text.substr(std::min(kind.size() + 1, text.size()));
  std::string why;
  if ((kind == "stderr") == path.empty() && take_setting(*this, "output", kind, why)) {
    file = path;
    return;
  }
  complaints.push_back(complaint(where, text, "stderr, file:PATH or json:PATH is wanted"));
}

void Log_Settings::ReadFile(const std::string& path, std::vector<std::string>& complaints) {
  struct Reading {
    Log_Settings& settings;
    const std::string& path;
    std::vector<std::string>& complaints;
  } reading{*this, path, complaints};
  const ini_handler take = [](void* user, const char* section, const char* name,
                              const char* value) {
    auto& to = *static_cast<Reading*>(user);
    const std::string full_name = *section ? std::string(section) + "." + name : name;
    std::string why;
    if (!take_setting(to.settings, full_name, value, why)) {
      to.complaints.push_back(complaint(to.path, full_name + " = " + value, why));
    }
    return 1;
  };
  const int failed_at = ini_parse(path.c_str(), take, &reading);
  if (failed_at < 0) complaints.push_back("log settings file " + path + " can't be read");
  if (failed_at > 0) {
    complaints.push_back(path + ", line " + std::to_string(failed_at) +
                         ": is ignored, name = value is wanted");
  }
}

Log_Settings Log_Settings::FromEnvironment(std::vector<std::string>& complaints) {
  Log_Settings settings;
  if (const char* path = std::getenv("HALVORIA_LOG_FILE"); path && *path) {
    settings.ReadFile(path, complaints);
  }
  if (const char* levels = std::getenv("HALVORIA_LOG")) {
    settings.ReadLevels(levels, "HALVORIA_LOG", complaints);
  }
  if (const char* output = std::getenv("HALVORIA_LOG_OUTPUT"); output && *output) {
    settings.ReadOutput(output, "HALVORIA_LOG_OUTPUT", complaints);
  }
  return settings;
}
