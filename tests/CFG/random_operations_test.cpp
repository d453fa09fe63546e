// The same operations, thousands of them in random order, on every kind of repository: all give
// the same answers and end with the same tree. Where they differ by design they are not compared:
// - Names come in the order of the tree or, from a database, of their bytes: lists are compared
//   as sets, reads by position all positions together, and of a first match only that there is
//   one, and that it is one.
// - A database has no list for a key without children, refuses to rename a value, and is content
//   when what is to be deleted is not there, or is of the other kind: such operations are left out.
// - A memory repository keeps keys without values in reads of values only, where they hide others
//   in merges: they are dropped here, and nothing is merged.
// - A memory repository answers wildcard trees with all of the tree, and lists no values.
// - A service does not say which rule found a tree, whose path is left out, and gives the rule
//   that found a value with its properties in place.
// - What has no database behind it cannot roll back: its tree is put back here.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <random>

#include <servers/Test_Seed.h>
#include <tree/Tree_Node.h>
#include "repository_worlds.h"

namespace {

using Repository = CFG_RepositoryServicesImp;

// The first is the model.
const auto kinds = available({MEMORY, XML_FILE, DB_SQLITE, DB_POSTGRES, REMOTE_SQLITE,
                              REMOTE_POSTGRES, CACHED_XML, CACHED_SQLITE, CACHED_REMOTE});
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kOperations = 2000;  // everything is slower here
#else
constexpr int kOperations = 10000;
#endif
constexpr int kCompareEvery = 250;

// --- answers as text -----------------------------------------------------------------------------

std::string joined(std::vector<std::string> parts) {
  std::sort(parts.begin(), parts.end());
  std::string text;
  for (const std::string& part : parts) text.append(part).append(",");
  return text;
}

std::string sorted(String_Arr* names) {
  const std::unique_ptr<String_Arr> owned(names);
  std::vector<std::string> parts;
  for (int i = 0; owned && i < owned->GetArrLen(); ++i) parts.push_back(owned->GetStr(i));
  return joined(parts);
}

std::string sorted(const Tree_Node& node) {
  if (node.IsLeaf()) return std::string(node.NameView()) + "=" + std::string(node.GetText());
  std::vector<std::string> children;
  for (int i = 0; i < node.GetChildCount(); ++i) {
    children.push_back(sorted(*const_cast<Tree_Node&>(node).GetChildAt(i)));
  }
  return std::string(node.NameView()) + "{" + joined(children) + "}";
}
std::string sorted(CFG_SubTree* tree) {
  const SubTreePtr owned(tree);
  if (!owned) return "NULL";
  return owned->GetPath().str() + ": " + sorted(*owned->GetData());
}
std::string with_values(CFG_SubTree* tree) {
  if (tree) tree->GetData()->RemoveEmptyBranches();
  return sorted(tree);
}
CFG_SubTree* without_path(CFG_SubTree* tree) {
  if (tree) tree->GetData()->SetVirtualParentPath("");
  return tree;
}

std::string yes(int answer) { return answer ? "yes" : "no"; }

// --- what is drawn for an operation --------------------------------------------------------------

class Dice {
 public:
  explicit Dice(unsigned seed) : m_random(seed) {}
  size_t below(size_t n) { return m_random() % n; }
  bool one_in(size_t n) { return below(n) == 0; }

  const char* name() {
    static constexpr const char* names[] = {"a", "b", "c-d", "\xC3\xA4", "v", "w x", "halvoria"};
    return names[below(std::size(names))];
  }
  RWCString path(size_t most) {
    RWCString path("halvoria\\t");
    for (size_t n = below(most + 1); n > 0; --n) path = path + "\\" + name();
    return path;
  }
  RWCString text() {
    if (one_in(20)) return std::string(3000 + below(3000), 'x') + name();
    static constexpr const char* texts[] = {"1",         "-2.5",  "TRUE",
                                            "Some text", "<&\">", "\xE2\x82\xAC"};
    return texts[below(std::size(texts))];
  }
  // Without texts that are empty.
  CFG_SubTree tree(const char* root) {
    CFG_SubTree tree{RWCString(root)};
    for (size_t n = below(6); n > 0; --n) {
      RWCString at(name());
      for (size_t depth = below(3); depth > 0; --depth) at = at + "\\" + name();
      if (one_in(5)) {
        tree.GetData()->GetOrCreateRelativeNode(Tree_Path(at), tree.GetData());
      } else {
        tree.SetValue(at, text());
      }
    }
    return tree;
  }

 private:
  std::mt19937 m_random;
};

struct Draw {
  explicit Draw(Dice& dice)
      : path(dice.path(4)), name(dice.name()), text(dice.text()), tree(dice.tree(dice.name())) {
    if (!dice.one_in(8)) return;
    const size_t at = sizeof "halvoria\\t" - 1;  // the first component is the root's, as it is
    path = RWCString("halvoria\\<test_t>") + path.subString(at);
    for (size_t i = at + 9; i < path.length(); ++i)
      path[i] = static_cast<char>(std::toupper(path[i]));
  }
  RWCString child() const { return path + "\\" + name; }

  RWCString path, name, text;
  mutable CFG_SubTree tree;
};

// --- operations ----------------------------------------------------------------------------------

bool is_key(Repository& r, const RWCString& path) { return r.IsSubTreeExist(path); }
bool is_value(Repository& r, const RWCString& path) { return !r.GetValue(path).isNull(); }
bool always(Repository&, const Draw&) { return true; }

struct Operation {
  const char* name;
  size_t weight;
  std::string (*run)(Repository& r, const Draw& d);
  bool (*applies)(Repository& model, const Draw& d) = always;
};

const Operation operations[] = {
    {"SetValue", 30, [](Repository& r, const Draw& d) { return yes(r.SetValue(d.path, d.text)); }},
    {"DeleteValue", 8, [](Repository& r, const Draw& d) { return yes(r.DeleteValue(d.path)); },
     [](Repository& r, const Draw& d) { return !is_key(r, d.path); }},
    {"DeleteSubTree", 4, [](Repository& r, const Draw& d) { return yes(r.DeleteSubTree(d.path)); },
     [](Repository& r, const Draw& d) { return is_key(r, d.path); }},
    {"AddOrReplaceSubTree", 8,
     [](Repository& r, const Draw& d) { return yes(r.AddOrReplaceSubTree(&d.tree, d.path)); }},
    {"AddOrReplaceSubTree, merged", 6,
     [](Repository& r, const Draw& d) {
       return yes(r.AddOrReplaceSubTree(&d.tree, d.path, TRUE));
     }},
    {"AddOrReplaceSubTreeWithLongValues", 3,
     [](Repository& r, const Draw& d) {
       return yes(r.AddOrReplaceSubTreeWithLongValues(&d.tree, d.path, TRUE));
     }},
    {"AddMoreInfoToSubTree", 4,
     [](Repository& r, const Draw& d) { return yes(r.AddMoreInfoToSubTree(&d.tree, d.path)); }},
    {"SetSubTree", 3,
     [](Repository& r, const Draw& d) { return yes(r.SetSubTree(&d.tree, d.path, TRUE)); }},
    {"CompareSubsAndChangeRepository", 2,
     [](Repository& r, const Draw& d) {
       const SubTreePtr stored(r.GetSubTree(d.path + "\\" + d.tree.GetKeyName()));
       r.CompareSubsAndChangeRepository(&d.tree, stored.get(), d.path);
       return std::string();
     },
     [](Repository& r, const Draw& d) { return is_key(r, d.path + "\\" + d.tree.GetKeyName()); }},
    {"SetKeyName", 5,
     [](Repository& r, const Draw& d) { return yes(r.SetKeyName(d.path, d.name)); },
     [](Repository& r, const Draw& d) {
       const size_t cut = d.path.last('\\');
       return d.path.view().substr(0, cut) != "halvoria" && !is_value(r, d.path);
     }},
    {"WriteBlobFromUTF8String", 2,
     [](Repository& r, const Draw& d) {
       return yes(r.WriteBlobFromUTF8String(d.child().data(), d.text, d.text.length() % 2, ""));
     }},

    {"GetValue", 10, [](Repository& r, const Draw& d) { return r.GetValue(d.path).str(); }},
    {"GetValue with a default", 4,
     [](Repository& r, const Draw& d) { return r.GetValue(d.path, "none").str(); }},
    {"GetDoubleValue", 4,
     [](Repository& r, const Draw& d) {
       return std::to_string(r.GetDoubleValueWrapper(d.path, 7)) +
              std::to_string(r.GetIntegerValueWrapper(d.path, 7)) +
              std::to_string(r.GetBooleanValueWrapper(d.path, true));
     }},
    {"reads by position", 4,
     [](Repository& r, const Draw& d) {
       std::vector<std::string> parts;
       const int values = r.GetValueNum(d.path), keys = r.GetSubTreeNum(d.path);
       for (int i = -1; i <= values; ++i) {
         parts.push_back(r.GetValueName(d.path, i).str() + "=" + r.GetValue(d.path, i).str());
       }
       for (int i = 0; i <= keys; ++i) parts.push_back(sorted(r.GetSubTree(d.path, i)));
       return joined(parts);
     }},
    {"counts", 4,
     [](Repository& r, const Draw& d) {
       return std::to_string(r.GetSubTreeEntriesCount(d.path)) + yes(r.IsSubTreeExist(d.path));
     }},
    {"GetSubTreePaths", 4,
     [](Repository& r, const Draw& d) { return sorted(r.GetSubTreePaths(d.path)); }},
    {"GetSubTreeValues", 4,
     [](Repository& r, const Draw& d) {
       const std::unique_ptr<Tree_PathAndValueArray> records(r.GetSubTreeValues(d.path));
       std::vector<std::string> parts;
       for (int i = 0; records && i < records->m_count; ++i) {
         parts.push_back(std::string(records->GetPV(i)->GetPath()) + "=" +
                         records->GetPV(i)->GetValue());
       }
       return joined(parts);
     }},
    {"GetSubTree", 6, [](Repository& r, const Draw& d) { return sorted(r.GetSubTree(d.path)); }},
    {"GetSubTreeWithLongValues", 3,
     [](Repository& r, const Draw& d) { return sorted(r.GetSubTreeWithLongValues(d.path)); }},
    {"reads of values only", 4,
     [](Repository& r, const Draw& d) {
       return with_values(r.GetSubTreeOnlyWithValues(d.path)) +
              with_values(r.GetSubTreeOnlyWithValuesLong(d.path)) +
              with_values(r.GetSubTreeOnlyWithValuesWithPrecentAndWildcard(d.path));
     }},
    {"reads by rule", 5,
     [](Repository& r, const Draw& d) {
       const char* rule[] = {d.path.data(), "halvoria\\t\\a", "halvoria\\t"};
       const std::unique_ptr<Tree_ValueAndPath> value(r.GetValue(d.name, rule, 3));
       return sorted(without_path(r.GetSubTree(d.name, rule, TRUE, 3))) +
              sorted(without_path(r.GetSubTree(d.name, rule, FALSE, 3))) +
              with_values(without_path(r.GetSubTreeOnlyWithValues(d.name, rule, FALSE, 3))) +
              (value ? r.change_string_with_properties(value->GetPath()).str() : "NULL");
     }},
    {"Search", 4, [](Repository& r, const Draw& d) { return sorted(r.Search(d.name, d.path)); }},
    {"FillPath", 4,
     [](Repository& r, const Draw& d) {
       return sorted(r.FillPath("halvoria\\t\\%\\%")) +
              sorted(r.FillPath("halvoria\\%\\" + d.name + "\\%"));
     }},
    {"FillPath by value", 4,
     [](Repository& r, const Draw& d) {
       const RWCString found = r.FillPath("halvoria\\t\\%", d.name, d.text);
       EXPECT_TRUE(found.isNull() || r.GetValue(found + "\\" + d.name) == d.text) << found;
       return yes(!found.isNull());
     }},
    {"ReadBlobToUTF8String", 2,
     [](Repository& r, const Draw& d) {
       RWCString text;
       const bool is_read = r.ReadBlobToUTF8String(d.child().data(), text, nullptr);
       return yes(is_read) + text.str();
     }},
};

const Operation& drawn_operation(Dice& dice) {
  size_t sum = 0;
  for (const Operation& operation : operations) sum += operation.weight;
  size_t at = dice.below(sum);
  const Operation* chosen = operations;
  for (; at >= chosen->weight; ++chosen) at -= chosen->weight;
  return *chosen;
}

// --- the run -------------------------------------------------------------------------------------

// The worlds under test, each with its tree as it was when the update began.
class Worlds {
 public:
  Worlds() {
    // What runs in a process of its own begins first: a fork takes the locks of all worlds, and
    // the sanitizer of threads knows no more than 64 that a thread holds.
    for (const WorldKind kind : kinds) {
      if (world_traits[kind].is_database) World(kind, tree_of("halvoria", {{"t", ""}}));
    }
    for (const WorldKind kind : kinds) {
      m_worlds.push_back(std::make_unique<World>(kind, tree_of("halvoria", {{"t", ""}})));
    }
    m_worlds[0]->services().SetProperty("test_t", "T");
  }

  Repository& model() { return m_worlds[0]->repository(); }

  bool is_same(const Operation& operation, const Draw& draw) {
    if (!operation.applies(model(), draw)) return true;
    return is_same(operation.name, [&](World& w) { return operation.run(w.repository(), draw); }) ||
           (ADD_FAILURE() << operation.name << " of " << draw.path << ", " << draw.name << ", "
                          << draw.text.subString(0, 20) << ", " << shown(draw.tree).substr(0, 300),
            false);
  }
  bool is_same_tree() {
    return is_same("the tree", [](World& w) {
      Repository& r = w.repository();
      EXPECT_EQ(r.GetSubTreeEntriesCount("halvoria"),
                SubTreePtr(r.GetSubTree("halvoria"))->GetSubTreeEntriesCount(""));
      return sorted(r.GetSubTree("halvoria"));
    });
  }

  void begin() {
    m_before.clear();
    for (const auto& world : m_worlds) {
      m_before.emplace_back(world->repository().GetSubTree("halvoria"));
      EXPECT_TRUE(world->repository().StartTransactionUpdate());
    }
  }
  void end(bool rollback) {
    for (size_t i = 0; i < m_worlds.size(); ++i) {
      Repository& repository = m_worlds[i]->repository();
      if (rollback && m_worlds[i]->traits().holds_tree) {
        EXPECT_TRUE(repository.AddOrReplaceSubTree(m_before[i].get(), ""));
      }
      EXPECT_TRUE(repository.EndTransactionUpdate(rollback));
    }
  }

 private:
  template <class Answer>
  bool is_same(const char* what, Answer answer) {
    const std::string expected = answer(*m_worlds[0]);
    bool is_equal = true;
    for (size_t i = 1; i < m_worlds.size(); ++i) {
      const std::string other = answer(*m_worlds[i]);
      if (other == expected) continue;
      is_equal = false;
      const auto differs =
          std::mismatch(expected.begin(), expected.end(), other.begin(), other.end());
      const auto at = static_cast<size_t>(differs.first - expected.begin());
      const size_t from = at < 500 ? 0 : at - 500;
      ADD_FAILURE() << what << ": from byte " << at << " on differs " << kinds[i] << "\n  "
                    << other.substr(from, 1000) << "\nfrom " << kinds[0] << "\n  "
                    << expected.substr(from, 1000);
    }
    return is_equal;
  }

  std::vector<std::unique_ptr<World>> m_worlds;
  std::vector<SubTreePtr> m_before;
};

TEST(RandomOperations, GiveTheSameAnswersAndTreesOnEveryKindOfRepository) {
  const unsigned seed = test_seed();
  Dice dice(seed);
  Worlds worlds;
  int left_in_update = 0;
  for (int i = 0; i < kOperations; ++i) {
    const Draw draw(dice);
    ASSERT_TRUE(worlds.is_same(drawn_operation(dice), draw))
        << "operation " << i << ", seed " << seed;
    if (i % kCompareEvery == 0) {
      ASSERT_TRUE(worlds.is_same_tree()) << "operation " << i << ", seed " << seed;
    }
    if (left_in_update > 0 && --left_in_update == 0) {
      worlds.end(dice.one_in(2));
    } else if (left_in_update == 0 && dice.one_in(8)) {
      worlds.begin();
      left_in_update = 1 + static_cast<int>(dice.below(60));
    }
  }
  if (left_in_update > 0) worlds.end(false);
  EXPECT_TRUE(worlds.is_same_tree()) << "seed " << seed;
}

}  // namespace
