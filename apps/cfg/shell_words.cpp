#include "shell_words.h"

namespace cli {

namespace {

constexpr std::string_view SPECIAL = " \t\n\\'\"`$&|;<>()[]{}*?!#~";

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\n'; }

// What a backslash at the start of `rest` and the letter behind it stand for.
std::string unescaped(std::string_view rest, char quote) {
  if (rest.size() < 2) return std::string(rest);
  const std::string_view escapable = quote ? std::string_view("\\\"`$") : SPECIAL;
  const bool is_escape = escapable.find(rest[1]) != escapable.npos;
  return std::string(is_escape ? rest.substr(1, 1) : rest.substr(0, 2));
}

}  // namespace

std::vector<ShellWord> split_line(std::string_view line) {
  std::vector<ShellWord> words(1);
  for (size_t at = 0; at < line.size();) {
    ShellWord& word = words.back();
    const char c = line[at];
    size_t taken = 1;
    if (!word.quote && is_blank(c)) {
      if (!word.raw.empty()) words.emplace_back();
      ++at;
      continue;
    }
    if (c == '\\' && word.quote != '\'') {
      word.text += unescaped(line.substr(at), word.quote);
      taken = std::min<size_t>(2, line.size() - at);
    } else if (c == word.quote) {
      word.quote = 0;
    } else if (!word.quote && (c == '\'' || c == '"')) {
      word.quote = c;
    } else {
      word.text += c;
    }
    word.raw += line.substr(at, taken);
    at += taken;
  }
  return words;
}

std::string as_typed(std::string_view text, char quote) {
  std::string typed;
  for (const char c : text) {
    if (quote == '\'' && c == '\'') {
      typed += "'\\'";
    } else if (quote != '\'') {
      const std::string_view special = quote ? std::string_view("\\\"`$") : SPECIAL;
      if (special.find(c) != special.npos) typed += '\\';
    }
    typed += c;
  }
  return typed;
}

}  // namespace cli
