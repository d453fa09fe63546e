#include "differences.h"

#include <tree/Tree_Walk.h>

#include "paths.h"

namespace cli {

namespace {

template <class Visit>
void for_each_child(const Tree_Node* node, Visit&& visit) {
  const Tree_ChildList* children = node->Children();
  if (!children) return;
  for (uint32_t at = children->next(0); at != Tree_ChildList::npos; at = children->next(at + 1)) {
    visit(children->at(at).get());
  }
}

// Goes through a node and all below it as (path, node).
template <class Visit>
void for_each_within(Tree_Node* top, Visit&& visit) {
  const std::string path = top->GetPath().str();
  for (Tree_PathsWalk walk(top, parent_of(path)); walk; walk.Next()) visit(walk.Path(), *walk);
}

void print_side(Output& out, char sign, Tree_Node* top) {
  for_each_within(top, [&](const std::string& path, Tree_Node* node) {
    if (out.is_closed()) return;
    std::string line = std::string(1, sign) + ' ' + path;
    line += node->IsLeaf() ? " = " + std::string(node->GetText()) : "\\";
    out.line(printable(line));  // whole: the end may be all that differs
  });
}

void print_side(JsonRows& rows, const char* change, const char* text_name, Tree_Node* top,
                size_t skipped) {
  for_each_within(top, [&](const std::string& path, Tree_Node* node) {
    Json element = {{"change", change}, {"path", path.substr(std::min(skipped, path.size()))}};
    if (node->IsLeaf()) element[text_name] = node->GetText();
    rows.row(element);
  });
}

}  // namespace

std::vector<Difference> find_differences(Tree_Node* left, Tree_Node* right) {
  std::vector<Difference> found;
  if (!left || !right) {
    const bool is_added = !left;
    if (left || right) {
      for_each_child(is_added ? right : left, [&](Tree_Node* node) {
        found.push_back(is_added ? Difference{nullptr, node} : Difference{node, nullptr});
      });
    }
    return found;
  }

  // Pairs of keys that both sides have; the last one is looked at next, and a child waits
  // behind those found after it, so each level is taken up in reverse.
  std::vector<Difference> open = {{left, right}};
  std::vector<Difference> below;
  while (!open.empty()) {
    const Difference pair = open.back();
    open.pop_back();
    if (!pair.left || !pair.right || pair.left->IsLeaf()) {
      found.push_back(pair);
      continue;
    }
    below.clear();
    for_each_child(pair.left, [&](Tree_Node* node) {
      Tree_Node* other = pair.right->Child(node->NameView());
      const bool is_same_kind = other && other->IsLeaf() == node->IsLeaf();
      if (!is_same_kind) {
        below.push_back({node, nullptr});
      } else if (!node->IsLeaf() || node->GetText() != other->GetText()) {
        below.push_back({node, other});
      }
    });
    for_each_child(pair.right, [&](Tree_Node* node) {
      const Tree_Node* other = pair.left->Child(node->NameView());
      if (!other || other->IsLeaf() != node->IsLeaf()) below.push_back({nullptr, node});
    });
    open.insert(open.end(), below.rbegin(), below.rend());
  }
  return found;
}

Counts count_below(const Tree_Node* node) {
  Counts counts;
  for (Tree_Walk walk(node->Children()); walk; walk.Next())
    ++(walk->IsLeaf() ? counts.values : counts.keys);
  return counts;
}

namespace {

std::string number_of(size_t count, const char* noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

}  // namespace

std::string counts_text(const Counts& counts) {
  return number_of(counts.keys, "key") + ", " + number_of(counts.values, "value");
}

ChangeCounts count_changes(const std::vector<Difference>& differences) {
  ChangeCounts counts;
  for (const Difference& difference : differences) {
    if (difference.left && difference.right) {
      ++counts.changed;
    } else if (difference.left) {
      counts.removed += static_cast<size_t>(difference.left->GetNodeNum());
    } else {
      counts.added += static_cast<size_t>(difference.right->GetNodeNum());
    }
  }
  return counts;
}

std::string changes_text(const ChangeCounts& counts) {
  return std::to_string(counts.added) + " added, " + std::to_string(counts.changed) + " changed, " +
         std::to_string(counts.removed) + " removed";
}

void print_differences(Output& out, const std::vector<Difference>& differences) {
  for (const Difference& difference : differences) {
    if (out.is_closed()) return;
    if (difference.left) print_side(out, '-', difference.left);
    if (difference.right) print_side(out, '+', difference.right);
  }
}

void print_differences(JsonRows& rows, const std::vector<Difference>& differences,
                       size_t left_skipped, size_t right_skipped) {
  for (const auto& [left, right] : differences) {
    if (left && right) {
      const std::string path = left->GetPath().str();
      rows.row({{"change", "changed"},
                {"path", path.substr(std::min(left_skipped, path.size()))},
                {"old", left->GetText()},
                {"new", right->GetText()}});
    } else if (left) {
      print_side(rows, "removed", "old", left, left_skipped);
    } else {
      print_side(rows, "added", "new", right, right_skipped);
    }
  }
}

}  // namespace cli
