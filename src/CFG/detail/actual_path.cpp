#include <CFG/detail/actual_path.h>

#include <algorithm>

#include <CFG/detail/properties.h>
#include <i18n/I18n_LowerCase.h>
#include <logging/Logger.h>

namespace {
constexpr Log_Logger logger("src/CFG/CFG_ServicesImp", 502);
}

namespace cfg {

static constinit thread_local bool has_stored_paths = false;

stored_paths::stored_paths() : m_before(has_stored_paths) { has_stored_paths = true; }
stored_paths::~stored_paths() { has_stored_paths = m_before; }

void actual_path::change(std::string_view path, unsigned kinds) {
  const bool is_replaced = (kinds & PLACEHOLDER) && !has_stored_paths;
  std::string text = is_replaced ? replace_placeholders(path) : std::string(path);
  to_lower(text);
  m_long = std::move(text);
  m_view = m_long;
}

std::string replace_placeholders(std::string_view text) {
  constexpr size_t room_for_values = 64;
  std::string result;
  result.reserve(text.size() + room_for_values);
  size_t done = 0;  // what stands before is in the result
  for (size_t open; (open = text.find('<', done)) != text.npos;) {
    const size_t close = text.find('>', open);
    if (close == text.npos) break;
    const std::string_view name = text.substr(open + 1, close - open - 1);
    if (name.empty()) {
      logger.error(
          "GetProperty(const RWCString property_name)\n : property_name is an empty string, return empty string\n");
      break;
    }
    const std::string_view value = PropertiesWrapper::of_process().find(name);
    if (value.empty()) break;
    result.append(text.substr(done, open - done)).append(value);
    done = close + 1;
  }
  return result.append(text.substr(done));
}

// ASCII first, then each component that holds more: ICU takes its time, and no letter is
// changed by what stands on the other side of a backslash.
void to_lower(std::string& text) {
  if (!(copy_lower(text, text.data()) & HIGH_BYTE)) return;
  for (size_t high = 0; (high = first_high_byte(text, high)) != text.npos;) {
    const size_t begin = text.rfind('\\', high) + 1;  // npos + 1 is the beginning
    const size_t end = std::min(text.find('\\', high), text.size());
    const RWCString lowered = I18n_LowerCase(std::string_view(text).substr(begin, end - begin));
    text.replace(begin, end - begin, lowered.view());
    high = begin + lowered.length();
  }
}

bool is_lowered(std::string_view name, std::string& lowered) {
  if (!(scan_for_change(name) & (CAPITAL | HIGH_BYTE))) return false;
  lowered = name;
  to_lower(lowered);
  return lowered != name;
}

}  // namespace cfg
