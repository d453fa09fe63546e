#include <system/Sys_RegistryText.h>

#include <algorithm>
#include <cstdio>

namespace {

constexpr std::string_view kBlanks = " \t";

std::string_view trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool is_control(char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7F; }
bool has_control(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char c) { return is_control(c) && c != '\t'; });
}

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
bool is_same(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return lower(x) == lower(y); });
}
bool is_below(std::string_view key, std::string_view above) {
  return key.size() > above.size() && key[above.size()] == '\\' &&
         is_same(key.substr(0, above.size()), above);
}

struct Escape {
  char letter, meaning;
};
constexpr Escape kEscapes[] = {{'"', '"'}, {'\\', '\\'}, {'n', '\n'}, {'r', '\r'}, {'t', '\t'}};

std::string quoted(std::string_view text) {
  std::string in_quotes = "\"";
  for (const char c : text) {
    const auto* const escape = std::find_if(std::begin(kEscapes), std::end(kEscapes),
                                            [c](const Escape& e) { return e.meaning == c; });
    if (escape != std::end(kEscapes)) {
      (in_quotes += '\\') += escape->letter;
    } else if (is_control(c)) {
      char code[5];
      snprintf(code, sizeof code, "\\x%02X", static_cast<unsigned>(c));
      in_quotes += code;
    } else {
      in_quotes += c;
    }
  }
  return in_quotes += '"';
}

int digit_of(char c) {
  constexpr std::string_view digits = "0123456789abcdef";
  const size_t digit = digits.find(lower(c));
  return digit == digits.npos ? -1 : static_cast<int>(digit);
}

// Takes what follows a backslash off the front of the text.
bool unescape(std::string_view& text, char& c) {
  if (text.size() >= 3 && text[0] == 'x') {
    const int high = digit_of(text[1]), low = digit_of(text[2]);
    if (high < 0 || low < 0) return false;
    c = static_cast<char>(high * 16 + low);
    text.remove_prefix(3);
    return true;
  }
  for (const Escape& escape : kEscapes) {
    if (text.empty() || escape.letter != text[0]) continue;
    c = escape.meaning;
    text.remove_prefix(1);
    return true;
  }
  return false;
}

// Takes a text in quotation marks, the first of which is there, off the front.
bool unquote(std::string_view& text, std::string& out) {
  text.remove_prefix(1);
  while (!text.empty()) {
    char c = text.front();
    text.remove_prefix(1);
    if (c == '"') return true;
    if (c == '\\' && !unescape(text, c)) return false;
    out += c;
  }
  return false;
}

}  // namespace

bool Sys_RegistryText::is_key(std::string_view key) {
  return !key.empty() && trimmed(key) == key &&
         std::none_of(key.begin(), key.end(), [](char c) { return is_control(c); });
}

void Sys_RegistryText::parse(std::string_view text, const Fault& fault) {
  Lines lines;
  std::string key;
  for (int number = 1; !text.empty(); ++number) {
    const size_t end = std::min(text.find('\n'), text.size());
    Line& line = lines.emplace_back();
    line.text = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (const char* what = read(line, key)) fault(number, what);
    if (line.kind == KEY) key = line.key;
  }
  m_lines = std::move(lines);
}

// What is wrong with the line; NULL when nothing is.
const char* Sys_RegistryText::read(Line& line, std::string_view key) {
  std::string_view rest = line.text;
  if (!rest.empty() && rest.back() == '\r') rest.remove_suffix(1);
  if (rest.substr(0, 3) == "\xEF\xBB\xBF") rest.remove_prefix(3);
  rest = trimmed(rest);
  if (rest.empty() || rest[0] == ';' || rest[0] == '#') return nullptr;
  if (has_control(rest)) return "it holds control characters";
  if (rest[0] == '[') {
    const std::string_view name = trimmed(rest.substr(1, rest.rfind(']') - 1));
    if (rest.back() != ']' || !is_key(name)) return "it is no [key]";
    line.key = name;
    line.kind = KEY;
    return nullptr;
  }
  constexpr const char* no_value = "it is neither a [key] nor \"name\"=\"value\"";
  if (rest[0] != '"') {
    const size_t sign = rest.find('=');
    line.name = trimmed(rest.substr(0, sign));
    if (sign == rest.npos || line.name.empty()) return no_value;
    rest.remove_prefix(sign);
  } else if (!unquote(rest, line.name)) {
    return no_value;
  }
  rest = trimmed(rest);
  if (rest.empty() || rest[0] != '=') return no_value;
  rest = trimmed(rest.substr(1));
  if (rest.empty() || rest[0] != '"') {
    line.value = rest;
  } else if (!unquote(rest, line.value) || !rest.empty()) {
    return no_value;
  }
  if (key.empty()) return "no [key] stands before it";
  line.key = key;
  line.kind = VALUE;
  return nullptr;
}

std::string Sys_RegistryText::text() const {
  std::string text;
  for (const Line& line : m_lines) (text += line.text) += '\n';
  return text;
}

const std::string* Sys_RegistryText::find(std::string_view key, std::string_view name) const {
  const auto found = std::find_if(m_lines.rbegin(), m_lines.rend(), [&](const Line& line) {
    return line.kind == VALUE && is_same(line.key, key) && is_same(line.name, name);
  });
  return found == m_lines.rend() ? nullptr : &found->value;
}

void Sys_RegistryText::set(std::string_view key, std::string_view name, std::string_view value) {
  Line fresh{quoted(name) + '=' + quoted(value), VALUE, std::string(key), std::string(name),
             std::string(value)};
  size_t behind = 0;  // the last line of the key
  for (size_t i = m_lines.size(); i > 0; --i) {
    Line& line = m_lines[i - 1];
    if (line.kind == NOTHING || !is_same(line.key, key)) continue;
    if (behind == 0) behind = i;
    if (line.kind != VALUE || !is_same(line.name, name)) continue;
    line = std::move(fresh);
    return;
  }
  if (behind == 0) {
    if (!m_lines.empty()) m_lines.emplace_back();
    m_lines.push_back({'[' + std::string(key) + ']', KEY, std::string(key), {}, {}});
    behind = m_lines.size();
  }
  m_lines.insert(m_lines.begin() + static_cast<ptrdiff_t>(behind), std::move(fresh));
}

bool Sys_RegistryText::remove(std::string_view key, std::string_view name) {
  return remove_lines([&](const Line& line) {
    return line.kind == VALUE && is_same(line.key, key) && is_same(line.name, name);
  });
}

bool Sys_RegistryText::remove_key(std::string_view key) {
  return remove_lines([&](const Line& line) {
    return line.kind != NOTHING && (is_same(line.key, key) || is_below(line.key, key));
  });
}

bool Sys_RegistryText::remove_lines(const std::function<bool(const Line&)>& goes) {
  const auto end = std::remove_if(m_lines.begin(), m_lines.end(), goes);
  const bool was_there = end != m_lines.end();
  m_lines.erase(end, m_lines.end());
  return was_there;
}
