#include <logging/Log_Sink.h>

#include <spdlog/details/os.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_color_sinks.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>

namespace {

constexpr const char* kLevelNames[] = {"off",     "off",         "severe", "error",
                                       "warning", "information", "detail", "trace"};
constexpr spdlog::level::level_enum kSpdLevels[] = {
    spdlog::level::off,  spdlog::level::off,  spdlog::level::critical, spdlog::level::err,
    spdlog::level::warn, spdlog::level::info, spdlog::level::debug,    spdlog::level::trace};

const char* level_name(spdlog::level::level_enum level) {
  return kLevelNames[std::find(std::begin(kSpdLevels), std::end(kSpdLevels), level) -
                     std::begin(kSpdLevels)];
}

// Our own names of the levels in a pattern of spdlog.
class LevelFlag : public spdlog::custom_flag_formatter {
 public:
  void format(const spdlog::details::log_msg& message, const std::tm&,
              spdlog::memory_buf_t& out) override {
    const std::string_view name = level_name(message.level);
    out.append(name.data(), name.data() + name.size());
  }
  std::unique_ptr<custom_flag_formatter> clone() const override {
    return std::make_unique<LevelFlag>();
  }
};

// The module travels as the logger's name.
std::unique_ptr<spdlog::formatter> text_formatter() {
  auto formatter =
      std::make_unique<spdlog::pattern_formatter>(spdlog::pattern_time_type::local, "\n");
  formatter->add_flag<LevelFlag>('*').set_pattern("%Y-%m-%d %H:%M:%S.%e %P %^%*%$ %n %g:%# %!: %v");
  return formatter;
}

// One line a message: what others sent, and a message quotes, can't pass for a line of its own or
// move the cursor of whoever looks at it. Empty when the text can stay as it is.
std::string in_one_line(std::string_view text) {
  const auto is_control = [](char c) { return (c >= 0 && c < ' ' && c != '\t') || c == '\x7f'; };
  if (std::none_of(text.begin(), text.end(), is_control)) return {};
  std::string line;
  for (const char c : text) {
    constexpr char digits[] = "0123456789abcdef";
    if (c == '\n') {
      line += "\n\t";  // goes on, and shows it
    } else if (is_control(c)) {
      line.append("\\x").append({digits[c >> 4], digits[c & 15]});
    } else {
      line += c;
    }
  }
  return line;
}

// One JSON object a line. Bytes that are not UTF-8 become U+FFFD, since JSON can't
// carry them.
class JsonFormatter : public spdlog::formatter {
 public:
  void format(const spdlog::details::log_msg& message, spdlog::memory_buf_t& out) override {
    spdlog::memory_buf_t time;
    m_time.format(message, time);
    const nlohmann::ordered_json line = {
        {"time", std::string(time.data(), time.size())},
        {"level", level_name(message.level)},
        {"module", std::stoi(std::string(message.logger_name.data(), message.logger_name.size()))},
        {"file", message.source.filename},
        {"line", message.source.line},
        {"function", message.source.funcname},
        {"pid", spdlog::details::os::pid()},
        {"text", std::string(message.payload.data(), message.payload.size())}};
    const std::string text =
        line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
    out.append(text.data(), text.data() + text.size());
  }
  std::unique_ptr<formatter> clone() const override { return std::make_unique<JsonFormatter>(); }

 private:
  spdlog::pattern_formatter m_time{"%Y-%m-%dT%H:%M:%S.%eZ", spdlog::pattern_time_type::utc, ""};
};

class SpdlogSink : public Log_Sink {
 public:
  SpdlogSink(std::unique_ptr<spdlog::sinks::sink> sink,
             std::unique_ptr<spdlog::formatter> formatter, bool is_text)
      : m_sink(std::move(sink)), m_is_text(is_text) {
    m_sink->set_level(spdlog::level::trace);
    m_sink->set_formatter(std::move(formatter));
  }

  void write(const Log_Origin& origin, std::string_view text) noexcept override try {
    while (!text.empty() && text.back() == '\n') text.remove_suffix(1);
    const std::string line = m_is_text ? in_one_line(text) : "";
    if (!line.empty()) text = line;
    const std::string module = std::to_string(origin.module);
    m_sink->log(spdlog::details::log_msg({origin.file, origin.line, origin.function}, module,
                                         kSpdLevels[origin.level & 7], text));
    m_sink->flush();
  } catch (...) {
    // Full disk or no memory: this line is lost, the caller is not.
  }

 private:
  std::unique_ptr<spdlog::sinks::sink> m_sink;
  const bool m_is_text;
};

std::unique_ptr<spdlog::sinks::sink> open_file(const Log_Settings& settings) {
  std::string path = settings.file;
  constexpr std::string_view pid = "{pid}";
  if (const size_t at = path.find(pid); at != path.npos) {
    path.replace(at, pid.size(), std::to_string(spdlog::details::os::pid()));
  }
  // A device or pipe must never be renamed.
  std::error_code ignored;
  if (std::filesystem::exists(path, ignored) && !std::filesystem::is_regular_file(path, ignored)) {
    return std::make_unique<spdlog::sinks::basic_file_sink_st>(path);
  }
  return std::make_unique<spdlog::sinks::rotating_file_sink_st>(path, settings.max_bytes,
                                                                settings.max_files);
}

}  // namespace

std::unique_ptr<Log_Sink> Log_Sink::open(const Log_Settings& settings, std::string& why) try {
  if (settings.output == Log_Settings::TO_STDERR) {
    return std::make_unique<SpdlogSink>(std::make_unique<spdlog::sinks::stderr_color_sink_st>(),
                                        text_formatter(), true);
  }
  if (settings.file.empty()) {
    why = "the output is a file and no path is given";
    return nullptr;
  }
  const bool as_json = settings.output == Log_Settings::TO_JSON;
  return std::make_unique<SpdlogSink>(
      open_file(settings), as_json ? std::make_unique<JsonFormatter>() : text_formatter(),
      !as_json);
} catch (const std::exception& failure) {
  why = failure.what();
  return nullptr;
}
