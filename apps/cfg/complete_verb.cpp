// __complete: what the shell offers for the word under the cursor.
//
// Prints one line that says what kind of words follow ("words"; "nospace" when a word is
// not finished; "files" when the shell shall complete file names; both when names of files
// are words among others), then one word a line, as it has to be typed. Nothing else is
// ever printed, and no failure is told: the shell is in the middle of a line.
#include <algorithm>

#include "paths.h"
#include "shell_words.h"
#include "verbs.h"

namespace cli {

namespace {

using Words = std::vector<std::string>;

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

bool is_option(const Parameter& parameter) { return parameter.name[0] == '-'; }

// The line as far as it has been typed.
class TypedLine {
 public:
  explicit TypedLine(const std::string& line) : m_words(split_line(line)) { read(); }

  const ShellWord& current() const { return m_words.back(); }
  const Arguments& arguments() const { return m_arguments; }

  // What the current word is for; null when it is a verb or an option.
  const Parameter* parameter() const { return m_parameter; }
  // The words it can be, when it is.
  Words verbs_or_options() const {
    Words words;
    if (current().text.substr(0, 1) == "-") {
      for (const Parameter* known : options()) {
        const std::string names = known->name;
        words.push_back(names.substr(names.rfind("--")));
      }
      words.push_back("--help");
      if (m_name.empty()) words.push_back("--version");
    } else if (!m_verb) {
      for (const Verb& verb : verbs()) {
        const std::string name = verb.name;
        if (*verb.help == '\0') continue;
        const size_t cut = name.find(' ');
        const bool is_in_group = cut != name.npos && name.substr(0, cut) == m_name;
        if (m_name.empty()) words.push_back(name.substr(0, cut));
        if (is_in_group) words.push_back(name.substr(cut + 1));
      }
    }
    return words;
  }

 private:
  std::vector<const Parameter*> options() const {
    std::vector<const Parameter*> all;
    const auto add = [&all](const std::vector<Parameter>& parameters) {
      for (const Parameter& parameter : parameters) {
        if (is_option(parameter)) all.push_back(&parameter);
      }
    };
    add(common_parameters());
    if (m_verb) add(m_verb->parameters);
    if (!m_verb || m_verb->effect != Effect::READS) add(writing_parameters());
    return all;
  }

  const Parameter* option(std::string_view name) const {
    for (const Parameter* known : options()) {
      if (has_name(*known, name)) return known;
    }
    return nullptr;
  }

  void take(const Parameter& parameter, const std::string& value) {
    if (has_name(parameter, "--file")) m_arguments.tree_file = value;
    if (has_name(parameter, "--params")) m_arguments.params_file = value;
    if (has_name(parameter, "--property")) m_arguments.properties.push_back(value);
  }

  void take_name(const std::string& word) {
    if (!m_name.empty()) m_name += ' ';
    m_name += word;
    for (const Verb& verb : verbs()) {
      if (verb.name == m_name) m_verb = &verb;
    }
  }

  void read() {
    size_t positionals = 0;
    const Parameter* waiting = nullptr;  // the option whose value comes next
    bool only_positionals = false;
    for (size_t i = 1; i < m_words.size(); ++i) {
      const bool is_current = i + 1 == m_words.size();
      const std::string& text = m_words[i].text;
      if (waiting) {
        if (is_current) {
          m_parameter = waiting;
        } else {
          take(*waiting, text);
        }
        waiting = nullptr;
      } else if (!only_positionals && text.size() > 1 && text[0] == '-') {
        only_positionals = text == "--" && !is_current;
        const size_t equals = text.find('=');
        const Parameter* named = option(text.substr(0, equals));
        if (!named || *named->kind == '\0') continue;
        if (equals == text.npos) {
          if (!is_current) waiting = named;
        } else if (is_current) {
          m_parameter = named;
          m_words.back().raw.erase(0, m_words.back().raw.find('=') + 1);
          m_words.back().text.erase(0, equals + 1);
        } else {
          take(*named, text.substr(equals + 1));
        }
      } else if (is_current) {
        if (m_verb && text.substr(0, 1) != "-") m_parameter = positional(positionals);
      } else if (m_verb) {
        ++positionals;
      } else {
        take_name(text);
      }
    }
  }

  const Parameter* positional(size_t index) const {
    const Parameter* last = nullptr;
    for (const Parameter& parameter : m_verb->parameters) {
      if (is_option(parameter)) continue;
      last = &parameter;
      if (index-- == 0) return last;
    }
    const bool repeats =
        last && std::holds_alternative<std::vector<std::string> Arguments::*>(last->field);
    return repeats ? last : nullptr;
  }

  std::vector<ShellWord> m_words;
  std::string m_name;  // of the verb, as far as it stands there
  const Verb* m_verb = nullptr;
  const Parameter* m_parameter = nullptr;
  Arguments m_arguments;
};

// The children of `key` whose names begin so, as paths; keys end in a backslash.
Words children_of(const Tree_Node& key, const std::string& path, std::string_view beginning) {
  Words paths;
  const Tree_ChildList* children = key.Children();
  for (uint32_t at = children->next(0); at != children->npos; at = children->next(at + 1)) {
    const Tree_Node& child = *children->at(at);
    if (child.NameView().substr(0, beginning.size()) != beginning) continue;
    paths.push_back(child_of(path, child.NameView()) + (child.IsLeaf() ? "" : "\\"));
  }
  return paths;
}

// The paths that the text can go on to. A single key is followed by what is below it, so
// that there is always something to choose from before the word ends.
Words paths_from(const Store& store, const std::string& text) {
  RWCString lower = with_backslashes(text);
  CFG_ServicesImp::tolower(lower);
  std::string typed = lower.str();
  if (ends_with_separator(text) && !typed.empty()) typed += '\\';

  Words paths;
  if (typed.find('\\') == typed.npos) {
    if (store.root().substr(0, typed.size()) == typed) paths.push_back(store.root() + "\\");
  } else {
    const std::string parent(parent_of(typed));
    const Tree_Node* key = store.node(parent);
    const bool is_in_tree = first_of(parent) == store.root() && key && !key->IsLeaf();
    if (is_in_tree) paths = children_of(*key, parent, name_of(typed));
  }
  while (paths.size() == 1 && paths.front().back() == '\\') {
    const std::string path(parent_of(paths.front()));
    Words below = children_of(*store.node(path), path, "");
    if (below.empty()) break;
    paths = std::move(below);
  }
  return paths;
}

// Paths as they are typed: with the separator and in the quotes that the word has so far.
Words typed_paths(const Words& paths, const ShellWord& word) {
  const bool has_backslash = word.text.find('\\') != word.text.npos;
  const bool has_slash = word.text.find('/') != word.text.npos;
  const bool with_slashes = !has_backslash && (has_slash || !word.quote);
  Words typed;
  for (std::string path : paths) {
    if (with_slashes) {
      // Such a name can be written with backslashes only.
      if (path.find('/') != path.npos) continue;
      std::replace(path.begin(), path.end(), '\\', '/');
    }
    typed.push_back(as_typed(path, word.quote));
  }
  return typed;
}

struct Offer {
  Words words;
  bool files = false;
};

Words beginning_with(const std::string& beginning, Words words) {
  const auto differs = [&](const std::string& word) {
    return word.compare(0, beginning.size(), beginning) != 0;
  };
  words.erase(std::remove_if(words.begin(), words.end(), differs), words.end());
  return words;
}

Offer offer_for(const TypedLine& line) {
  const std::string& typed = line.current().text;
  const Parameter* parameter = line.parameter();
  if (!parameter) return {beginning_with(typed, line.verbs_or_options())};
  const std::string_view kind = parameter->kind;
  if (is_choice(kind)) return {beginning_with(typed, choices_of(kind))};
  Offer offer;
  offer.files = kind.find("FILE") != kind.npos;
  if (kind.find("PATH") != kind.npos) {
    const Store store(line.arguments(), Store::READ);
    offer.words = typed_paths(paths_from(store, typed), line.current());
  }
  return offer;
}

// The shell replaces only what stands behind the last letter that it takes for the end of
// a word, as a colon: what comes before that in `raw` is left out.
std::string for_shell(const std::string& word, const ShellWord& current,
                      std::string_view replaced) {
  std::string_view raw = current.raw;
  if (current.quote && !raw.empty() && raw.front() == current.quote) raw.remove_prefix(1);
  if (!replaced.empty() && replaced.front() == current.quote) replaced.remove_prefix(1);
  if (replaced.size() > raw.size()) return word;
  const std::string_view kept = raw.substr(0, raw.size() - replaced.size());
  return std::string_view(word).substr(0, kept.size()) == kept ? word.substr(kept.size()) : word;
}

}  // namespace

int run_complete(Session& session) {
  try {
    const TypedLine line(session.arguments.line);
    const Offer offer = offer_for(line);
    const auto is_open = [](const std::string& word) {
      return word.back() == '\\' || word.back() == '/';
    };
    const bool no_space = std::any_of(offer.words.begin(), offer.words.end(), is_open);
    session.out.line(std::string(offer.words.empty() && offer.files ? "" : "words") +
                     (no_space ? " nospace" : "") + (offer.files ? " files" : ""));
    for (const std::string& word : offer.words) {
      session.out.line(for_shell(word, line.current(), session.arguments.word));
    }
  } catch (const Failure&) {
    // Nothing to offer.
  }
  return DONE;
}

}  // namespace cli
