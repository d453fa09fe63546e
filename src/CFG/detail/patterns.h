// Patterns: paths in which a component `%` stands for any key.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>
#include <utility>
#include <vector>

class Tree_ChildList;
class Tree_Node;

namespace cfg {

// What stands before the component that holds the first `%`; a path without one is its own
// answer.
std::string_view before_wildcard(std::string_view path);

// A component of a path by its position from 0 on, empty beyond the last.
std::string_view component(std::string_view path, int position);

// Goes through what a pattern selects below a key, in tree order: keys, and where the last
// component is a name also values. The empty pattern selects nothing; neither does a
// component in which `%` stands beside other characters. Costs what it visits, whatever the
// number of components. The tree must not change meanwhile.
class pattern_walk {
 public:
  // Told the rest of the pattern wherever it is applied to another key.
  using step = std::function<void(std::string_view rest)>;

  pattern_walk(Tree_Node* at, std::string_view pattern, step on_step = {})
      : m_on_step(std::move(on_step)),
        m_found(at && !pattern.empty() ? follow(at, pattern) : nullptr) {
    if (!m_found) next();
  }

  // Null past the end.
  Tree_Node* operator*() const { return m_found; }
  void next();

 private:
  struct any_key {
    const Tree_ChildList* children;
    uint32_t place;         // where to look for the next key
    std::string_view rest;  // of the pattern
  };

  // The node at `rest` of the pattern; null when nothing is there, or when a wildcard that is
  // in the way was opened.
  Tree_Node* follow(Tree_Node* node, std::string_view rest);

  step m_on_step;
  std::vector<any_key> m_open;  // the wildcards on the way to m_found
  Tree_Node* m_found;
};

}  // namespace cfg
