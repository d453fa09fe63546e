// find: keys and values by name, by pattern and by text.
#include <vector>

#include <tree/Tree_Walk.h>

#include "paths.h"
#include "verbs.h"

namespace cli {

namespace {

// Whether nodes lie at a path in which each `%` stands for any text within one name. Asked
// about every node of a walk, so that it knows which ancestors matched.
class PathPattern {
 public:
  // `pattern` is relative to the top node of the walk.
  explicit PathPattern(std::string pattern) : m_pattern(std::move(pattern)) {
    std::string_view rest = m_pattern;
    while (!rest.empty()) {
      m_names.push_back(first_of(rest));
      rest.remove_prefix(std::min(m_names.back().size() + 1, rest.size()));
    }
  }

  bool matches(std::string_view name, size_t depth) {
    m_matched.resize(depth + 1);
    m_matched[depth] = depth == 0 || (m_matched[depth - 1] && depth <= m_names.size() &&
                                      is_like(name, m_names[depth - 1]));
    return m_matched[depth] && depth == m_names.size();
  }

 private:
  const std::string m_pattern;
  std::vector<std::string_view> m_names;  // in m_pattern
  std::vector<char> m_matched;            // by depth, of the nodes on the way
};

std::string lower(RWCString copy) {
  CFG_ServicesImp::tolower(copy);
  return copy.str();
}

// What is looked for: a node fits when everything that is given fits.
struct Query {
  std::string top;                     // the key to search in
  std::string name;                    // may hold `%`; empty: any
  std::optional<std::string> pattern;  // relative to the top
  std::optional<std::string> exact_value, like_value;
  bool ignore_case = false;  // the texts looked for are in small letters then

  bool fits(const Tree_Node& node) const {
    if (!name.empty() && !is_like(node.NameView(), name)) return false;
    if (!exact_value && !like_value) return true;
    if (!node.IsLeaf()) return false;
    return ignore_case ? has_text(lower(RWCString(node.GetText()))) : has_text(node.GetText());
  }

 private:
  bool has_text(std::string_view text) const {
    return (!exact_value || text == *exact_value) && (!like_value || is_like(text, *like_value));
  }
};

Query query_of(const Arguments& arguments, Store& store) {
  Query query;
  query.exact_value = arguments.exact_value;
  query.like_value = arguments.like_value;
  query.ignore_case = arguments.ignore_case;
  for (auto* text : {&query.exact_value, &query.like_value}) {
    if (query.ignore_case && *text) *text = lower(RWCString(**text));
  }
  query.top = arguments.path.empty() ? store.root() : store.path(arguments.path);
  if (!arguments.what) {
    if (!query.exact_value && !query.like_value) {
      throw Failure(USAGE, "find wants a name or pattern, --value or --like");
    }
    return query;
  }

  const std::string& what = *arguments.what;
  if (what.find_first_of("\\/") == what.npos) {
    query.name = lower(what);
    if (query.name.empty()) throw Failure(USAGE, "the name to find is empty");
    return query;
  }
  if (!arguments.path.empty()) throw Failure(USAGE, "a pattern is a whole path; leave out --under");
  const std::string pattern = store.path(what);
  query.top = parent_of(pattern.substr(0, pattern.find('%')));
  if (pattern.find('%') == pattern.npos || query.top.empty()) query.top = store.root();
  query.pattern = pattern.substr(std::min(query.top.size() + 1, pattern.size()));
  return query;
}

// Prints what was found, one line each.
class Findings {
 public:
  Findings(Output& out, const Arguments& arguments) : m_out(out), m_is_long(arguments.long_lines) {
    if (arguments.json) m_rows.emplace(out, "", "");
  }

  void add(const std::string& path, const Tree_Node& node) {
    ++m_count;
    if (m_rows) {
      Json row = {{"path", path}};
      if (node.IsLeaf()) row["value"] = node.GetText();
      m_rows->row(row);
    } else if (!node.IsLeaf()) {
      m_out.line(printable(path + "\\"));
    } else {
      m_out.line(printable(m_is_long ? path + " = " + std::string(node.GetText()) : path));
    }
  }

  size_t end() {
    if (m_rows) m_rows->end();
    return m_count;
  }

 private:
  Output& m_out;
  std::optional<JsonRows> m_rows;
  const bool m_is_long;
  size_t m_count = 0;
};

}  // namespace

int run_find(Session& session) {
  Store& store = session.store();
  const Query query = query_of(session.arguments, store);
  // Where a pattern has no such key before its first `%`, nothing is found and that is all.
  Tree_Node* top = query.pattern ? store.node(query.top) : &store.key(query.top);
  PathPattern pattern(query.pattern.value_or(""));

  Findings findings(session.out, session.arguments);
  Tree_PathsWalk walk(top, parent_of(query.top));
  for (; walk && !session.out.is_closed(); walk.Next()) {
    const bool is_place =
        query.pattern ? pattern.matches(walk->NameView(), walk.Depth()) : walk.Depth() > 0;
    if (is_place && query.fits(**walk)) findings.add(walk.Path(), **walk);
  }
  if (findings.end() > 0) return DONE;
  say("nothing found");
  return NOT_FOUND;
}

}  // namespace cli
