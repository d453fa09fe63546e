// Paths in which a component `%` stands for any key.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <database/Db_Store.h>

// What stands before the component that holds the first `%`; a path without one is its own
// answer.
std::string_view Db_BeforeWildcard(std::string_view path);

// Goes through what a pattern selects, in order of path as a tree is in order: keys, and where
// the last component is a name also values. `%` beside other characters selects nothing. Reads
// the names of the keys that a `%` stands for, and nothing below them that the pattern does not
// name.
class Db_PatternWalk {
 public:
  Db_PatternWalk(Db_Store& store, std::string_view pattern);

  // OK with the path and value of the next match, NOT_FOUND at the end, FAILED.
  Db_Result next(std::string& path, std::string& value);
  // Without looking whether the last, named part is there: for whoever asks below it anyway.
  Db_Result next_candidate(std::string& path);

 private:
  struct Wildcard {
    std::string parent;
    std::vector<std::string> keys;
    size_t next = 0;
  };

  Db_Result open(std::string parent);

  Db_Store& m_store;
  bool m_is_started = false;
  bool m_is_valid = true;
  std::vector<std::string> m_fixed;  // the parts before, between and behind the `%`
  std::vector<Wildcard> m_open;      // one for each `%` on the way
};

// The names of the keys, or with `values` of the values, directly under a path, in order. Ends
// early when `take` returns false.
Db_Result Db_EachChild(
    Db_Store& store, std::string_view path,
    const std::function<bool(std::string_view name, std::string_view value)>& take);
