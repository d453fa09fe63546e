#include <CFG/detail/actual_path.h>

#include <CFG/detail/properties.h>
#include <i18n/I18n_LowerCase.h>
#include <logging/Logger.h>

namespace {
constexpr Log_Logger logger("src/CFG/CFG_ServicesImp", 502);
}

namespace cfg {

void actual_path::change(unsigned kinds) {
  if (kinds == CAPITAL && m_view.size() <= sizeof m_short) {
    copy_lower(m_view, m_short);
    m_view = {m_short, m_view.size()};
    return;
  }
  m_long = kinds & PLACEHOLDER ? replace_placeholders(m_view) : std::string(m_view);
  to_lower(m_long);
  m_view = m_long;
}

std::string replace_placeholders(std::string_view text) {
  std::string result;
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

void to_lower(std::string& text) {
  if (scan_for_change(text) & HIGH_BYTE) {
    text = I18n_LowerCase(text).str();
    return;
  }
  copy_lower(text, text.data());
}

}  // namespace cfg
