// Operations over one key with more and more children: what a child costs must not grow with
// the number of children, beyond what caches and logarithms explain.
#include <functional>
#include <memory>
#include <stdexcept>

#include <unistd.h>

#include <CFG/CFG_IteratorTree.h>
#include <CFG/CFG_IteratorValue.h>
#include <CFG/CFG_MemoryRepository.h>
#include <CFG/CFG_SubTree.h>
#include <CFG/CFG_Utils.h>
#include <common/clock.h>
#include <common/suite.h>
#include <tree/Tree_Node.h>

namespace bench {
namespace {

// A key with as many keys as values below it, in the order disk1, port1, disk2, port2 and so
// on; each of those keys has a key and a value. And a second tree like it.
struct wide_tree {
  int children;
  std::string scratch_file;
  std::vector<RWCString> keys, values;
  CFG_SubTree tree{RWCString("tree")};
  CFG_SubTree like{RWCString("tree")};
  CFG_MemoryRepository repository{&tree};

  wide_tree(int count, const std::string& scratch)
      : children(count), scratch_file(scratch + "/wide_tree.xml") {
    for (int i = 1; i <= count; ++i) {
      keys.emplace_back(RWCString("disk") += std::to_string(i));
      values.emplace_back(RWCString("port") += std::to_string(i));
      tree.SetValue(keys.back() + "\\place\\shelf", keys.back());
      tree.SetValue(keys.back() + "\\address", "10.1.2.3");
      tree.SetValue(values.back(), "104");
    }
    m_full = tree.GetData();
    restore();
  }
  // Both trees as they were at first.
  void restore() {
    tree = CFG_SubTree(m_full->DuplicateFromHereDown(TRUE));
    like = CFG_SubTree(m_full->DuplicateFromHereDown(TRUE));
  }
  RWWString file() const { return RWWString::fromUTF8(scratch_file); }

 private:
  Tree_NodePtr m_full;
};

struct failed {};
void need(bool done) {
  if (!done) throw failed();
}

void each(const std::vector<RWCString>& names, const std::function<bool(const RWCString&)>& work) {
  for (const RWCString& name : names) need(work(name));
}

template <class Iterator>
void walk(CFG_SubTree& tree, const char* prefix, int children,
          const std::function<void(Iterator&)>& see) {
  int seen = 0;
  for (Iterator at(&tree, prefix); at.is_valid(); ++at, ++seen) see(at);
  need(seen == children);
}

using String_ArrPtr = std::unique_ptr<String_Arr>;
using SubTreePtr = std::unique_ptr<CFG_SubTree>;

struct operation {
  const char* name;
  void (*run)(wide_tree&);
};

const operation operations[] = {
    {"GetSubTree by position",
     [](wide_tree& w) {
       for (int i = 0; i < w.children; ++i) need(SubTreePtr(w.tree.GetSubTree("", i)) != nullptr);
     }},
    {"GetValueName by position",
     [](wide_tree& w) {
       for (int i = 0; i < w.children; ++i) need(!w.tree.GetValueName("", i).isNull());
     }},
    {"GetValue by position",
     [](wide_tree& w) {
       for (int i = 0; i < w.children; ++i) need(!w.tree.GetValue("", i).isNull());
     }},
    {"DeleteSubTree from the front",
     [](wide_tree& w) { each(w.keys, [&](auto& name) { return w.tree.DeleteSubTree(name); }); }},
    {"DeleteSubTree from the back",
     [](wide_tree& w) {
       for (auto name = w.keys.rbegin(); name != w.keys.rend(); ++name) {
         need(w.tree.DeleteSubTree(*name));
       }
     }},
    {"DeleteValue from the front",
     [](wide_tree& w) { each(w.values, [&](auto& name) { return w.tree.DeleteValue(name); }); }},
    {"CFG_Utils::DeleteAllSubTrees",
     [](wide_tree& w) {
       CFG_Utils(&w.tree).DeleteAllSubTrees();
       need(w.tree.GetSubTreeNum("") == 0);
     }},
    {"CFG_Utils::DeleteAllValues",
     [](wide_tree& w) {
       CFG_Utils(&w.tree).DeleteAllValues();
       need(w.tree.GetValueNum("") == 0);
     }},
    {"CFG_IteratorTree",
     [](wide_tree& w) {
       walk<CFG_IteratorTree>(w.tree, "disk", w.children,
                              [](auto& at) { need(SubTreePtr(at.value()) != nullptr); });
     }},
    {"CFG_IteratorValue",
     [](wide_tree& w) {
       walk<CFG_IteratorValue>(w.tree, "port", w.children,
                               [](auto& at) { need(!at.value().isNull()); });
     }},
    {"SetValue of new values",
     [](wide_tree& w) {
       each(w.keys, [&](auto& name) { return w.tree.SetValue(name + "_address", "10.1.2.3"); });
     }},
    {"SetKeyName of each key",
     [](wide_tree& w) {
       each(w.keys, [&](auto& name) { return w.tree.SetKeyName(name, name + "b"); });
     }},
    {"AddOrReplaceSubTree of each key",
     [](wide_tree& w) {
       each(w.keys, [&](auto& name) {
         const SubTreePtr child(w.like.GetSubTree(name));
         return w.tree.AddOrReplaceSubTree(child.get(), "");
       });
     }},
    {"AddOrReplaceSubTree, merged",
     [](wide_tree& w) { need(w.repository.AddOrReplaceSubTree(&w.like, "", TRUE)); }},
    {"Tree_Node::Merge",
     [](wide_tree& w) {
       need(Tree_Node::Merge(w.tree.GetData(), w.like.GetData())->GetChildCount() ==
            2 * w.children);
     }},
    {"MergeSubTree", [](wide_tree& w) { need(w.tree.MergeSubTree(&w.like, "") == 0); }},
    {"MergeDeletionSubTree",
     [](wide_tree& w) {
       need(w.tree.MergeDeletionSubTree(&w.like) == 0);
       need(w.tree.GetValueNum("") == 0);
     }},
    {"FillPath",
     [](wide_tree& w) {
       const String_ArrPtr paths(w.repository.FillPath("tree\\%\\place"));
       need(paths && paths->GetArrLen() == w.children);
     }},
    {"FillPath for the last value",
     [](wide_tree& w) {
       need(!w.repository.FillPath("tree\\%\\place", "shelf", w.keys.back()).isNull());
     }},
    {"Search",
     [](wide_tree& w) {
       const String_ArrPtr paths(w.tree.Search("address", ""));
       need(paths && paths->GetArrLen() == w.children);
     }},
    {"GetSubTreePaths",
     [](wide_tree& w) { need(String_ArrPtr(w.tree.GetSubTreePaths("")) != nullptr); }},
    {"GetSubTreeOnlyWithValues",
     [](wide_tree& w) {
       need(SubTreePtr(w.repository.GetSubTreeOnlyWithValues("tree")) != nullptr);
     }},
    {"CompareSubsAndChangeRepository",
     [](wide_tree& w) { w.repository.CompareSubsAndChangeRepository(&w.like, &w.tree, "tree"); }},
    {"export and import",
     [](wide_tree& w) {
       need(w.repository.ExportPath("tree", w.file()));
       need(SubTreePtr(w.repository.ImportXmlFileAsCfgSubTree(w.file())) != nullptr);
     }},
};

std::string in_words(int children) { return grouped(static_cast<size_t>(children)) + " children"; }

double time_of(const operation& op, wide_tree& tree) try {
  return time_ns(CPU, [&] { op.run(tree); });
} catch (const failed&) {
  throw std::runtime_error(std::string(op.name) + " failed, " + in_words(tree.children));
}

}  // namespace

// Small sizes are run over and over, so that every sample sees the same number of children.
report children_suite(const scale& s) {
  std::vector<std::unique_ptr<wide_tree>> trees;
  for (const int children : s.children) {
    trees.push_back(std::make_unique<wide_tree>(children, s.scratch));
  }
  report result;
  for (const operation& op : operations) {
    rounds sizes;
    for (const auto& tree : trees) {
      sizes.add([&, w = tree.get()]() -> std::vector<double> {
        double time = 0;
        int done = 0;
        for (; done < s.children.back(); done += w->children) {
          w->restore();
          time += time_of(op, *w);
        }
        return {time / done};
      });
    }
    sizes.run(s.few_rounds);
    // Small trees fit into caches that large ones do not: only the last step has a target.
    for (size_t i = 1; i < trees.size(); ++i) {
      const bool is_last = i + 1 == trees.size();
      result.add({std::string(op.name) + ", " + in_words(s.children[i]),
                  "the same, " + in_words(s.children[i - 1]),
                  "ns/child",
                  is_last ? std::optional(2.0) : std::nullopt,
                  {}},
                 sizes.of(i), sizes.of(i - 1));
    }
  }
  ::unlink(trees.front()->scratch_file.c_str());
  return result;
}

}  // namespace bench
