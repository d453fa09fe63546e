#include <CFG/remote/connection_properties.h>

#include <charconv>
#include <utility>

#include <logging/Logger.h>

namespace cfg {

namespace {

constexpr Log_Logger logger("src/CFG/CFG_Repository", 502);

using std::chrono::milliseconds;
constexpr double most_seconds = 1e6;

// False when the text is no time.
bool read_seconds(std::string_view text, milliseconds& time) {
  double seconds = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  if (failure != std::errc() || end != text.data() + text.size()) return false;
  if (!(seconds >= 0.001 && seconds <= most_seconds)) return false;
  time = milliseconds(static_cast<milliseconds::rep>(seconds * 1000));
  return true;
}

}  // namespace

connection_properties::connection_properties(std::string_view text)
    : token_property(text.find("connssl") == text.npos ? Conn_SyncConnector::TOKEN_PLAIN
                                                       : Conn_SyncConnector::TOKEN_TLS) {
  constexpr std::string_view between = " \t,;";
  const std::pair<std::string_view, milliseconds&> times[] = {
      {"connect_timeout=", time_outs.connect}, {"answer_timeout=", time_outs.answer}};
  for (size_t at = 0; (at = text.find_first_not_of(between, at)) != text.npos;) {
    const std::string_view word = text.substr(at, text.find_first_of(between, at) - at);
    at += word.size();
    for (const auto& [name, time] : times) {
      if (word.substr(0, name.size()) != name || read_seconds(word.substr(name.size()), time)) {
        continue;
      }
      logger.error("connection_properties: <%s> is no time in seconds\n", word);
    }
  }
}

}  // namespace cfg
