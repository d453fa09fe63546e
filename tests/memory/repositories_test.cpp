#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <CFG/CFG_DBRepository.h>
#include <CFG/CFG_Factory.h>
#include <CFG/CFG_FileRepository.h>
#include <CFG/CFG_MemoryRepository.h>
#include <CFG/CFG_TransactionGuard.h>
#include <servers/Test_Postgres.h>
#include <tree/Tree_Node.h>

#include "../CFG/temporary_folder.h"
#include "../CFG/test_trees.h"
#include "out_of_memory.h"

namespace {

using Repository = CFG_RepositoryServicesImp;

constexpr char kLong[] = "a text that takes a block of its own";

CFG_SubTree sample() {
  return tree_of(
      "halvoria",
      {{"k\\a", "1"}, {"k\\b", kLong}, {"k\\s\\c", "2"}, {"n\\v", "3"}, {"n\\s\\d", "4"}});
}

// A tree behind a repository of each kind.
struct MemoryWorld {
  CFG_SubTree tree = sample();
  CFG_MemoryRepository memory{&tree};
  Repository& repository() { return memory; }
};

struct FileWorld {
  TemporaryFolder folder;
  std::unique_ptr<CFG_FileRepository> file = stored();
  std::unique_ptr<CFG_FileRepository> stored() {
    CFG_SubTree tree = sample();
    write_tree(tree, name());
    auto connected = std::make_unique<CFG_FileRepository>(name());
    EXPECT_TRUE(connected->Connect());
    return connected;
  }
  RWWString name() const { return folder.file("tree.xml"); }
  Repository& repository() { return *file; }
};

RWCString sqlite() {
  static const TemporaryFolder folder;
  return RWCString("sqlite:" + (folder / "tree.db").string());
}
RWCString postgres() {
  static const Test_Postgres server;
  EXPECT_TRUE(server.is_running()) << server.problem();
  return RWCString(server.connection());
}

// One database serves all: it takes long to make.
template <RWCString (*connection)()>
struct StoreWorld {
  StoreWorld() {
    CFG_SubTree tree = sample();
    EXPECT_TRUE(database().AddOrReplaceSubTree(&tree, ""));
  }
  static CFG_DBRepository& database() {
    static CFG_DBRepository database(connection(), "test");
    static const bool is_connected = database.Connect();
    EXPECT_TRUE(is_connected);
    return database;
  }
  Repository& repository() { return database(); }
};
using DatabaseWorld = StoreWorld<sqlite>;
using PostgresWorld = StoreWorld<postgres>;

template <void (*run)(MemoryShortage&)>
void with_postgres(MemoryShortage& memory) {
  if (!Test_Postgres::IsInstalled()) GTEST_SKIP() << "no PostgreSQL server is installed";
  run(memory);
}

// For the forms that the classes of repositories hide.
CFG_Services& services(Repository& repository) { return repository; }

std::string content(Repository& repository) {
  return shown(SubTreePtr(services(repository).GetSubTree("halvoria")));
}
RWCString value(Repository& repository, const char* path) {
  return services(repository).GetValue(RWCString(path));
}

// --- changes -------------------------------------------------------------------------------------

// Made at ease, since what a caller hands over is the caller's.
const RWCString long_text(kLong), deep_path("halvoria\\new\\deep\\key\\v"), k_b("halvoria\\k\\b");

int set(Repository& r) { return r.SetValue("halvoria\\k\\a", long_text); }
int set_deep(Repository& r) { return r.SetValue(deep_path, long_text); }
int remove_key(Repository& r) { return r.DeleteSubTree("halvoria\\k"); }
int remove_value(Repository& r) { return r.DeleteValue(k_b); }
int rename(Repository& r) { return r.SetKeyName("halvoria\\k", "another"); }
template <int (*write)(Repository&, CFG_SubTree*)>
int write_k(Repository& r) {
  static CFG_SubTree k = tree_of("k", {{"a", "new"}, {"s\\d", "new"}, {"t\\u", kLong}});
  return write(r, &k);
}
constexpr auto add = write_k<[](Repository& r, CFG_SubTree* k) {
  return services(r).AddOrReplaceSubTree(k, "halvoria");
}>;
constexpr auto merge = write_k<[](Repository& r, CFG_SubTree* k) {
  return r.AddOrReplaceSubTree(k, "halvoria", TRUE);
}>;
constexpr auto merge_long = write_k<[](Repository& r, CFG_SubTree* k) {
  return r.AddOrReplaceSubTreeWithLongValues(k, "halvoria", TRUE);
}>;
constexpr auto merge_under = write_k<[](Repository& r, CFG_SubTree* k) {
  return r.AddMoreInfoToSubTreeWithLongValues(k, "halvoria");
}>;

// Over the last of so many children that a further one takes more room.
int add_like_root(Repository& r) {
  static CFG_SubTree root = tree_of("halvoria", {{"new", kLong}});
  return services(r).AddOrReplaceSubTree(&root, "halvoria");
}
struct FullWorld : MemoryWorld {
  FullWorld() {
    for (int i = tree.GetData()->GetChildCount(); i < 31; ++i) {
      tree.SetValue("n" + RWCString(std::to_string(i)), "1");
    }
    tree.SetValue("halvoria\\v", "old");
  }
};

// A document with one branch, the same for all: as an export writes it, or with a remark, which
// only the parser reads.
template <bool has_remark>
const RWWString& document() {
  static const TemporaryFolder folder;
  static const RWWString name = [] {
    CFG_SubTree tree = tree_of("k", {{"a", "imported"}, {"i\\j", kLong}});
    CFG_SubTree none("none");
    CFG_MemoryRepository writer(&none);
    EXPECT_TRUE(writer.ExportSubTreeToFile(&tree, folder.file("k.xml"), "halvoria\\k"));
    if (has_remark) std::ofstream(folder / "k.xml", std::ios::app) << "<!-- a remark -->";
    return folder.file("k.xml");
  }();
  return name;
}
template <bool has_remark>
int import_over(Repository& r) {
  return r.ImportXmlFile(document<has_remark>(), TRUE);
}
template <bool has_remark>
int import_under(Repository& r) {
  return r.ImportXmlFile(document<has_remark>(), FALSE);
}

// The tree is afterwards as it was or as it was to be, and who is told that it is changed can rely
// on that.
template <class World, int (*change)(Repository&)>
void changes(MemoryShortage& memory) {
  static const std::string wanted = [] {
    World world;
    EXPECT_TRUE(change(world.repository()));
    return content(world.repository());
  }();
  World world;
  const std::string before = content(world.repository());
  int answer = FALSE;
  memory.Under([&] { answer = change(world.repository()); });
  const std::string after = content(world.repository());
  EXPECT_TRUE(after == wanted || (!answer && after == before)) << after;
  EXPECT_TRUE(answer || memory.IsExplained(LOG_LEVEL_ERROR));
}

// A value that is set within a lock is either there after it, or the lock says that it is not.
template <class World>
void transaction(MemoryShortage& memory) {
  World world;
  Repository& r = world.repository();
  int answer = FALSE;
  memory.Under([&] {
    r.Lock();
    answer = r.SetValue("halvoria\\k\\a", long_text) && r.DeleteValue("halvoria\\n\\v");
    answer = r.UnLock() && answer;
  });
  r.UnLock();
  const bool is_set = value(r, "halvoria\\k\\a") == kLong;
  const bool is_deleted = value(r, "halvoria\\n\\v").isNull();
  EXPECT_TRUE(!answer || (is_set && is_deleted));
  EXPECT_TRUE(r.SetValue("halvoria\\n\\v", "open to the next change"));
}

// --- reads ---------------------------------------------------------------------------------------

const char* rule[] = {"halvoria\\none", "halvoria"};
// The key s is in both places; that of the second must not pass for the answer.
const char* both[] = {"halvoria\\k", "halvoria\\n"};

// Whatever comes back is whole or empty, and an answer that misses is told.
template <class World>
void reads(MemoryShortage& memory) {
  World world;
  Repository& r = world.repository();
  SubTreePtr copy, merged, valued, first, laid_over;
  RWCString text, path;
  std::unique_ptr<String_Arr> found, filled;
  memory.Under([&] { copy.reset(services(r).GetSubTree("halvoria\\k")); });
  memory.Under([&] { merged.reset(r.GetSubTreeOnlyWithValues("k", rule, TRUE, 2)); });
  memory.Under([&] { valued.reset(r.GetSubTreeOnlyWithValues("halvoria\\k")); });
  memory.Under([&] { first.reset(r.GetSubTreeOnlyWithValues("s", both, 2)); });
  memory.Under([&] { laid_over.reset(r.GetSubTreeOnlyWithValues("s", both, TRUE, 2)); });
  memory.Under([&] { text = value(r, "halvoria\\k\\b"); });
  memory.Under([&] { found.reset(r.Search("a", "halvoria")); });
  memory.Under([&] { filled.reset(r.FillPath("halvoria\\%\\s")); });
  memory.Under([&] { path = r.FillPath("halvoria\\%", "a", "1"); });
  const std::string k = "k{a=1 b=" + std::string(kLong) + " s{c=2}}";
  for (const SubTreePtr* tree : {&copy, &merged, &valued}) {
    EXPECT_TRUE(*tree ? shown(*tree) == k : memory.IsExplained()) << shown(*tree);
  }
  EXPECT_TRUE(first ? shown(first) == "s{c=2}" : memory.IsExplained()) << shown(first);
  EXPECT_TRUE(laid_over ? shown(laid_over) == "s{d=4 c=2}" : memory.IsExplained())
      << shown(laid_over);
  EXPECT_TRUE(text == kLong || memory.IsExplained());
  EXPECT_TRUE(path == "halvoria\\k" || memory.IsExplained());
  EXPECT_TRUE(found ? found->GetArrLen() == 1 : memory.IsExplained());
  EXPECT_TRUE(filled ? filled->GetArrLen() == 2 : memory.IsExplained());
}

// --- files ---------------------------------------------------------------------------------------

// A save that fails leaves the old file, whole.
void save(MemoryShortage& memory) {
  FileWorld world;
  world.file->SetValue("halvoria\\n\\v", "saved");
  int answer = FALSE;
  memory.Under([&] { answer = world.file->UnLock(); });
  CFG_FileRepository reader(world.name());
  EXPECT_TRUE(reader.Connect());
  const RWCString saved = value(reader, "halvoria\\n\\v");
  EXPECT_TRUE(saved == "saved" || (!answer && saved == "3"));
  EXPECT_EQ(value(*world.file, "halvoria\\n\\v"), "saved");
  int files = 0;
  for ([[maybe_unused]] const auto& entry :
       std::filesystem::directory_iterator(world.folder / ".")) {
    ++files;
  }
  EXPECT_EQ(files, 1) << "a temporary file is left behind";
}

void export_path(MemoryShortage& memory) {
  FileWorld world;
  const RWWString name = world.folder.file("k.xml");
  int answer = FALSE;
  memory.Under([&] { answer = world.file->ExportPath("halvoria\\k", name); });
  const SubTreePtr read(answer ? world.file->ImportXmlFileAsCfgSubTree(name) : nullptr);
  EXPECT_TRUE(answer ? shown(read) == "k{a=1 b=" + std::string(kLong) + " s{c=2}}"
                     : memory.IsExplained());
}

void connect(MemoryShortage& memory) {
  FileWorld world;
  CFG_FileRepository again(world.name());
  int answer = FALSE;
  memory.Under([&] { answer = again.Connect(); });
  EXPECT_TRUE(again.Connect());
  EXPECT_EQ(content(again), content(*world.file));
}

// --- the repository of the process ---------------------------------------------------------------

void factory(MemoryShortage& memory) {
  static CFG_SubTree tree = sample();
  CFG_RepositoryServices* given = nullptr;
  memory.Under([&] { given = CFG_Factory::GetRepositoryServices(&tree); });
  EXPECT_TRUE(given || (memory.HasStruck() && memory.IsExplained()));
  EXPECT_EQ(CFG_Factory::DisconnectRepositoryServices(), given != nullptr);
  EXPECT_NE(CFG_Factory::GetRepositoryServices(&tree), nullptr);
  memory.Under([] { const CFG_TransactionGuard of_the_process(nullptr); });
  EXPECT_TRUE(CFG_Factory::DisconnectRepositoryServices());
}

const OutOfMemoryCase repository_cases[] = {
    {"MemorySet", changes<MemoryWorld, set>},
    {"MemorySetDeep", changes<MemoryWorld, set_deep>},
    {"MemoryRemoveKey", changes<MemoryWorld, remove_key>},
    {"MemoryRename", changes<MemoryWorld, rename>},
    {"MemoryAdd", changes<MemoryWorld, add>},
    {"MemoryMerge", changes<MemoryWorld, merge>},
    {"MemoryMergeLong", changes<MemoryWorld, merge_long>},
    {"MemoryMergeUnder", changes<MemoryWorld, merge_under>},
    {"MemoryImportOver", changes<MemoryWorld, import_over<false>>},
    {"MemoryImportUnder", changes<MemoryWorld, import_under<false>>},
    {"MemoryParseOver", changes<MemoryWorld, import_over<true>>},
    {"MemoryParseUnder", changes<MemoryWorld, import_under<true>>},
    {"MemoryAddLikeRoot", changes<FullWorld, add_like_root>},
    {"MemoryReads", reads<MemoryWorld>},
    {"FileSetDeep", changes<FileWorld, set_deep>},
    {"FileMerge", changes<FileWorld, merge>},
    {"FileReads", reads<FileWorld>},
    {"FileSave", save},
    {"FileExport", export_path},
    {"FileConnect", connect},
    {"DatabaseSetDeep", changes<DatabaseWorld, set_deep>},
    {"DatabaseRemoveValue", changes<DatabaseWorld, remove_value>},
    {"DatabaseRemoveKey", changes<DatabaseWorld, remove_key>},
    {"DatabaseRename", changes<DatabaseWorld, rename>},
    {"DatabaseAdd", changes<DatabaseWorld, add>},
    {"DatabaseMergeLong", changes<DatabaseWorld, merge_long>},
    {"DatabaseTransaction", transaction<DatabaseWorld>},
    {"DatabaseReads", reads<DatabaseWorld>},
    {"PostgresSetDeep", with_postgres<changes<PostgresWorld, set_deep>>},
    {"PostgresRename", with_postgres<changes<PostgresWorld, rename>>},
    {"PostgresMergeLong", with_postgres<changes<PostgresWorld, merge_long>>},
    {"PostgresTransaction", with_postgres<transaction<PostgresWorld>>},
    {"PostgresReads", with_postgres<reads<PostgresWorld>>},
    {"Factory", factory},
};
INSTANTIATE_TEST_SUITE_P(Repositories, OutOfMemory, testing::ValuesIn(repository_cases),
                         OutOfMemory::NameOf);

}  // namespace
