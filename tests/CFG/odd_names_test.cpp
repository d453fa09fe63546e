// A real tree whose keys are renamed, moved, merged, imported and deleted under every name that a
// document can carry: every kind of repository ends with the tree that a map of paths ends with.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <random>

#include <servers/Test_Seed.h>
#include <tree/Tree_Node.h>
#include <tree/Tree_Walk.h>
#include "repository_worlds.h"
#include "xml/xml_documents.h"

namespace {

using Repository = CFG_RepositoryServicesImp;

const auto kinds = available({MEMORY, XML_FILE, DB_SQLITE, DB_POSTGRES, REMOTE_SQLITE});
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kSteps = 100, kPackages = 300;  // everything is slower here
#else
constexpr int kSteps = 300, kPackages = 1000000;
#endif
constexpr size_t kLongestPath = 2600;  // that every store takes
constexpr char kApplications[] = "halvoria\\system\\applications";

const std::string long_name(2000, 'n');
const std::string names[] = {"%",
                             "100%",
                             "a%b",
                             "%\xC3\xA4",
                             "halvoria",
                             "it's",
                             "say \"x\"",
                             "in between",
                             "tab\there",
                             "a < b",
                             "<&>",
                             "a&amp;b",
                             "\xC3\xA4",
                             "\xC3\xA8",
                             "\xC3\xA9",
                             "\xE6\x97\xA5",
                             "trailing.",
                             ".",
                             "..",
                             "-",
                             "[x]",
                             "]",
                             "^",
                             "a",
                             "a-b",
                             "a]b",
                             "chunk0000",
                             long_name,
                             long_name + "\xC3\xA8",
                             long_name + "\xC3\xA9"};

std::string under(const std::string& parent, const std::string& name) {
  return parent.empty() || name.empty() ? parent + name : parent + "\\" + name;
}

// --- the model -----------------------------------------------------------------------------------

// Texts by path; that of a key is empty. A tree of its own has paths from its top on, which is "".
using Entries = std::map<std::string, std::string>;

Entries entries_of(const Tree_NodePtr& tree) {
  Entries entries;
  for (Tree_PathsWalk walk(tree.get(), ""); walk; walk.Next()) {
    const size_t cut = walk.Path().find('\\');
    const std::string path = cut == std::string::npos ? "" : walk.Path().substr(cut + 1);
    entries[path] = walk->IsLeaf() ? walk->GetText() : std::string_view();
  }
  return entries;
}
Entries entries_of(CFG_SubTree* tree) {
  const SubTreePtr owned(tree);
  return owned ? entries_of(owned->GetData()) : Entries();
}

SubTreePtr tree_of(const std::string& name, const Entries& entries) {
  const Tree_NodePtr top(new Tree_Node(name));
  for (const auto& [path, text] : entries) {
    if (path.empty()) continue;
    const size_t cut = path.rfind('\\') + 1;  // npos + 1 is 0
    const Tree_NodePtr parent = top->GetOrCreateRelativeNode(Tree_Path(path.substr(0, cut)), top);
    text.empty() ? parent->AddKey(path.substr(cut)) : parent->AddValue(path.substr(cut), text, 1);
  }
  return std::make_unique<CFG_SubTree>(top);
}

// For who reads it.
std::string shortened(std::string text) {
  for (size_t at; (at = text.find(long_name)) != std::string::npos;) {
    text.replace(at, long_name.size(), "(long)");
  }
  return text;
}

std::string first_difference(const Entries& is, const Entries& should_be) {
  const auto at = std::mismatch(is.begin(), is.end(), should_be.begin(), should_be.end());
  const auto shown_at = [](auto entry, const Entries& all) {
    return entry == all.end() ? "the end" : "<" + entry->first + "> = <" + entry->second + ">";
  };
  return shortened(shown_at(at.first, is) + " where there should be " +
                   shown_at(at.second, should_be));
}

enum Merge { REPLACE, OVERWRITE, KEEP };

class Model {
 public:
  explicit Model(const Tree_NodePtr& tree) {
    for (auto& [path, text] : entries_of(tree)) m_entries[under("halvoria", path)] = text;
  }

  const Entries& entries() const { return m_entries; }
  bool has(const std::string& path) const { return m_entries.count(path); }
  bool is_key(const std::string& path) const {
    const auto found = m_entries.find(path);
    return found != m_entries.end() && found->second.empty();
  }
  bool is_value(const std::string& path) const { return has(path) && !is_key(path); }

  Entries tree_at(const std::string& top) const {
    Entries tree{{"", m_entries.at(top)}};
    for (auto at = m_entries.lower_bound(top + "\\"); at != m_entries.lower_bound(top + "]");
         ++at) {
      tree.emplace(at->first.substr(top.size() + 1), at->second);
    }
    return tree;
  }
  void erase(const std::string& top) {
    m_entries.erase(m_entries.lower_bound(top + "\\"), m_entries.lower_bound(top + "]"));
    m_entries.erase(top);
  }
  // Whether each store can have the tree there, and a merge need not choose between a key and a
  // value.
  bool can_take(const std::string& top, const Entries& tree, Merge merge) const {
    for (size_t cut = top.find('\\'); cut != std::string::npos; cut = top.find('\\', cut + 1)) {
      if (is_value(top.substr(0, cut))) return false;
    }
    return std::all_of(tree.begin(), tree.end(), [&](const auto& entry) {
      const std::string path = under(top, entry.first);
      return path.size() <= kLongestPath &&
             (merge == REPLACE || !has(path) || is_value(path) == !entry.second.empty());
    });
  }
  void put(const std::string& top, const Entries& tree, Merge merge) {
    if (merge == REPLACE) erase(top);
    for (size_t cut = top.find('\\'); cut != std::string::npos; cut = top.find('\\', cut + 1)) {
      m_entries.try_emplace(top.substr(0, cut));
    }
    for (const auto& [path, text] : tree) {
      if (merge == KEEP) {
        m_entries.try_emplace(under(top, path), text);
      } else {
        m_entries[under(top, path)] = text;
      }
    }
  }

 private:
  Entries m_entries;
};

// --- steps ---------------------------------------------------------------------------------------

struct Step {
  std::string what;
  std::function<int(Repository&)> run;
  int expected;
};

class Steps {
 public:
  Steps(unsigned seed, Model& model) : m_random(seed), m_model(model) {
    for (const auto& [path, text] : model.entries()) {
      if (text.empty() && path.find('\\', sizeof kApplications) == std::string::npos &&
          path.size() >= sizeof kApplications) {
        m_keys.push_back(path);
      }
    }
  }

  // What is drawn next, carried out on the model already.
  Step next() {
    for (;;) {
      Step step{"", nullptr, TRUE};
      switch (below(10)) {
        case 0:
        case 1:
          rename(step, key(), name());
          break;
        case 2:
          move(step, key(), under(parent(), name()));
          break;
        case 3:
        case 4:
          copy(step, key(), parent(), name(), static_cast<Merge>(below(3)), below(2));
          break;
        case 5:
          blob(step, under(parent(), name()));
          break;
        case 6:
          if (below(3) == 0) import(step, parent(), name(), static_cast<Merge>(below(3)));
          break;
        case 7:
          set_value(step, under(parent(), name()));
          break;
        case 8:
          read(step, key());
          break;
        default:
          remove(step, key());
      }
      if (step.run) return step;
    }
  }

 private:
  size_t below(size_t n) { return m_random() % n; }
  const std::string& name() { return names[below(std::size(names))]; }
  // Keys that were made here half of the time, else any package.
  std::string key() {
    for (;;) {
      const auto& from = m_made.empty() || below(2) ? m_keys : m_made;
      const std::string& drawn = from[below(from.size())];
      if (m_model.is_key(drawn)) return drawn;
    }
  }
  std::string parent() { return below(3) ? key() : below(2) ? "halvoria" : kApplications; }
  // With some of the names inside.
  Entries small_tree() {
    Entries tree{{"", ""}};
    for (size_t n = below(4); n > 0; --n) {
      const std::string inner = names[below(10)];
      tree[inner];
      tree[under(inner, "v" + name())] = "text of " + inner;
    }
    return tree;
  }
  bool put(const std::string& top, const Entries& tree, Merge merge) {
    if (!m_model.can_take(top, tree, merge)) return false;
    m_model.put(top, tree, merge);
    m_made.push_back(top);
    return true;
  }

  void rename(Step& step, const std::string& from, const std::string& name) {
    const std::string to = under(from.substr(0, from.rfind('\\')), name);
    const Entries tree = m_model.tree_at(from);
    if (!m_model.can_take(to, tree, REPLACE)) return;
    step.expected = to == from || !m_model.has(to);
    step.what = "rename " + from + " to " + name;
    step.run = [=](Repository& r) { return r.SetKeyName(from, name); };
    if (!step.expected || to == from) return;
    m_model.erase(from);
    put(to, tree, REPLACE);
  }

  void move(Step& step, const std::string& from, const std::string& to) {
    const bool is_inside =
        (to + "\\").starts_with(from + "\\") || (from + "\\").starts_with(to + "\\");
    if (is_inside || !put(to, m_model.tree_at(from), REPLACE)) return;
    m_model.erase(from);
    step.what = "move " + from + " to " + to;
    step.run = [=](Repository& r) {
      const size_t cut = to.rfind('\\');
      const SubTreePtr tree(r.GetSubTree(from));
      return tree && tree->SetKeyName("", to.substr(cut + 1)) &&
             r.AddOrReplaceSubTree(tree.get(), to.substr(0, cut)) && r.DeleteSubTree(from);
    };
  }

  void copy(Step& step, const std::string& from, const std::string& parent, const std::string& name,
            Merge merge, bool is_long) {
    if (!put(under(parent, name), m_model.tree_at(from), merge)) return;
    step.what = "copy " + from + " to " + under(parent, name) + ", merge " + std::to_string(merge) +
                (is_long ? ", long" : "");
    step.run = [=](Repository& r) {
      const SubTreePtr tree(is_long ? r.GetSubTreeWithLongValues(from) : r.GetSubTree(from));
      if (!tree || !tree->SetKeyName("", name)) return FALSE;
      if (merge == REPLACE) return r.AddOrReplaceSubTree(tree.get(), parent);
      if (merge == OVERWRITE) {
        return is_long ? r.AddOrReplaceSubTreeWithLongValues(tree.get(), parent, TRUE)
                       : r.AddOrReplaceSubTree(tree.get(), parent, TRUE);
      }
      return is_long ? r.AddMoreInfoToSubTreeWithLongValues(tree.get(), parent)
                     : r.AddMoreInfoToSubTree(tree.get(), parent);
    };
  }

  void blob(Step& step, const std::string& path) {
    const bool is_there = m_model.has(under(path, "chunk0000"));
    if (below(2)) {
      step.what = "read the blob " + path;
      step.expected = m_model.is_key(path);
      step.run = [=](Repository& r) {
        RWCString text;
        const bool is_read = r.ReadBlobToUTF8String(path.c_str(), text, nullptr);
        EXPECT_TRUE(is_there || text.isNull()) << text;
        return int{is_read};
      };
      // A key that is no blob has no text, and some have a chunk alone: whether that is a failure
      // is not looked at here.
      if (step.expected && !m_model.has(under(path, "blobencoding"))) step.run = nullptr;
      return;
    }
    const std::string text = "blob of " + std::to_string(path.size());
    const Entries entries{{"", ""}, {"blobencoding", "chunks_num=1"}, {"chunk0000", text}};
    if (!put(path, entries, REPLACE)) return;
    step.what = "write the blob " + path;
    step.run = [=](Repository& r) {
      RWCString read;
      return int{r.WriteBlobFromUTF8String(path.c_str(), text, false, "") &&
                 r.ReadBlobToUTF8String(path.c_str(), read, nullptr) && read == text.c_str()};
    };
  }

  void import(Step& step, const std::string& parent, const std::string& name, Merge merge) {
    const Entries tree = small_tree();
    const std::string top = under(parent, name);
    if (!put(top, tree, merge)) return;
    step.what = "import " + top + ", type " + std::to_string(merge + 1);
    step.run = [=](Repository& r) {
      const TemporaryFolder folder;
      const auto file = folder.file("small.xml");
      const SubTreePtr small = tree_of(name, tree);
      return r.ExportSubTreeToFile(small.get(), file, top) &&
             r.ImportXmlFileWithType(file, static_cast<Repository::CFG_XML_IMPORT_TYPE>(merge + 1));
    };
  }

  void set_value(Step& step, const std::string& path) {
    if (path.size() > kLongestPath) return;
    step.expected = !m_model.is_key(path);
    step.what = "set " + path;
    step.run = [=](Repository& r) { return r.SetValue(path, "value of " + path); };
    if (step.expected) m_model.put(path, {{"", "value of " + path}}, OVERWRITE);
  }

  void read(Step& step, const std::string& path) {
    const Entries tree = m_model.tree_at(path);
    step.what = "read and export " + path;
    step.run = [=](Repository& r) {
      const TemporaryFolder folder;
      const Entries found = entries_of(r.GetSubTree(path));
      EXPECT_TRUE(found == tree) << first_difference(found, tree);
      EXPECT_TRUE(r.ExportPath(path, folder.file("part.xml")));
      const SubTreePtr exported(r.ImportXmlFileAsCfgSubTree(folder.file("part.xml")));
      if (!exported) return FALSE;
      const Entries read = entries_of(exported->GetData());
      EXPECT_TRUE(read == tree) << first_difference(read, tree);
      return int{exported->GetData()->GetVirtualParentPath() == path.c_str()};
    };
  }

  void remove(Step& step, const std::string& path) {
    const Entries tree = m_model.tree_at(path);
    const auto value = std::find_if(tree.begin(), tree.end(),
                                    [](const auto& entry) { return !entry.second.empty(); });
    if (value != tree.end() && below(2)) {
      const std::string gone = under(path, value->first);
      step.what = "delete the value " + gone;
      step.run = [=](Repository& r) { return r.DeleteValue(gone); };
      return m_model.erase(gone);
    }
    step.what = "delete " + path;
    step.run = [=](Repository& r) { return r.DeleteSubTree(path); };
    m_model.erase(path);
  }

  std::mt19937 m_random;
  Model& m_model;
  std::vector<std::string> m_keys, m_made;
};

// --- the run -------------------------------------------------------------------------------------

SubTreePtr real_tree() {
  const std::string document = unpacked(HALVORIA_SOURCE_DIR "/../shared/data/packages.xml.gz");
  CFG_MemoryRepository reader(nullptr);
  SubTreePtr tree(
      reader.ImportXmlBufferAsCfgSubTree(reinterpret_cast<const unsigned char*>(document.data()),
                                         static_cast<unsigned>(document.size())));
  const Tree_NodePtr applications = SubTreePtr(tree->GetSubTree("system\\applications"))->GetData();
  while (applications->GetChildCount() > kPackages) {
    applications->Remove(applications->GetChildAt(applications->GetChildCount() - 1));
  }
  return tree;
}

TEST(OddNames, LeaveTheSameTreeInEveryRepository) {
  if (!std::filesystem::exists(HALVORIA_SOURCE_DIR "/../shared/data/packages.xml.gz")) {
    GTEST_SKIP() << "no tree of packages";
  }
  const SubTreePtr tree = real_tree();
  Model model(tree->GetData());
  std::vector<std::unique_ptr<World>> worlds;
  for (const WorldKind kind : kinds) {
    worlds.push_back(
        std::make_unique<World>(kind, CFG_SubTree(tree->GetData()->DuplicateFromHereDown(TRUE))));
  }
  const unsigned seed = test_seed();
  Steps steps(seed, model);
  for (int i = 0; i < kSteps; ++i) {
    const Step step = steps.next();
    for (const auto& world : worlds) {
      ASSERT_EQ(step.run(world->repository()), step.expected)
          << "step " << i << ", seed " << seed << ", " << kinds[&world - worlds.data()] << ": "
          << shortened(step.what);
    }
  }
  for (const auto& world : worlds) {
    const TemporaryFolder folder;
    Repository& repository = world->repository();
    EXPECT_TRUE(repository.UnLock());
    ASSERT_TRUE(repository.ExportPath("halvoria", folder.file("whole.xml")));
    const SubTreePtr read(repository.ImportXmlFileAsCfgSubTree(folder.file("whole.xml")));
    ASSERT_TRUE(read);
    const Entries content = Model(read->GetData()).entries();
    EXPECT_TRUE(content == model.entries()) << kinds[&world - worlds.data()] << ", seed " << seed
                                            << ": " << first_difference(content, model.entries());
  }
}

}  // namespace
