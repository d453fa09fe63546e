// Work that visits every node of a tree, beside a deep copy of the same tree.
#include <memory>
#include <stdexcept>

#include <CFG/CFG_SubTree.h>
#include <common/child.h>
#include <common/clock.h>
#include <common/our_tree.h>
#include <common/suite.h>
#include <common/touch_memory.h>
#include <tree/Tree_Walk.h>

namespace bench {
namespace {

// Two trees of the same keys; each value of the second has another text and is marked as a change.
struct two_trees {
  Tree_NodePtr base, other;

  explicit two_trees(const records& all)
      : base(build_tree(all)), other(base->DuplicateFromHereDown(TRUE)) {
    for (Tree_Walk at(other.get()); at; at.Next()) {
      if (!at->IsLeaf()) continue;
      at->GetTreeValue()->SetText(std::string(at->GetText()) + "7");
      at->GetTreeValue()->SetIsChange(TRUE);
    }
  }
};

// What the work made; it goes after the time is taken.
struct outcome {
  Tree_NodePtr tree;
  std::unique_ptr<String_Arr> paths;
  bool is_right = false;
};

struct work {
  const char* name;
  outcome (*run)(two_trees&, const records& all);
};

bool is_whole(const Tree_NodePtr& tree, const records& all) {
  return tree && tree->GetNodeNum() == static_cast<int>(all.size());
}
bool is_other(const Tree_NodePtr& tree, const records& all) {
  const std::string& last = all.back().path;
  const Tree_Node* value = tree->Find(std::string_view(last).substr(last.find('\\') + 1));
  return value && value->GetText() == all.back().value + "7";
}

const work all_work[] = {
    {"deep copy",
     [](two_trees& t, const records&) {
       return outcome{t.base->DuplicateFromHereDown(TRUE), nullptr, true};
     }},
    {"Merge, all values differ",
     [](two_trees& t, const records&) {
       return outcome{Tree_Node::Merge(t.base, t.other), nullptr, true};
     }},
    {"MergeSubTree, all values differ",
     [](two_trees& t, const records&) {
       CFG_SubTree base(t.base), other(t.other);
       const int answer = base.MergeSubTree(&other, "");
       return outcome{t.base, nullptr, answer == 0};
     }},
    {"GetChangesTreeNode, all values changed",
     [](two_trees& t, const records&) {
       return outcome{Tree_Node::GetChangesTreeNode(t.other), nullptr, true};
     }},
    {"Search, one found a host",
     [](two_trees& t, const records& all) {
       std::unique_ptr<String_Arr> paths(CFG_SubTree(t.base).Search("inet_address", ""));
       const bool is_right = static_cast<size_t>(paths->GetArrLen()) == all.size() / 51;
       return outcome{nullptr, std::move(paths), is_right};
     }},
};

double cost_of(const work& what, const records& all) {
  begin_with_empty_heap(all.size());
  two_trees trees(all);
  outcome made;
  const double time = time_ns(CPU, [&] { made = what.run(trees, all); });
  const bool is_copy = &what == all_work;
  if (made.tree) made.is_right &= is_whole(made.tree, all) && (is_copy || is_other(made.tree, all));
  if (!made.is_right) throw std::runtime_error(std::string("wrong answer: ") + what.name);
  return time / static_cast<double>(all.size());
}

}  // namespace

report merge_suite(const scale& s) {
  const records all = make_installation(s.hosts);
  rounds measured;
  for (const work& what : all_work) {
    measured.add([&] {
      return figures_in_child([&]() -> std::vector<double> { return {cost_of(what, all)}; });
    });
  }
  measured.run(s.few_rounds);
  report result;
  for (rounds::id i = 1; i < std::size(all_work); ++i) {
    result.add({all_work[i].name, "a deep copy of the same tree", "ns/node", 2.0, 1.2},
               measured.of(i), measured.of(0));
  }
  return result;
}

}  // namespace bench
