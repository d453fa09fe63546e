// tree: draws what is below a key, or prints it as nested JSON objects.
//
// Both go through the tree once, with their way on the heap, and neither takes more room
// for a line the deeper it stands: a tree may be a hundred thousand levels deep.
#include <vector>

#include <tree/Tree_Walk.h>

#include "differences.h"
#include "paths.h"
#include "verbs.h"

namespace cli {

namespace {

constexpr size_t DRAWN_LEVELS = 40;  // deeper ones tell their level instead

struct Lines {
  const char* child;
  const char* last_child;
  const char* past;     // beside the children of a key that has a sibling to come
  const char* nothing;  // beside those of a last one
};
constexpr Lines UNICODE = {"├── ", "└── ", "│   ", "    "};
constexpr Lines ASCII = {"|-- ", "`-- ", "|   ", "    "};

// The counts of every key in the order in which a walk meets them.
std::vector<Counts> counts_of_keys(Tree_Node* top) {
  std::vector<Counts> counts;
  std::vector<size_t> open;  // those of the keys on the way
  const auto close = [&] {
    const Counts done = counts[open.back()];
    open.pop_back();
    if (open.empty()) return;
    counts[open.back()].keys += done.keys;
    counts[open.back()].values += done.values;
  };
  for (Tree_Walk walk(top); walk; walk.Next()) {
    while (open.size() > walk.Depth()) close();
    if (!open.empty()) ++(walk->IsLeaf() ? counts[open.back()].values : counts[open.back()].keys);
    if (walk->IsLeaf()) continue;
    open.push_back(counts.size());
    counts.emplace_back();
  }
  while (!open.empty()) close();
  return counts;
}

class Drawing {
 public:
  Drawing(Session& session, Tree_Node* top)
      : m_arguments(session.arguments),
        m_out(session.out),
        m_lines(session.out.is_utf8() ? UNICODE : ASCII) {
    if (m_arguments.counts) m_counts = counts_of_keys(top);
  }

  void draw(Tree_Node* top, const std::string& path) {
    m_out.shown(path + key_ending());
    if (m_arguments.depth != 0) open(top);
    while (!m_open.empty() && !m_out.is_closed()) {
      Level& level = m_open.back();
      if (level.at == Tree_ChildList::npos) {
        m_prefix.resize(level.prefix_length);
        m_open.pop_back();
        continue;
      }
      Tree_Node* node = level.children->at(level.at).get();
      level.at = next_shown(*level.children, level.at + 1);
      draw_child(node, level.at == Tree_ChildList::npos);
    }
  }

 private:
  struct Level {
    const Tree_ChildList* children;
    uint32_t at;           // of the child drawn next
    size_t prefix_length;  // beside its key
  };

  uint32_t next_shown(const Tree_ChildList& children, uint32_t place) const {
    uint32_t at = children.next(place);
    while (m_arguments.keys_only && at != children.npos && children.at(at)->IsLeaf()) {
      at = children.next(at + 1);
    }
    return at;
  }

  void open(Tree_Node* key) {
    m_open.push_back({key->Children(), next_shown(*key->Children(), 0), m_prefix.size()});
  }

  void draw_child(Tree_Node* node, bool is_last) {
    const bool is_drawn = m_open.size() <= DRAWN_LEVELS;
    std::string line = m_prefix;
    line += is_drawn ? (is_last ? m_lines.last_child : m_lines.child)
                     : "(" + std::to_string(m_open.size()) + ") ";
    line += node->NameView();
    if (node->IsLeaf()) {
      m_out.shown(line + " = " + std::string(node->GetText()));
      return;
    }
    m_out.shown(line + key_ending());
    const bool is_cut = m_arguments.depth >= 0 && m_open.size() >= size_t(m_arguments.depth);
    if (!is_cut) {
      open(node);
      if (is_drawn) m_prefix += is_last ? m_lines.nothing : m_lines.past;
    } else if (m_arguments.counts) {
      m_keys_seen += m_counts[m_keys_seen - 1].keys;  // those that are not drawn
    }
  }

  // What follows the name of the key that comes next in the order of the walk.
  std::string key_ending() {
    return m_arguments.counts ? "\\  (" + counts_text(m_counts[m_keys_seen++]) + ")" : "\\";
  }

  const Arguments& m_arguments;
  Output& m_out;
  const Lines& m_lines;
  std::vector<Level> m_open;
  std::string m_prefix;
  std::vector<Counts> m_counts;
  size_t m_keys_seen = 0;
};

// Keys are objects and values are strings. A key that is left out for its depth is null.
void print_nested(Output& out, Tree_Node* top, const Arguments& arguments) {
  size_t open = 0;
  bool is_first = true;
  const auto close_to = [&](size_t depth) {
    for (; open > depth; --open, is_first = false) out.write("}");
  };
  for (Tree_Walk walk(top); walk && !out.is_closed(); walk.Next()) {
    const size_t depth = walk.Depth();
    const size_t limit = arguments.depth < 0 ? size_t(-1) : static_cast<size_t>(arguments.depth);
    if (depth > limit || (walk->IsLeaf() && arguments.keys_only)) continue;
    close_to(depth);
    if (!is_first) out.write(",");
    is_first = false;
    if (depth > 0) out.write(json_line(walk->NameView()) + ":");
    if (walk->IsLeaf()) {
      out.write(json_line(walk->GetText()));
    } else if (depth == limit && depth > 0) {
      out.write("null");
    } else {
      out.write("{");
      is_first = true;
      ++open;
    }
  }
  close_to(0);
}

}  // namespace

int run_tree(Session& session) {
  const Arguments& arguments = session.arguments;
  Store& store = session.store();
  const std::string path = arguments.path.empty() ? store.root() : store.path(arguments.path);
  Tree_Node& top = store.key(path);
  if (!arguments.json) {
    Drawing(session, &top).draw(&top, path);
    return DONE;
  }
  const Counts counts = count_below(&top);
  session.out.write("{\"path\":" + json_line(path) + ",\"keys\":" + std::to_string(counts.keys) +
                    ",\"values\":" + std::to_string(counts.values) + ",\"tree\":");
  print_nested(session.out, &top, arguments);
  session.out.line("}");
  return DONE;
}

}  // namespace cli
