#include <logging/Log_Format.h>

#include <fmt/printf.h>

#include <algorithm>
#include <cstdlib>

namespace {

constexpr long long kWidest = 4096;  // for widths that come from arguments

// A copy of at most `bytes` bytes that does not end within a UTF-8 character.
std::string_view cut(std::string_view text, size_t bytes) {
  if (bytes >= text.size()) return text;
  size_t end = bytes;
  while (end > 0 && bytes - end < 3 && (text[end] & 0xC0) == 0x80) --end;
  return text.substr(0, end);
}

// The arguments, handed out in their order.
class ArgumentReader {
 public:
  explicit ArgumentReader(std::initializer_list<Log_Argument> args) : m_args(args) {}
  // The next argument when it is of that kind, else null.
  const Log_Argument* take(Log_Kind kind) {
    if (m_next == m_args.size()) return nullptr;
    const Log_Argument* arg = m_args.begin() + m_next++;
    return arg->kind & kind ? arg : nullptr;
  }

 private:
  std::initializer_list<Log_Argument> m_args;
  size_t m_next = 0;
};

// "%-08.3" of the directive, each star replaced by its argument.
std::string flags_width_precision(const Log_Directive& d, ArgumentReader& args) {
  std::string out;
  for (const char* c = d.begin; c != d.length; ++c) {
    if (*c != '*') {
      out.push_back(*c);
      continue;
    }
    const Log_Argument* arg = args.take(LOG_KIND_INTEGER);
    const long long value =
        std::clamp(arg ? static_cast<long long>(arg->integer) : 0, -kWidest, kWidest);
    const bool is_precision = out.back() == '.';
    if (is_precision && value < 0) {
      out.pop_back();  // as if no precision were given
    } else {
      out += std::to_string(value);
    }
  }
  return out;
}

std::string render_integer(const std::string& spec, const Log_Argument& arg) {
  const unsigned unused_bits = 64 - 8 * arg.size;
  const unsigned long long own_bits = arg.integer << unused_bits >> unused_bits;
  const char conversion = spec.back();
  if (conversion == 'c') return fmt::sprintf(spec, static_cast<char>(arg.integer));
  if (arg.is_signed && (conversion == 'd' || conversion == 'i')) {
    return fmt::sprintf(spec, static_cast<long long>(arg.integer));
  }
  return fmt::sprintf(spec, own_bits);
}

std::string render_text(std::string spec, const Log_Argument& arg) {
  RWCString narrowed;
  std::string_view text("(null)");
  if (arg.pointer && arg.kind & LOG_KIND_TEXT) {
    text = std::string_view(static_cast<const char*>(arg.pointer), arg.length);
  } else if (arg.pointer) {
    narrowed =
        RWWString(std::wstring(static_cast<const wchar_t*>(arg.pointer), arg.length)).toUTF8();
    text = narrowed.view();
  }
  if (spec == "%s") return std::string(text);
  if (const size_t point = spec.find('.'); point != spec.npos) {
    text = cut(text, static_cast<size_t>(std::strtoull(spec.c_str() + point + 1, nullptr, 10)));
    spec.erase(point, spec.size() - 1 - point);
  }
  return fmt::sprintf(spec, text);
}

std::string render(const Log_Directive& d, ArgumentReader& args) {
  if (d.conversion == '%') return "%";
  std::string as_it_stands(d.begin, d.end);
  if (!d.conversion) return as_it_stands;
  std::string spec = flags_width_precision(d, args);
  const Log_Argument* arg = args.take(d.kind);
  if (!arg) return as_it_stands;
  spec.push_back(d.conversion == 'S' ? 's' : d.conversion);
  switch (d.kind) {
    case LOG_KIND_INTEGER:
      return render_integer(spec, *arg);
    case LOG_KIND_REAL:
      return fmt::sprintf(spec, arg->real);
    case LOG_KIND_POINTER:
      return fmt::sprintf(spec, arg->pointer);
    case LOG_KIND_TEXT:
    case LOG_KIND_WIDE_TEXT:
      return render_text(spec, *arg);
    case LOG_KIND_NONE:
      break;
  }
  return as_it_stands;
}

}  // namespace

std::string Log_Render(const char* format, std::initializer_list<Log_Argument> args) {
  std::string out;
  ArgumentReader reader(args);
  const char* from = format;
  for (Log_Directive d = Log_NextDirective(from); d.begin; d = Log_NextDirective(from)) {
    out.append(from, d.begin);
    out += render(d, reader);
    from = d.end;
  }
  return out += from;
}
