// The places where a search rule looks.
#pragma once

#include <CFG/detail/paths.h>

namespace cfg {

// Path prefixes in order of priority, as callers pass them: an array of `count` texts, of
// which one that is null counts as empty. Refers to the caller's array.
class search_rule {
 public:
  search_rule(const char** prefixes, int count) : m_prefixes(prefixes), m_count(count) {}

  int count() const { return m_count; }
  RWCString prefix(int i) const { return RWCString(m_prefixes[i]); }
  // Where `name` is looked for in place i.
  RWCString candidate(int i, const RWCString& name) const { return join(prefix(i).str(), name); }

 private:
  const char** m_prefixes;
  int m_count;
};

}  // namespace cfg
