// A command line of cfg that is being typed.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "arguments.h"
#include "shell_words.h"
#include "verbs.h"

namespace cli {

// What is known about the word under the cursor, at the end of the line. What stands before
// it may be wrong or incomplete.
class TypedLine {
 public:
  explicit TypedLine(std::string_view line);

  // Of `--option=value` the value only.
  const ShellWord& current() const { return m_words.back(); }
  // The option or argument that the current word is for; null when it is a verb or the name
  // of an option, and verbs_or_options() are the words that it can be.
  const Parameter* parameter() const { return m_parameter; }
  std::vector<std::string> verbs_or_options() const;
  // Which tree the line is about.
  const Arguments& arguments() const { return m_arguments; }

 private:
  void take_word(const std::string& text);
  void take_option(const std::string& text);
  void take_name(const std::string& text);
  void take_value(const Parameter& option, const std::string& text);
  void look_at_current();
  bool is_option(const std::string& text) const;
  const Parameter* option(std::string_view name) const;
  const Parameter* positional() const;
  std::vector<const Parameter*> options() const;
  std::vector<std::string> verb_names() const;

  std::vector<ShellWord> m_words;
  std::string m_name;  // of the verb, as far as it stands there
  const Verb* m_verb = nullptr;
  const Parameter* m_waiting = nullptr;  // the option whose value comes next
  size_t m_positionals = 0;
  bool m_only_positionals = false;  // behind --
  const Parameter* m_parameter = nullptr;
  Arguments m_arguments;
};

}  // namespace cli
