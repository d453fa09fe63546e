#include "typed_line.h"

#include <algorithm>
#include <utility>

namespace cli {

namespace {

// "-l,--long" is two names of one option.
bool has_name(const Parameter& parameter, std::string_view name) {
  std::string_view names = parameter.name;
  while (!names.empty()) {
    const std::string_view one = names.substr(0, names.find(','));
    if (one == name) return true;
    names.remove_prefix(std::min(one.size() + 1, names.size()));
  }
  return false;
}

bool is_named(const Parameter& parameter) { return parameter.name[0] == '-'; }

}  // namespace

TypedLine::TypedLine(std::string_view line) : m_words(split_line(line)) {
  for (size_t i = 1; i + 1 < m_words.size(); ++i) take_word(m_words[i].text);
  if (m_words.size() > 1) look_at_current();
}

bool TypedLine::is_option(const std::string& text) const {
  return !m_only_positionals && text.size() > 1 && text[0] == '-';
}

void TypedLine::take_word(const std::string& text) {
  if (const Parameter* option = std::exchange(m_waiting, nullptr)) {
    take_value(*option, text);
  } else if (is_option(text)) {
    take_option(text);
  } else if (m_verb) {
    ++m_positionals;
  } else {
    take_name(text);
  }
}

void TypedLine::take_option(const std::string& text) {
  m_only_positionals = text == "--";
  const size_t equals = text.find('=');
  const Parameter* named = option(std::string_view(text).substr(0, equals));
  if (!named || *named->kind == '\0') return;
  if (equals == text.npos) {
    m_waiting = named;
  } else {
    take_value(*named, text.substr(equals + 1));
  }
}

void TypedLine::take_value(const Parameter& option, const std::string& text) {
  if (has_name(option, "--file")) m_arguments.tree_file = text;
  if (has_name(option, "--server")) m_arguments.server = text;
  if (has_name(option, "--params")) m_arguments.params_file = text;
  if (has_name(option, "--property")) m_arguments.properties.push_back(text);
}

void TypedLine::take_name(const std::string& text) {
  if (!m_name.empty()) m_name += ' ';
  m_name += text;
  for (const Verb& verb : verbs()) {
    if (verb.name == m_name) m_verb = &verb;
  }
}

void TypedLine::look_at_current() {
  ShellWord& word = m_words.back();
  if (m_waiting) {
    m_parameter = m_waiting;
  } else if (is_option(word.text)) {
    const size_t equals = word.text.find('=');
    if (equals == word.text.npos) return;
    m_parameter = option(std::string_view(word.text).substr(0, equals));
    word.raw.erase(0, word.raw.find('=') + 1);
    word.text.erase(0, equals + 1);
  } else if (m_verb && word.text != "-") {
    m_parameter = positional();
  }
}

const Parameter* TypedLine::option(std::string_view name) const {
  for (const Parameter* known : options()) {
    if (has_name(*known, name)) return known;
  }
  return nullptr;
}

std::vector<const Parameter*> TypedLine::options() const {
  std::vector<const Parameter*> all;
  const auto add = [&all](const std::vector<Parameter>& parameters) {
    for (const Parameter& parameter : parameters) {
      if (is_named(parameter)) all.push_back(&parameter);
    }
  };
  add(common_parameters());
  if (m_verb) add(m_verb->parameters);
  if (!m_verb || m_verb->effect != Effect::READS) add(writing_parameters());
  return all;
}

// The last argument of a verb that takes any number of them is for all that follow.
const Parameter* TypedLine::positional() const {
  size_t index = 0;
  for (const Parameter& parameter : m_verb->parameters) {
    if (is_named(parameter)) continue;
    const bool repeats =
        std::holds_alternative<std::vector<std::string> Arguments::*>(parameter.field);
    if (index == m_positionals || repeats) return &parameter;
    ++index;
  }
  return nullptr;
}

std::vector<std::string> TypedLine::verb_names() const {
  std::vector<std::string> names;
  for (const Verb& verb : verbs()) {
    const std::string name = verb.name;
    if (*verb.help == '\0') continue;
    const size_t cut = name.find(' ');
    const bool is_in_group = cut != name.npos && name.substr(0, cut) == m_name;
    if (m_name.empty()) names.push_back(name.substr(0, cut));
    if (is_in_group) names.push_back(name.substr(cut + 1));
  }
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return names;
}

std::vector<std::string> TypedLine::verbs_or_options() const {
  if (current().text.substr(0, 1) != "-") {
    return m_verb ? std::vector<std::string>() : verb_names();
  }
  std::vector<std::string> names = {"--help"};
  if (m_name.empty()) names.emplace_back("--version");
  for (const Parameter* known : options()) {
    const std::string name = known->name;
    names.push_back(name.substr(name.rfind("--")));
  }
  return names;
}

}  // namespace cli
