// What every services object over a tree promises: the same rows over a handle and each kind of
// repository. What differs is a column.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>

#include <CFG/detail/path_validation.h>
#include <logging/Log_Capture.h>
#include <tree/Tree_Node.h>
#include "repository_worlds.h"

namespace {

const auto all_kinds = available({HANDLE, MEMORY, XML_FILE, DB_SQLITE, DB_POSTGRES, REMOTE_SQLITE,
                                  REMOTE_POSTGRES, CACHED_XML, CACHED_SQLITE, CACHED_REMOTE});
const auto repositories = available({MEMORY, XML_FILE, DB_SQLITE, DB_POSTGRES, REMOTE_SQLITE,
                                     REMOTE_POSTGRES, CACHED_XML, CACHED_SQLITE, CACHED_REMOTE});
constexpr WorldKind in_memory[] = {MEMORY, XML_FILE};

using Repository = CFG_RepositoryServicesImp;

bool is_database(WorldKind kind) { return world_traits[kind].is_database; }
bool is_remote(WorldKind kind) { return world_traits[kind].is_remote; }

CFG_SubTree sample() {
  return tree_of("halvoria", {{"version", "7"},
                              {"s\\name", "Clinic"},
                              {"s\\n\\n1\\p\\ip", "10.0.0.1"},
                              {"s\\n\\n2\\empty", ""},
                              {"s\\n\\n2\\p\\ip", "10.0.0.2"},
                              {"s\\zone", "A"}});
}

std::string list(String_Arr* names) {
  const std::unique_ptr<String_Arr> owned(names);
  if (!owned) return "NULL";
  std::string text;
  for (int i = 0; i < owned->GetArrLen(); ++i) text.append(i ? "," : "").append(owned->GetStr(i));
  return text;
}

std::string list(Tree_PathAndValueArray* records) {
  const std::unique_ptr<Tree_PathAndValueArray> owned(records);
  if (!owned) return "NULL";
  std::string text;
  for (int i = 0; i < owned->m_count; ++i) {
    text.append(i ? "," : "")
        .append(owned->GetPV(i)->GetPath())
        .append("=")
        .append(owned->GetPV(i)->GetValue());
  }
  return text;
}

// A tree whose names are as they are given, which no path is looked up for.
CFG_SubTree raw_tree(const char* name,
                     std::initializer_list<std::pair<std::string_view, const char*>> values) {
  const Tree_NodePtr top(new Tree_Node(name));
  for (const auto& [path, text] : values) {
    const size_t cut = path.rfind('\\') + 1;  // npos + 1 is 0
    EXPECT_TRUE(top->Put(path.substr(0, cut), new Tree_Node(path.substr(cut), text, 1)));
  }
  return CFG_SubTree(top);
}

// Those values below a node that are there, in the order in which they are asked for.
std::string texts(const Tree_Node* node, std::initializer_list<const char*> paths) {
  if (!node) return "none";
  std::string found;
  for (const char* path : paths) {
    const Tree_Node* value = node->Find(path);
    if (!value || !value->IsLeaf()) continue;
    found.append(found.empty() ? "" : " ").append(path).append("=").append(value->GetText());
  }
  return found;
}

// --- reads ---------------------------------------------------------------------------------------

using Ask = std::string (*)(CFG_Services&, RWCString path);
constexpr Ask value = [](CFG_Services& s, RWCString path) { return s.GetValue(path).str(); };
constexpr Ask value_0 = [](CFG_Services& s, RWCString path) { return s.GetValue(path, 0).str(); };
constexpr Ask value_1 = [](CFG_Services& s, RWCString path) { return s.GetValue(path, 1).str(); };
constexpr Ask before_first = [](CFG_Services& s, RWCString path) {
  return s.GetValue(path, -1).str() + s.GetValueName(path, -1).str() +
         shown(SubTreePtr(s.GetSubTree(path, -1)));
};
constexpr Ask name_1 = [](CFG_Services& s, RWCString path) {
  return s.GetValueName(path, 1).str();
};
constexpr Ask or_default = [](CFG_Services& s, RWCString path) {
  return s.GetValue(path, "none").str();
};
constexpr Ask values = [](CFG_Services& s, RWCString path) {
  return std::to_string(s.GetValueNum(path));
};
constexpr Ask keys = [](CFG_Services& s, RWCString path) {
  return std::to_string(s.GetSubTreeNum(path));
};
constexpr Ask entries = [](CFG_Services& s, RWCString path) {
  return std::to_string(s.GetSubTreeEntriesCount(path));
};
constexpr Ask records = [](CFG_Services& s, RWCString path) {
  return list(s.GetSubTreeValues(path));
};
constexpr Ask names = [](CFG_Services& s, RWCString path) { return list(s.GetSubTreePaths(path)); };
constexpr Ask exists = [](CFG_Services& s, RWCString path) {
  return std::to_string(s.IsSubTreeExist(path));
};
constexpr Ask key = [](CFG_Services& s, RWCString path) {
  return shown(SubTreePtr(s.GetSubTree(path)));
};
constexpr Ask key_1 = [](CFG_Services& s, RWCString path) {
  return shown(SubTreePtr(s.GetSubTree(path, 1)));
};
constexpr Ask key_path = [](CFG_Services& s, RWCString path) {
  const SubTreePtr found(s.GetSubTree(path));
  return found ? found->GetPath().str() : "NULL";
};
constexpr Ask by_rule = [](CFG_Services& s, RWCString path) {
  const RWCString none = path + "\\none", nodes = path + "\\n";
  const char* rule[] = {none.data(), nodes.data(), path.data()};
  return shown(SubTreePtr(s.GetSubTree("n1", rule, FALSE, 3)));
};
constexpr Ask merged_by_rule = [](CFG_Services& s, RWCString path) {
  const RWCString n2 = path + "\\n2", n1 = path + "\\n1";
  const char* rule[] = {n2.data(), n1.data()};
  return shown(SubTreePtr(s.GetSubTree("p", rule, TRUE, 2)));
};
constexpr Ask value_by_rule = [](CFG_Services& s, RWCString path) {
  const RWCString none = path + "\\none", n2 = path + "\\N2\\p", n1 = path + "\\n1\\p";
  const char* rule[] = {none.data(), n2.data(), n1.data()};
  const std::unique_ptr<Tree_ValueAndPath> found(s.GetValue("ip", rule, 3));
  if (!found) return std::string("NULL");
  return std::string(found->GetValue()) + (n2 == found->GetPath() ? " by n2" : found->GetPath());
};

constexpr Ask value_by_empty_rule = [](CFG_Services& s, RWCString path) {
  const char* rule[] = {"none", ""};
  const std::unique_ptr<Tree_ValueAndPath> found(s.GetValue(path, rule, 2));
  if (!found) return std::string("NULL");
  return std::string(found->GetValue()) + " by <" + found->GetPath() + ">";
};

struct ReadCase {
  Ask ask;
  const char* path;
  const char* expected;
  const char* database = nullptr;  // what a database itself answers; null: the same
};
const ReadCase read_cases[] = {
    {value, "s\\name", "Clinic"},
    {value, "S\\N\\<test_node>\\P\\ip", "10.0.0.2"},
    {value, "version", "7"},
    {value, "s\\n", ""},
    {value, "s\\name\\below", ""},
    {value, "none\\at\\all", ""},
    {value_0, "s", "Clinic"},
    {value_1, "s", "A"},
    {value_0, "", "7"},
    {value_1, "", ""},
    {before_first, "s", "NULL"},
    {name_1, "s", "zone"},
    {name_1, "none", ""},
    {or_default, "s\\zone", "A"},
    {or_default, "s\\none", "none"},
    {values, "s", "2"},
    {values, "s\\zone", "0"},
    {keys, "s\\n", "2"},
    {keys, "", "1"},
    {entries, "", "12"},
    {entries, "s\\n\\n2", "3"},
    {entries, "none", "0"},
    {records, "s", "name=Clinic,zone=A"},
    {records, "s\\n", "", "NULL"},
    {records, "none", "NULL"},
    {names, "s\\n", "n1,n2"},
    {names, "s\\n\\n1\\p", "", "NULL"},
    {names, "s\\zone", "NULL"},
    {names, "none", "NULL"},
    {exists, "s\\n", "1"},
    {exists, "s\\zone", "0"},
    {exists, "", "1"},
    {key, "s\\n\\n1", "n1{p{ip=10.0.0.1}}"},
    {key, "s\\zone", "NULL"},
    {key, "none", "NULL"},
    {key_1, "s\\n", "n2{empty{} p{ip=10.0.0.2}}"},
    {key_1, "s", "NULL"},
    {key_path, "s\\n\\n1", "halvoria\\s\\n\\n1"},
    {key_path, "", "halvoria"},
    {by_rule, "s", "n1{p{ip=10.0.0.1}}"},
    {merged_by_rule, "s\\n", "p{ip=10.0.0.2}"},
    {value_by_rule, "s\\n", "10.0.0.2 by n2"},
    {value_by_rule, "s", "NULL"},
    {value_by_empty_rule, "s\\n\\n1\\p\\ip", "10.0.0.1 by <>"},
};

TEST(Contract, EveryReadGivesTheSameAnswer) {
  for (const WorldKind kind : all_kinds) {
    World world(kind, sample());
    world.services().SetProperty("test_node", "N2");
    for (const ReadCase& c : read_cases) {
      const bool differs = is_database(kind) && !is_remote(kind) && c.database;
      const char* expected = differs ? c.database : c.expected;
      EXPECT_EQ(c.ask(world.services(), world.at(c.path)), expected)
          << "row " << &c - read_cases << ", path " << c.path << ", kind " << kind;
    }
  }
}

// --- writes --------------------------------------------------------------------------------------

using Write = int (*)(CFG_Services&, RWCString path);
constexpr Write set = [](CFG_Services& s, RWCString path) { return s.SetValue(path, "New"); };
constexpr Write set_empty = [](CFG_Services& s, RWCString path) { return s.SetValue(path, ""); };
constexpr Write remove_key = [](CFG_Services& s, RWCString path) { return s.DeleteSubTree(path); };
constexpr Write remove_value = [](CFG_Services& s, RWCString path) { return s.DeleteValue(path); };
constexpr Write rename = [](CFG_Services& s, RWCString path) {
  return s.SetKeyName(path, "Renamed");
};
constexpr Write rename_to_none = [](CFG_Services& s, RWCString path) {
  return s.SetKeyName(path, "");
};

template <int (CFG_Services::*Operation)(CFG_SubTree*, const RWCString&)>
int write_k(CFG_Services& s, RWCString path) {
  CFG_SubTree k = tree_of("k", {{"b", "new"}, {"sub\\c", "new"}});
  const int result = (s.*Operation)(&k, path);
  EXPECT_EQ(shown(k), "k{b=new sub{c=new}}") << "the caller's subtree was changed";
  return result;
}
constexpr Write add = write_k<&CFG_Services::AddOrReplaceSubTree>;
constexpr Write add_more = write_k<&CFG_Services::AddMoreInfoToSubTree>;
constexpr Write add_more_over_value = [](CFG_Services& s, RWCString path) {
  CFG_SubTree a = tree_of("a", {{"x", "new"}});
  if (auto* const repository = dynamic_cast<Repository*>(&s)) {
    EXPECT_FALSE(repository->AddMoreInfoToSubTreeWithLongValues(&a, path));
  }
  return s.AddMoreInfoToSubTree(&a, path);
};
constexpr Write add_merged = [](CFG_Services& s, RWCString path) {
  CFG_SubTree k = tree_of("k", {{"b", "new"}, {"sub\\c", "new"}});
  return s.AddOrReplaceSubTree(&k, path, TRUE);
};
constexpr Write add_null = [](CFG_Services& s, RWCString path) {
  return s.AddOrReplaceSubTree(nullptr, path);
};
constexpr Write add_root = [](CFG_Services& s, RWCString) {
  CFG_SubTree root = tree_of("halvoria", {{"only", "this"}});
  return s.AddOrReplaceSubTree(&root, "");
};
constexpr Write add_text = [](CFG_Services& s, RWCString path) {
  return int{s.WriteBlobFromUTF8String(path.data(), "text", false, "")};
};

struct WriteCase {
  Write write;
  const char* path;
  int expected;
  const char* content;                     // of "t{k{a=1 b=2}}" afterwards
  const char* database_content = nullptr;  // where that differs, from a TRUE
};
const WriteCase write_cases[] = {
    {set, "t\\k\\a", TRUE, "t{k{a=New b=2}}"},
    {set, "T\\New\\x", TRUE, "t{k{a=1 b=2} new{x=New}}"},
    {set, "t\\<test_key>\\a", TRUE, "t{k{a=New b=2}}"},
    {set, "t\\k", FALSE, "t{k{a=1 b=2}}"},
    {set, "t\\k\\a\\x", FALSE, "t{k{a=1 b=2}}"},
    {set_empty, "t\\k\\a", FALSE, "t{k{a=1 b=2}}"},
    {remove_key, "t\\k", TRUE, "t{}"},
    {remove_key, "t\\k\\a", FALSE, "t{k{a=1 b=2}}", "t{k{b=2}}"},
    {remove_key, "t\\none", FALSE, "t{k{a=1 b=2}}", "t{k{a=1 b=2}}"},
    {remove_value, "t\\k\\a", TRUE, "t{k{b=2}}"},
    {remove_value, "t\\none", TRUE, "t{k{a=1 b=2}}"},
    {remove_value, "t\\k", FALSE, "t{k{a=1 b=2}}", "t{k{a=1 b=2}}"},
    {rename, "t\\k", TRUE, "t{renamed{a=1 b=2}}"},
    {rename, "t\\none", FALSE, "t{k{a=1 b=2}}"},
    {rename_to_none, "t\\k", FALSE, "t{k{a=1 b=2}}"},
    {add, "t", TRUE, "t{k{b=new sub{c=new}}}"},
    {add, "t\\<test_key>\\deep", TRUE, "t{k{a=1 b=2 deep{k{b=new sub{c=new}}}}}"},
    {add, "t\\k\\a", FALSE, "t{k{a=1 b=2}}"},
    {add_merged, "t", TRUE, "t{k{a=1 b=new sub{c=new}}}"},
    {add_merged, "t\\n", TRUE, "t{k{a=1 b=2} n{k{b=new sub{c=new}}}}"},
    {add_more, "t", TRUE, "t{k{b=2 sub{c=new} a=1}}", "t{k{a=1 b=2 sub{c=new}}}"},
    {add_more_over_value, "t\\k", FALSE, "t{k{a=1 b=2}}"},
    {add_null, "t", FALSE, "t{k{a=1 b=2}}"},
    {add_text, "t\\blob", TRUE, "t{k{a=1 b=2} blob{chunk0000=text blobencoding=chunks_num=1}}",
     "t{blob{blobencoding=chunks_num=1 chunk0000=text} k{a=1 b=2}}"},
};

TEST(Contract, EveryWriteLeavesTheSameTree) {
  for (const WorldKind kind : all_kinds) {
    for (const WriteCase& c : write_cases) {
      World world(kind, tree_of("halvoria", {{"t\\k\\a", "1"}, {"t\\k\\b", "2"}}));
      world.services().SetProperty("test_key", "K");
      const auto where = testing::Message()
                         << "row " << &c - write_cases << ", path " << c.path << ", kind " << kind;
      const bool differs = is_database(kind) && c.database_content;
      const char* content = differs ? c.database_content : c.content;
      EXPECT_EQ(c.write(world.services(), world.at(c.path)), differs ? TRUE : c.expected) << where;
      EXPECT_EQ(world.content(), "halvoria{" + std::string(content) + "}") << where;
    }
    World world(kind, sample());
    EXPECT_TRUE(add_root(world.services(), ""));
    EXPECT_EQ(world.content(), "halvoria{only=this}") << kind;
  }
}

struct RenameCase {
  const char* path;
  RWCString name;
  int expected;
  const char* content;  // of "halvoria{k{sub{v=1}} leaf=2 other{w=3}}" afterwards, null: as it was
};
const RenameCase rename_cases[] = {
    {"halvoria", "other", FALSE, nullptr},
    {"halvoria\\", "x", FALSE, nullptr},
    {"halvoria", "Halvoria", TRUE, nullptr},
    {"halvoria\\k", "new\\", FALSE, nullptr},
    {"halvoria\\k", "a\\b", FALSE, nullptr},
    {"halvoria\\k", "\\", FALSE, nullptr},
    {"halvoria\\k", "", FALSE, nullptr},
    {"halvoria\\k", std::string_view("other\0x", 7), FALSE, nullptr},
    {"halvoria\\k", "Other", FALSE, nullptr},
    {"halvoria\\k", "leaf", FALSE, nullptr},
    {"halvoria\\k", "K", TRUE, nullptr},
    {"halvoria\\none", "none", FALSE, nullptr},
    {"halvoria\\k", "HALVORIA", TRUE, "halvoria{halvoria{sub{v=1}} leaf=2 other{w=3}}"},
    {"halvoria\\k\\", "100%", TRUE, "halvoria{100%{sub{v=1}} leaf=2 other{w=3}}"},
    {"halvoria\\k", "%", TRUE, "halvoria{%{sub{v=1}} leaf=2 other{w=3}}"},
    {"halvoria\\k", "a 'b' <&\"", TRUE, "halvoria{a 'b' <&\"{sub{v=1}} leaf=2 other{w=3}}"},
};

// In memory a path begins below the root, with its name or without.
TEST(Repository, HasOneRoot) {
  for (const WorldKind kind : repositories) {
    if (!is_database(kind)) continue;
    World world(kind, tree_of("halvoria", {{"a", "1"}}));
    Repository& repository = world.repository();
    for (const char* place : {"other", "halvoria2", "other\\halvoria"}) {
      CFG_SubTree tree = tree_of("k", {{"v", "1"}});
      EXPECT_FALSE(repository.AddOrReplaceSubTree(&tree, place)) << kind << ", " << place;
      EXPECT_FALSE(repository.SetValue(RWCString(place) + "\\v", "1")) << kind << ", " << place;
      EXPECT_FALSE(repository.IsSubTreeExist(place)) << kind << ", " << place;
    }
    EXPECT_EQ(world.content(), "halvoria{a=1}") << kind;
  }
}

// What is refused leaves nothing behind that the end of an update could carry out.
TEST(Repository, RenamesWholeOrNotAtAll) {
  const char before[] = "halvoria{k{sub{v=1}} leaf=2 other{w=3}}";
  const RWCString too_long(std::string(2586, 'n'));  // for a database, with what is below the key
  for (const WorldKind kind : repositories) {
    World world(kind, tree_of("halvoria", {{"k\\sub\\v", "1"}, {"leaf", "2"}, {"other\\w", "3"}}));
    Repository& repository = world.repository();
    for (const RenameCase& c : rename_cases) {
      for (const bool is_locked : {false, true}) {
        const auto where = testing::Message() << c.path << " to " << c.name << ", " << kind
                                              << (is_locked ? ", locked" : "");
        EXPECT_TRUE(!is_locked || repository.Lock());
        EXPECT_EQ(repository.SetKeyName(c.path, c.name), c.expected) << where;
        EXPECT_TRUE(!is_locked || repository.UnLock());
        EXPECT_EQ(world.content(), c.content ? c.content : before) << where;
        EXPECT_TRUE(!c.content || repository.SetKeyName("halvoria\\" + c.name, "k")) << where;
        EXPECT_EQ(world.content(), before) << where;
      }
    }
    // Validation keeps names out, but lets those go that are there.
    EXPECT_TRUE(repository.SetKeyName("halvoria\\k", "100%"));
    cfg::set_path_validation(true);
    EXPECT_FALSE(repository.SetKeyName("halvoria\\other", "50%")) << kind;
    EXPECT_TRUE(repository.SetKeyName("halvoria\\100%", "k")) << kind;
    cfg::set_path_validation(false);
    EXPECT_EQ(world.content(), before) << kind;
    EXPECT_TRUE(repository.Lock());
    EXPECT_EQ(repository.SetKeyName("halvoria\\k", too_long), !is_database(kind)) << kind;
    EXPECT_TRUE(repository.SetValue("halvoria\\leaf", "4"));
    EXPECT_TRUE(repository.UnLock());
    const RWCString name = is_database(kind) ? RWCString("k") : too_long;
    EXPECT_STREQ(repository.GetValue("halvoria\\" + name + "\\sub\\v").data(), "1") << kind;
    EXPECT_EQ(repository.GetSubTreeEntriesCount("halvoria"), 6) << kind;
    EXPECT_STREQ(repository.GetValue("halvoria\\leaf").data(), "4") << kind;
  }
}

// A path that is the root's names it as the parent of what is written, whatever that is called.
TEST(Repository, WritesBelowTheRootAlsoWhatIsNamedLikeIt) {
  const TemporaryFolder folder;
  CFG_SubTree added = tree_of("halvoria", {{"v", "new"}, {"w", "new"}});
  const RWWString file = folder.file("branch.xml");
  CFG_MemoryRepository writer(nullptr);
  ASSERT_TRUE(writer.ExportSubTreeToFile(&added, file, "halvoria\\halvoria"));
  const struct {
    const char* what;
    std::function<int(Repository&)> write;
    const char* child;
  } cases[] = {
      {"add", [&](Repository& r) { return r.AddOrReplaceSubTree(&added, "halvoria"); },
       "v=new w=new"},
      {"merge", [&](Repository& r) { return r.AddOrReplaceSubTree(&added, "halvoria", TRUE); },
       "v=new w=new"},
      {"merge long values",
       [&](Repository& r) { return r.AddOrReplaceSubTreeWithLongValues(&added, "halvoria", TRUE); },
       "v=new w=new"},
      {"keep", [&](Repository& r) { return r.AddMoreInfoToSubTree(&added, "halvoria"); },
       "v=old w=new"},
      {"set", [&](Repository& r) { return r.SetSubTree(&added, "halvoria", TRUE); }, "v=new w=new"},
      {"blob",
       [&](Repository& r) {
         return int{r.WriteBlobFromUTF8String("halvoria\\halvoria", "t", false, "")};
       },
       "blobencoding=chunks_num=1 chunk0000=t"},
      {"import 1",
       [&](Repository& r) {
         return r.ImportXmlFileWithType(file, Repository::CFG_XML_IMPORT_REPLACE);
       },
       "v=new w=new"},
      {"import 2", [&](Repository& r) { return r.ImportXmlFile(file, TRUE); }, "v=new w=new"},
      {"import 3", [&](Repository& r) { return r.ImportXmlFile(file, FALSE); }, "v=old w=new"},
  };
  for (const WorldKind kind : repositories) {
    for (const auto& c : cases) {
      World world(kind, tree_of("halvoria", {{"halvoria\\v", "old"}, {"k\\v", "1"}}));
      Repository& repository = world.repository();
      EXPECT_TRUE(c.write(repository)) << c.what << ", " << kind;
      const SubTreePtr whole(repository.GetSubTree("halvoria"));
      EXPECT_EQ(texts(whole->GetData()->Child("halvoria"), {"blobencoding", "chunk0000", "v", "w"}),
                c.child)
          << c.what << ", " << kind;
      EXPECT_STREQ(whole->GetValue("k\\v").data(), "1") << c.what << ", " << kind;
    }
  }
}

// A path with a `%` in it is a pattern for whoever asks for one: what is merged, exported or read
// as a blob is at that very path.
TEST(Repository, TakesAPercentSignForPartOfANameWhereAKeyIsMeant) {
  const TemporaryFolder folder;
  for (const WorldKind kind : repositories) {
    for (const std::string name : {"%", "50%", "a%b"}) {
      World world(kind, tree_of("halvoria", {{"k\\v", "1"}}));
      Repository& repository = world.repository();
      const auto where = testing::Message() << name << ", " << kind;
      const std::string path = "halvoria\\k\\" + name;
      CFG_SubTree added{RWCString(name)};
      added.SetValue("w", "2");
      RWCString text;
      EXPECT_FALSE(repository.ReadBlobToUTF8String(path.c_str(), text, nullptr)) << where;
      EXPECT_FALSE(repository.ExportPath(path, folder.file("part.xml"))) << where;
      EXPECT_TRUE(repository.AddMoreInfoToSubTreeWithLongValues(&added, "halvoria\\k")) << where;
      EXPECT_TRUE(repository.AddOrReplaceSubTree(&added, "halvoria\\k", TRUE)) << where;
      added.SetValue("x", "3");
      EXPECT_TRUE(repository.AddMoreInfoToSubTree(&added, "halvoria\\k")) << where;
      EXPECT_EQ(world.content(),
                "halvoria{k{" + (world.traits().holds_tree ? "v=1 " + name + "{w=2 x=3}}}"
                                                           : name + "{w=2 x=3} v=1}}"))
          << where;
      for (const SubTreePtr& read : {SubTreePtr(repository.GetSubTree(path)),
                                     SubTreePtr(repository.GetSubTreeWithLongValues(path))}) {
        EXPECT_EQ(shown(read), name + "{w=2 x=3}") << where;
        EXPECT_EQ(read->GetPath(), path.c_str()) << where;
      }
      EXPECT_TRUE(repository.ExportPath(path, folder.file("part.xml"))) << where;
      const SubTreePtr exported(repository.ImportXmlFileAsCfgSubTree(folder.file("part.xml")));
      EXPECT_EQ(shown(exported), name + "{w=2 x=3}") << where;
      EXPECT_TRUE(repository.SetValue(path + "\\w", "changed")) << where;
      EXPECT_TRUE(repository.ImportXmlFile(folder.file("part.xml"), FALSE)) << where;
      EXPECT_STREQ(repository.GetValue(path + "\\w").data(), "changed") << where;
      EXPECT_TRUE(repository.DeleteSubTree(path)) << where;
      EXPECT_EQ(world.content(), "halvoria{k{v=1}}") << where;
    }
  }
}

// A property of that name is set: what is stored is meant all the same once a caller's path has had
// its placeholders replaced.
TEST(Repository, TakesAStoredNameForNoPlaceholder) {
  const char* const odd = "<stored_name>";
  CFG_SubTree given = raw_tree(odd, {{"in\\z", "new"}});
  CFG_SubTree unchanged = raw_tree(odd, {{"in\\z", "new"}});
  unchanged.GetData()->Find("in\\z")->GetTreeValue()->SetIsChange(0);
  const TemporaryFolder folder;
  const RWWString file = folder.file("branch.xml");
  CFG_MemoryRepository writer(nullptr);
  ASSERT_TRUE(writer.ExportSubTreeToFile(&given, file, RWCString("halvoria\\k\\") + odd));
  const char *all = "in\\y=old in\\z=new w=odd", *only_given = "in\\z=new";
  const struct {
    const char* what;
    std::function<int(Repository&)> write;
    const char* stored;
    int expected = TRUE;
  } cases[] = {
      {"add", [&](Repository& r) { return r.AddOrReplaceSubTree(&given, "halvoria\\k"); },
       only_given},
      {"add, unmerged",
       [&](Repository& r) { return r.AddOrReplaceSubTree(&given, "halvoria\\k", FALSE); },
       only_given},
      {"merge", [&](Repository& r) { return r.AddOrReplaceSubTree(&given, "halvoria\\k", TRUE); },
       all},
      {"merge long values",
       [&](Repository& r) {
         return r.AddOrReplaceSubTreeWithLongValues(&given, "halvoria\\k", TRUE);
       },
       all},
      {"keep", [&](Repository& r) { return r.AddMoreInfoToSubTree(&given, "halvoria\\k"); }, all},
      {"keep long values",
       [&](Repository& r) { return r.AddMoreInfoToSubTreeWithLongValues(&given, "halvoria\\k"); },
       all},
      {"set", [&](Repository& r) { return r.SetSubTree(&given, "halvoria\\k", TRUE); }, all},
      {"set without a change",
       [&](Repository& r) { return r.SetSubTree(&unchanged, "halvoria\\k"); }, "none", FALSE},
      {"import 1",
       [&](Repository& r) {
         return r.ImportXmlFileWithType(file, Repository::CFG_XML_IMPORT_REPLACE);
       },
       only_given},
      {"import 2", [&](Repository& r) { return r.ImportXmlFile(file, TRUE); }, all},
      {"import 3", [&](Repository& r) { return r.ImportXmlFile(file, FALSE); }, all},
      {"compare",
       [&](Repository& r) {
         const SubTreePtr k(r.GetSubTree("halvoria\\k"));
         CFG_SubTree stored(Tree_NodePtr(k->GetData()->Child(odd)));
         r.CompareSubsAndChangeRepository(&given, &stored, "halvoria\\k");
         return TRUE;
       },
       all},
      {"blob",
       [&](Repository& r) {
         RWCString text;
         const char* path = "halvoria\\k\\<stored_name>s";
         return int{r.WriteBlobFromUTF8String(path, "t", false, "") &&
                    r.ReadBlobToUTF8String(path, text, nullptr) && text == "t" &&
                    r.IsSubTreeExist("halvoria\\k\\alphas")};
       },
       "in\\y=old w=odd"},
      {"by position",
       [&](Repository& r) {
         return SubTreePtr(r.GetSubTree("halvoria\\k", 0))->GetKeyName() == odd;
       },
       "in\\y=old w=odd"},
      {"by rule",
       [&](Repository& r) {
         const char* rule[] = {"halvoria\\k\\alpha", "halvoria\\k\\<names_it>"};
         const SubTreePtr found(
             r.GetSubTreeOnlyWithValuesWithPrecentAndWildcard("", rule, TRUE, 2));
         return found && found->GetKeyName() == odd;
       },
       "in\\y=old w=odd"},
  };
  for (const WorldKind kind : repositories) {
    for (const auto& c : cases) {
      const CFG_SubTree tree = raw_tree("halvoria", {{"k\\<stored_name>\\in\\y", "old"},
                                                     {"k\\<stored_name>\\w", "odd"},
                                                     {"k\\alpha\\v", "precious"}});
      World world(kind, tree);
      Repository& repository = world.repository();
      EXPECT_TRUE(repository.SetProperty("stored_name", "alpha") &&
                  repository.SetProperty("names_it", odd));
      EXPECT_EQ(c.write(repository), c.expected) << c.what << ", " << kind;
      const SubTreePtr k(repository.GetSubTree("halvoria\\k"));
      EXPECT_EQ(texts(k->GetData()->Child(odd), {"in\\y", "in\\z", "w"}), c.stored)
          << c.what << ", " << kind;
      EXPECT_EQ(shown(SubTreePtr(k->GetSubTree("alpha"))), "alpha{v=precious}")
          << c.what << ", " << kind;
    }
  }
}

// A byte array has names in any case; a file that had two of them apart by it alone could not be
// read again.
TEST(Repository, PutsNamesInLowerCaseAndRefusesTwoThatDifferInIt) {
  const struct {
    const char* what;
    int (*write)(Repository&, CFG_SubTree*);
    const char* stored;  // of a Top with A\v and A\w over a top with a\w
  } cases[] = {
      {"add", [](Repository& r, CFG_SubTree* t) { return r.AddOrReplaceSubTree(t, "halvoria"); },
       "v=new w=new"},
      {"merge",
       [](Repository& r, CFG_SubTree* t) { return r.AddOrReplaceSubTree(t, "halvoria", TRUE); },
       "v=new w=new x=old"},
      {"merge long values",
       [](Repository& r, CFG_SubTree* t) {
         return r.AddOrReplaceSubTreeWithLongValues(t, "halvoria", TRUE);
       },
       "v=new w=new x=old"},
      {"keep", [](Repository& r, CFG_SubTree* t) { return r.AddMoreInfoToSubTree(t, "halvoria"); },
       "v=new w=old x=old"},
      {"set", [](Repository& r, CFG_SubTree* t) { return r.SetSubTree(t, "halvoria", TRUE); },
       "v=new w=new x=old"},
  };
  const auto stored = [](Repository& r) {
    const SubTreePtr top(r.GetSubTree("halvoria\\top"));
    EXPECT_EQ(r.GetSubTreeEntriesCount("halvoria\\top"), top->GetData()->GetNodeNum() - 1);
    return texts(top->GetData()->Child("a"), {"v", "w", "x"});
  };
  for (const WorldKind kind : repositories) {
    for (const auto& c : cases) {
      World world(kind, tree_of("halvoria", {{"top\\a\\w", "old"}, {"top\\a\\x", "old"}}));
      Repository& repository = world.repository();
      const auto where = testing::Message() << c.what << ", " << kind;
      for (CFG_SubTree colliding : {raw_tree("Top", {{"A\\v", "1"}, {"a", "2"}}),
                                    raw_tree("top", {{"b\\A", "1"}, {"b\\a\\v", "2"}}),
                                    raw_tree("top", {{"Ab", "1"}, {"aB", "2"}})}) {
        EXPECT_FALSE(c.write(repository, &colliding)) << where;
        EXPECT_EQ(stored(repository), "w=old x=old") << where;
      }
      CFG_SubTree given = raw_tree("Top", {{"A\\v", "new"}, {"A\\w", "new"}});
      EXPECT_TRUE(c.write(repository, &given)) << where;
      EXPECT_EQ(stored(repository), c.stored) << where;
      EXPECT_EQ(shown(given), "Top{A{v=new w=new}}") << where;
      EXPECT_TRUE(repository.UnLock()) << where;
      if (kind != XML_FILE) continue;
      CFG_FileRepository again(world.file());
      EXPECT_TRUE(again.Connect()) << where;
      EXPECT_EQ(stored(again), c.stored) << where;
    }
  }
}

// The first candidate that slot finds is the answer, also where it cuts a pattern; a blob is at
// that very path.
TEST(Repository, SearchRulesCutAtTheFirstWildcardAsOneReadDoes) {
  for (const WorldKind kind : in_memory) {
    World world(kind, tree_of("halvoria", {{"n\\v", "1"}}));
    Repository& repository = world.repository();
    EXPECT_TRUE(repository.WriteBlobFromUTF8String("halvoria\\n", "t", false, ""));
    const char *in_rule[] = {"halvoria\\n\\%"}, *plain[] = {"halvoria\\n"};
    for (const int merge : {FALSE, TRUE}) {
      for (const SubTreePtr& found :
           {SubTreePtr(world.services().GetSubTree("p", in_rule, merge, 1)),
            SubTreePtr(world.services().GetSubTree("%\\p", plain, merge, 1))}) {
        EXPECT_EQ(found ? found->GetPath() : "", "halvoria\\n") << kind << ", merge " << merge;
      }
    }
    char* buffer = nullptr;
    int length = 0;
    EXPECT_FALSE(
        repository.ReadBlobFromSearchPathsToBuffer("p", in_rule, 1, &buffer, length, nullptr));
    EXPECT_TRUE(repository.ReadBlobFromSearchPathsToBuffer("", plain, 1, &buffer, length, nullptr));
    delete[] buffer;
  }
}

TEST(Repository, OverATreeOfADocumentSaysTheRootOnceInItsPaths) {
  const TemporaryFolder folder;
  CFG_SubTree tree =
      tree_of("halvoria", {{"system\\nodes\\n1\\properties\\inet_address", "1.2.3.4"}});
  write_tree(tree, folder.file("tree.xml"));
  const SubTreePtr read(
      CFG_MemoryRepository(nullptr).ImportXmlFileAsCfgSubTree(folder.file("tree.xml")));
  CFG_MemoryRepository memory(read.get());
  CFG_FileRepository file(folder.file("tree.xml"));
  ASSERT_TRUE(file.Connect());
  for (Repository* repository :
       {static_cast<Repository*>(&memory), static_cast<Repository*>(&file)}) {
    EXPECT_EQ(list(repository->FillPath("halvoria\\system\\nodes\\%")),
              "halvoria\\system\\nodes\\n1");
    EXPECT_EQ(list(repository->Search("properties", "halvoria")),
              "halvoria\\system\\nodes\\n1\\properties");
    EXPECT_STREQ(repository->GetNodeNameByIp("1.2.3.4").data(), "n1");
    EXPECT_STREQ(SubTreePtr(repository->GetSubTree("halvoria\\system"))->GetPath().data(),
                 "halvoria\\system");
  }
}

TEST(Contract, ReadKeysAreCopiesOrShareAsTheKindSays) {
  for (const WorldKind kind : all_kinds) {
    World world(kind, sample());
    const SubTreePtr by_path(world.services().GetSubTree(world.at("s\\n")));
    by_path->SetValue("by_path", "x");
    EXPECT_EQ(world.services().GetValue(world.at("s\\n\\by_path")), kind == HANDLE ? "x" : "")
        << kind;
    const SubTreePtr by_index(world.services().GetSubTree(world.at("s\\n"), 0));
    by_index->SetValue("by_index", "y");
    EXPECT_EQ(world.services().GetValue(world.at("s\\n\\n1\\by_index")),
              world.traits().holds_tree && !world.traits().is_cached ? "y" : "")
        << kind;
  }
}

TEST(Contract, SearchGivesFullPathsFromARepositoryAndRelativeOnesFromAHandle) {
  for (const WorldKind kind : all_kinds) {
    World world(kind, sample());
    CFG_Services& services = world.services();
    const std::string above = kind == HANDLE ? "" : "halvoria\\s\\n\\";
    Log_Capture capture;
    EXPECT_EQ(list(services.Search("IP", world.at("s\\n"))),
              above + "n1\\p\\ip," + above + "n2\\p\\ip");
    EXPECT_EQ(list(services.Search("nowhere", world.at("s"))), "");
    EXPECT_EQ(list(services.Search("ip", world.at("s\\zone"))), "NULL");
    const std::string zone = world.at("s\\zone").str();
    EXPECT_TRUE(capture.has(is_remote(kind)
                                ? "fail to get sub tree for path : " + zone + ", return NULL\n"
                                : "path " + zone + " represent a value, return NULL\n"))
        << capture.text();
    EXPECT_EQ(list(services.Search("ip", world.at("none"))), "NULL");
    EXPECT_TRUE(capture.has("fail to get sub tree for path : "));
    EXPECT_EQ(list(services.Search("", world.at("s"))), "NULL");
  }
}

// --- what only repositories have -----------------------------------------------------------------

TEST(Repository, DropsTheFirstComponentWhateverItSays) {
  for (const WorldKind kind : in_memory) {
    World world(kind, sample());
    CFG_Services& services = world.services();
    EXPECT_EQ(services.GetValue("other\\s\\zone"), "A");
    EXPECT_EQ(services.GetValue("<unset>\\s\\zone"), "A");
    EXPECT_EQ(services.GetValue("\\s\\zone"), "A");
    EXPECT_EQ(services.GetValue("version"), "7") << "one component is a child of the root";
    EXPECT_TRUE(services.SetValue("halvoria\\halvoria\\v", "1"));
    for (const char* root : {"HALVORIA", "<test_root>"}) {
      services.SetProperty("test_root", "Halvoria");
      EXPECT_FALSE(services.DeleteSubTree(root)) << "the root stays, and no child goes for it";
      EXPECT_EQ(services.GetValueNum(root), 1);
    }
    EXPECT_EQ(services.GetValue("halvoria\\halvoria\\v"), "1");
    EXPECT_TRUE(services.IsSubTreeExist("halvoria\\"));
  }
}

TEST(Repository, AKeyThatIsNotThereLeavesALineInTheLog) {
  for (const WorldKind kind : in_memory) {
    World world(kind, sample());
    Log_Capture capture;
    EXPECT_EQ(shown(SubTreePtr(world.services().GetSubTree("halvoria\\none"))), "NULL");
    EXPECT_TRUE(capture.has("GetRelativeSubTreeByRef return NULL_TREE_NODE_PTR,return NULL\n"));
    EXPECT_EQ(shown(SubTreePtr(world.services().GetSubTree("halvoria\\version"))), "NULL");
    EXPECT_TRUE(capture.has("path <version> is a value,return NULL\n")) << capture.text();
  }
}

// A first component that stands for two is stripped as one by reads, and loses only its own
// first part in subtree writes.
TEST(Repository, ReadsStripTheRootBeforeSubstitutionAndSubtreeWritesAfterIt) {
  for (const WorldKind kind : in_memory) {
    World world(kind, sample());
    CFG_Services& services = world.services();
    services.SetProperty("test_top", "halvoria\\s");
    EXPECT_EQ(services.GetValue("<test_top>\\zone"), "");
    EXPECT_EQ(services.GetValue("<test_top>\\s\\zone"), "A");
    CFG_SubTree added = tree_of("added", {{"v", "1"}});
    EXPECT_TRUE(services.AddOrReplaceSubTree(&added, "<test_top>\\n"));
    EXPECT_EQ(services.GetValue("halvoria\\s\\n\\added\\v"), "1");
  }
}

TEST(Repository, CutsPathsOfKeysAtTheFirstWildcard) {
  for (const WorldKind kind : repositories) {
    World world(kind, sample());
    CFG_RepositoryServicesImp& repository = world.repository();
    const char* n1_path = "halvoria\\s\\n\\%\\p";
    EXPECT_EQ(SubTreePtr(repository.GetSubTreeWithPrecentAndWildcard(n1_path))->GetPath(),
              "halvoria\\s\\n");
    EXPECT_EQ(
        SubTreePtr(repository.GetSubTreeOnlyWithValuesWithPrecentAndWildcard(n1_path))->GetPath(),
        "halvoria\\s\\n");
    const SubTreePtr plain(repository.GetSubTree(n1_path));
    EXPECT_EQ(plain ? plain->GetPath() : "", is_database(kind) ? "" : "halvoria\\s\\n");
    const SubTreePtr within_name(repository.GetSubTree("halvoria\\n%\\n1"));
    EXPECT_EQ(within_name ? within_name->GetPath() : "", is_database(kind) ? "" : "halvoria");
    EXPECT_EQ(repository.GetPathBeforeFirstPrecent("%\\a"), "");
    EXPECT_EQ(repository.GetPathBeforeFirstPrecent("a\\b"), "a\\b");
  }
}

TEST(Repository, ReadsOfValuesOnlyDropEmptyKeysWhereTheKindFilters) {
  for (const WorldKind kind : repositories) {
    const char* const all = "n2{empty{} p{ip=10.0.0.2}}";
    const char* const filtered = kind == MEMORY ? all : "n2{p{ip=10.0.0.2}}";
    World world(kind, sample());
    CFG_RepositoryServicesImp& repository = world.repository();
    const RWCString path = "halvoria\\s\\n\\n2";
    EXPECT_EQ(shown(SubTreePtr(repository.GetSubTreeOnlyWithValues(path))), filtered);
    EXPECT_EQ(shown(SubTreePtr(repository.GetSubTreeOnlyWithValuesLong(path))), filtered);
    const char* rule[] = {"halvoria\\s\\n"};
    EXPECT_EQ(shown(SubTreePtr(repository.GetSubTreeOnlyWithValues("n2", rule, TRUE, 1))),
              filtered);
    EXPECT_EQ(shown(SubTreePtr(repository.GetSubTreeWithLongValues(path))), all);
    EXPECT_EQ(shown(SubTreePtr(repository.GetSubTreeOnlyWithValuesWithPrecentAndWildcard(path))),
              is_database(kind) ? filtered : all);
    EXPECT_EQ(shown(SubTreePtr(repository.GetSubTreeOnlyWithValues("halvoria\\none"))), "NULL");
  }
}

TEST(Repository, FillPathFindsWhatAPatternSelectsInTreeOrder) {
  const struct {
    const char* pattern;
    const char* memory;
    const char* file;      // null: the same
    const char* database;  // null: as the file
  } cases[] = {
      {"halvoria\\s\\n\\%\\p", "halvoria\\s\\n\\n1\\p,halvoria\\s\\n\\n2\\p", nullptr, nullptr},
      {"halvoria\\s\\n\\%\\empty", "halvoria\\s\\n\\n2\\empty", nullptr, nullptr},
      {"halvoria\\S\\%\\<test_node>", "halvoria\\s\\n\\n2", nullptr, nullptr},
      {"halvoria\\s\\n\\%", "halvoria\\s\\n\\n1,halvoria\\s\\n\\n2", nullptr, nullptr},
      {"halvoria\\%\\%\\n1\\%", "halvoria\\s\\n\\n1\\p", nullptr, nullptr},
      {"halvoria\\s\\n", "halvoria\\s\\n", nullptr, nullptr},
      {"halvoria\\%\\zone", "NULL", "halvoria\\s\\zone", nullptr},
      {"halvoria\\s\\n\\%\\p\\ip", "NULL", "halvoria\\s\\n\\n1\\p\\ip,halvoria\\s\\n\\n2\\p\\ip",
       nullptr},
      {"halvoria\\s\\n\\%\\none", "NULL", nullptr, nullptr},
      {"halvoria\\s\\zone\\%", "NULL", nullptr, nullptr},
      {"halvoria\\s\\n%\\n1", "NULL", nullptr, nullptr},
      {"halvoria\\s\\n\\%1\\p", "NULL", nullptr, nullptr},
      {"", "NULL", nullptr, nullptr},
      {"halvoria", "NULL", nullptr, "halvoria"},
      {"halvoria\\none\\%", "NULL", nullptr, nullptr},
  };
  for (const WorldKind kind : repositories) {
    World world(kind, sample());
    world.services().SetProperty("test_node", "n2");
    Log_Capture capture;
    for (const auto& c : cases) {
      const char* expected = is_database(kind) && c.database ? c.database
                             : kind != MEMORY && c.file      ? c.file
                                                             : c.memory;
      EXPECT_EQ(list(world.repository().FillPath(c.pattern)), expected)
          << c.pattern << ", kind " << kind;
    }
    if (is_remote(kind)) {
      EXPECT_FALSE(capture.has("Failed to get response")) << "no hit is no failure";
    } else {
      EXPECT_EQ(capture.last(), "FillPath(const RWCString path) : no paths found , return NULL\n");
    }
  }
}

TEST(Repository, FillPathFindsTheFirstKeyWithAValue) {
  const CFG_SubTree tree = tree_of("halvoria", {{"h\\a\\p\\v", "One"},
                                                {"h\\b\\p\\v", "two"},
                                                {"h\\c\\p\\v", "two"},
                                                {"h\\c\\p\\inet_extra", "two"},
                                                {"v", "top"}});
  const struct {
    const char* pattern;
    const char* name;
    const char* value;
    const char* memory;
    const char* file;                // null: the same
    const char* database = nullptr;  // null: as the file
  } cases[] = {
      {"halvoria\\h\\%\\p", "v", "two", "halvoria\\h\\b\\p", nullptr},
      {"halvoria\\h\\%", "p\\V", "two", "halvoria\\h\\b", nullptr},
      {"halvoria\\%\\%\\p", "v", "One", "halvoria\\h\\a\\p", nullptr},
      {"halvoria\\h\\%\\p", "v", "one", "", nullptr},
      {"halvoria\\h\\%\\p", "v", "", "", nullptr},
      {"halvoria\\h\\%\\p", "none", "", "", nullptr},
      {"halvoria\\h\\c\\p", "v", "two", "halvoria\\h\\c\\p", nullptr},
      {"halvoria\\none\\%", "v", "two", "", nullptr},
      {"halvoria\\h\\a\\p\\v", "", "One", "", nullptr},
      {"halvoria\\h\\%\\p", "inet%", "two", "", "halvoria\\h\\c\\p"},
      {"halvoria\\h\\%", "p\\inet_e%", "two", "", "halvoria\\h\\c"},
      {"halvoria\\h\\%", "%\\v", "two", "", nullptr},
      {"halvoria\\h\\%", "p%\\v%", "two", "", nullptr},
      {"halvoria", "v", "top", "", nullptr, "halvoria"},
      {"halvoria", "v%", "top", "", "halvoria"},
  };
  for (const WorldKind kind : repositories) {
    World world(kind, tree);
    for (const auto& c : cases) {
      const char* expected = is_database(kind) && c.database ? c.database
                             : kind != MEMORY && c.file      ? c.file
                                                             : c.memory;
      EXPECT_EQ(world.repository().FillPath(c.pattern, c.name, c.value), expected)
          << c.pattern << " " << c.name << ", kind " << kind;
    }
  }
}

TEST(Repository, NodesAreFoundByEveryAddressTheKindLooksAt) {
  const CFG_SubTree tree =
      tree_of("halvoria", {{"system\\nodes\\first\\properties\\inet_address", "10.0.0.1"},
                           {"system\\nodes\\n\\properties\\inet_address", "10.0.0.9"},
                           {"system\\nodes\\n\\properties\\inet_address_optional", "10.0.1.9"},
                           {"system\\nodes\\n\\properties\\additional_inet_address_3", "10.0.3.9"},
                           {"system\\nodes\\n\\properties\\additional_inet_address_6", "10.0.6.9"},
                           {"system\\nodes\\v6\\properties\\inet_address", "fe80::ab"},
                           {"system\\nodes\\mapped\\properties\\inet_address", "::ffff:10.0.0.7"},
                           {"system\\nodes\\n\\servers\\s\\dicom\\ae", "STORE"}});
  const struct {
    const char* address;
    const char* memory;
    const char* file;
    const char* database;
  } cases[] = {
      {"10.0.0.1", "first", "first", "first"},
      {"10.0.0.9", "n", "n", "n"},
      {"10.0.1.9", "", "n", ""},
      {"10.0.3.9", "n", "n", "n"},
      {"10.0.6.9", "", "n", ""},
      {"fe80::ab", "v6", "v6", "v6"},
      {"[fe80::ab]", "", "v6", "v6"},
      {"[FE80::AB]", "", "v6", ""},
      {"::FFFF:10.0.0.9", "", "n", "n"},
      {"::ffff:10.0.0.7", "mapped", "mapped", "mapped"},
      {"[::ffff:10.0.0.7]", "", "mapped", ""},
      {"10.0.0.2", "", "", ""},
      {"", "", "", ""},
  };
  for (const WorldKind kind : repositories) {
    World world(kind, tree);
    for (const auto& c : cases) {
      const char* expected = is_database(kind) ? c.database : kind == MEMORY ? c.memory : c.file;
      EXPECT_EQ(world.repository().GetNodeNameByIp(c.address), expected)
          << c.address << ", kind " << kind;
    }
    EXPECT_EQ(world.repository().GetNodeName("STORE"), "n");
    EXPECT_EQ(world.repository().GetNodeName("store"), "");
  }
}

// Objects without a tree: a file that was never read, a memory repository over nothing, a
// database that nobody connected to, and a service that is not there.
TEST(Repository, WithoutATreeEveryPathOperationAnswersNothing) {
  CFG_FileRepository file(L"/none.xml");
  CFG_MemoryRepository memory(nullptr);
  CFG_DBRepository database("sqlite:/none", "");
  CFG_Repository remote;
  CFG_SubTree properties{RWCString("properties")};
  properties.SetProperty("HALVORIA_REMOTE_SERVER_NAME", "127.0.0.1");
  properties.SetProperty("HALVORIA_REMOTE_SERVER_PORT", "1");
  for (CFG_RepositoryServicesImp* repository :
       std::initializer_list<CFG_RepositoryServicesImp*>{&file, &memory, &database, &remote}) {
    const Ask nothing[] = {value,   value_0, name_1, values, keys,  entries,
                           records, names,   exists, key,    key_1, by_rule};
    for (const Ask ask : nothing) {
      Log_Capture capture;
      const std::string answer = ask(*repository, "halvoria\\s");
      EXPECT_TRUE(answer.empty() || answer == "0" || answer == "NULL") << answer;
      EXPECT_TRUE(capture.has("no tree") || capture.has("data is null") ||
                  capture.has("not connected") || capture.has("cannot connect"))
          << capture.text();
    }
    for (const Write write :
         {set, remove_key, remove_value, rename, add, add_merged, add_more, add_root}) {
      EXPECT_FALSE(write(*repository, "halvoria\\s"));
    }
    EXPECT_EQ(list(repository->FillPath("halvoria\\%")), "NULL");
    EXPECT_EQ(repository->GetNodeNameByIp("10.0.0.1"), "");
    EXPECT_EQ(list(repository->Search("a", "halvoria")), "NULL");
    EXPECT_EQ(shown(SubTreePtr(repository->GetSubTreeOnlyWithValues("halvoria"))), "NULL");
  }
  EXPECT_FALSE(file.UnLock());
  EXPECT_FALSE(database.UnLock());
  EXPECT_FALSE(remote.UnLock());
}

TEST(MemoryRepository, LeavesTheHeldSubtreeToItsCaller) {
  CFG_SubTree held = sample();
  auto repository = std::make_unique<CFG_MemoryRepository>(&held);
  EXPECT_TRUE(repository->SetValue("halvoria\\s\\zone", "B"));
  repository.reset();
  EXPECT_EQ(held.GetValue("s\\zone"), "B");
}

// --- the file ------------------------------------------------------------------------------------

TEST(FileRepository, SavesWithUnLockAndAtNoOtherTime) {
  World world(XML_FILE, sample());
  const auto stored = [&] {
    CFG_FileRepository reader(world.file());
    EXPECT_TRUE(reader.Connect());
    return reader.GetValue("halvoria\\s\\zone");
  };
  CFG_RepositoryServicesImp& repository = world.repository();
  EXPECT_TRUE(repository.Lock());
  EXPECT_TRUE(repository.SetValue("halvoria\\s\\zone", "B & \"<b>\""));
  EXPECT_EQ(stored(), "A");
  EXPECT_TRUE(repository.UnLock());
  EXPECT_EQ(stored(), "B & \"<b>\"");

  CFG_SubTree root = tree_of("halvoria", {{"s\\zone", "C"}});
  EXPECT_TRUE(repository.StartTransactionUpdate());
  EXPECT_TRUE(repository.AddOrReplaceSubTree(&root, ""));
  EXPECT_TRUE(repository.EndTransactionUpdate(false));
  EXPECT_EQ(stored(), "C");
}

TEST(FileRepository, AFailedSaveIsReportedAndLosesNothing) {
  TemporaryFolder folder;
  std::filesystem::create_directory(folder / "gone");
  CFG_SubTree tree = sample();
  write_tree(tree, folder.file("gone/tree.xml"));
  CFG_FileRepository repository(folder.file("gone/tree.xml"));
  ASSERT_TRUE(repository.Connect());
  std::filesystem::remove_all(folder / "gone");
  repository.SetValue("halvoria\\s\\zone", "B");
  EXPECT_FALSE(repository.UnLock());
  EXPECT_TRUE(repository.StartTransactionUpdate());
  EXPECT_FALSE(repository.EndTransactionUpdate(false)) << "an update that was not saved has failed";
  EXPECT_EQ(repository.GetValue("halvoria\\s\\zone"), "B");
  std::filesystem::create_directory(folder / "gone");
  EXPECT_TRUE(repository.UnLock());
}

TEST(FileRepository, ConnectCanBeTriedAgain) {
  TemporaryFolder folder;
  CFG_FileRepository repository(folder.file("tree.xml"));
  Log_Capture capture;
  EXPECT_FALSE(repository.Connect());
  EXPECT_EQ(capture.last(), "Connect() : Fail to get CFG_SubTree from xml_file\n");
  std::ofstream(folder / "tree.xml") << "<tree><branch><node>";
  EXPECT_FALSE(repository.Connect());
  CFG_SubTree tree = sample();
  write_tree(tree, folder.file("tree.xml"));
  EXPECT_TRUE(repository.Connect());
  EXPECT_EQ(repository.GetValue("halvoria\\version"), "7");
  repository.SetValue("halvoria\\version", "8");
  EXPECT_TRUE(repository.Connect());
  EXPECT_EQ(capture.last(), "Connect() : already connected\n");
  EXPECT_EQ(repository.GetValue("halvoria\\version"), "8") << "the file is not read twice";
  EXPECT_EQ(repository.GetServerSyncID(), "file");
}

}  // namespace
