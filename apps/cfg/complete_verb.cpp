// __complete: what the shell offers for the word under the cursor.
//
// Prints one line that says what kind of words follow ("words"; "nospace" when a word is
// not finished; "files" when the shell shall complete file names; both when names of files
// are words among others), then one word a line, as it has to be typed. Nothing else is
// ever printed, and no failure is told: the shell is in the middle of a line.
#include <algorithm>

#include <tree/Tree_Node.h>

#include "paths.h"
#include "typed_line.h"

namespace cli {

namespace {

using Words = std::vector<std::string>;

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
    const Tree_NodePtr key =
        first_of(parent) == store.root() ? store.listing(parent) : Tree_NodePtr();
    if (key) paths = children_of(*key, parent, name_of(typed));
  }
  while (paths.size() == 1 && paths.front().back() == '\\') {
    const std::string path(parent_of(paths.front()));
    const Tree_NodePtr key = store.listing(path);
    if (!key) break;
    Words below = children_of(*key, path, "");
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
    const auto store = Store::open(line.arguments(), Store::READ);
    offer.words = typed_paths(paths_from(*store, typed), line.current());
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
