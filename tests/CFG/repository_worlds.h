// The same tree behind each kind of services object, for tests that run over all of them.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <CFG/CFG_DBRepository.h>
#include <CFG/CFG_FileRepository.h>
#include <CFG/CFG_InProcessCacheRepository.h>
#include <CFG/CFG_MemoryRepository.h>
#include <CFG/CFG_Repository.h>
#include <servers/Test_Postgres.h>
#include <servers/Test_Service.h>
#include <tree/Tree_Node.h>
#include "cache/cache_configuration.h"
#include "temporary_folder.h"
#include "test_trees.h"

// A repository over a tree, and what must live as long as it: a service, a server.
struct WorldParts {
  std::shared_ptr<void> behind;
  std::unique_ptr<CFG_RepositoryServicesImp> repository;
};

inline WorldParts memory_world(CFG_SubTree& tree, const TemporaryFolder&) {
  return {nullptr, std::make_unique<CFG_MemoryRepository>(&tree)};
}

inline WorldParts xml_world(CFG_SubTree& tree, const TemporaryFolder& folder) {
  write_tree(tree, folder.file("tree.xml"));
  return {nullptr, std::make_unique<CFG_FileRepository>(folder.file("tree.xml"))};
}

inline std::unique_ptr<CFG_DBRepository> sqlite_repository(const TemporaryFolder& folder) {
  return std::make_unique<CFG_DBRepository>("sqlite:" + (folder / "tree.db").string(), "test");
}

inline WorldParts sqlite_world(CFG_SubTree& tree, const TemporaryFolder& folder) {
  auto repository = sqlite_repository(folder);
  EXPECT_TRUE(repository->Connect() && repository->AddOrReplaceSubTree(&tree, ""));
  return {nullptr, std::move(repository)};
}

// One server serves all worlds of the process, one after the other.
inline WorldParts postgres_world(CFG_SubTree& tree, const TemporaryFolder&) {
  static Test_Postgres server;
  EXPECT_TRUE(server.is_running()) << server.problem();
  auto repository = std::make_unique<CFG_DBRepository>(server.connection(), "");
  EXPECT_TRUE(repository->Connect() && repository->DeleteSubTree("halvoria") &&
              repository->AddOrReplaceSubTree(&tree, ""));
  return {nullptr, std::move(repository)};
}

// A client of the service. The first request opens the connection that the repository keeps, so
// that a service of another world may be used after it.
inline WorldParts remote_world(CFG_SubTree& tree, const Test_Service& service) {
  service.use();
  auto repository = std::make_unique<CFG_Repository>();
  EXPECT_TRUE(repository->Connect() && repository->DeleteSubTree("halvoria") &&
              repository->AddOrReplaceSubTree(&tree, ""));
  return {nullptr, std::move(repository)};
}

// A service checks the paths of writes unless its tree said otherwise when it started: those here
// take any name.
inline bool start_unchecked(Test_Service& service, const RWCString& store) {
  CFG_DBRepository repository(store, "");
  return repository.Connect() &&
         repository.SetValue("halvoria\\system\\applications\\central_configuration\\validate_path",
                             "0") &&
         repository.DisConnect() && service.start();
}

// One service of each kind serves all worlds of the process, one after the other.
template <int number = 0>
WorldParts remote_sqlite_world(CFG_SubTree& tree, const TemporaryFolder&) {
  static TemporaryFolder folder;
  static const std::string store = "sqlite:" + (folder / "tree.db").string();
  static Test_Service service(store, (folder / "log").string());
  static const bool is_started = start_unchecked(service, store);
  EXPECT_TRUE(is_started);
  return remote_world(tree, service);
}

inline WorldParts remote_postgres_world(CFG_SubTree& tree, const TemporaryFolder&) {
  static Test_Postgres server;
  EXPECT_TRUE(server.is_running()) << server.problem();
  static TemporaryFolder folder;
  static Test_Service service(server.connection(), (folder / "log").string());
  static const bool is_started = start_unchecked(service, server.connection());
  EXPECT_TRUE(is_started);
  return remote_world(tree, service);
}

// The same with a cache before it, which the tree says how to make, and then says no more: what
// `tree` did not have goes.
inline std::unique_ptr<CFG_RepositoryServicesImp> connected_to_cache(
    std::unique_ptr<CFG_RepositoryServicesImp> repository, CFG_SubTree& tree) {
  EXPECT_TRUE(repository->Connect());
  RWCString top("system");
  for (const char* next : {"applications", "cfg", "in_process_cache"}) {
    if (tree.IsSubTreeExist(top)) top = top + "\\" + next;
  }
  EXPECT_TRUE(repository->DeleteSubTree("halvoria\\" + top));
  repository->ClearCache();
  return repository;
}

inline WorldParts cached_xml_world(CFG_SubTree& tree, const TemporaryFolder& folder) {
  CFG_SubTree with_cache(tree.GetData()->DuplicateFromHereDown(true));
  CFG_MemoryRepository root(&with_cache);
  configure_cache(root, {});
  write_tree(with_cache, folder.file("tree.xml"));
  using Cached = CFG_InProcessCacheRepository<CFG_FileRepository>;
  return {nullptr, connected_to_cache(std::make_unique<Cached>(folder.file("tree.xml")), tree)};
}

inline WorldParts cached_sqlite_world(CFG_SubTree& tree, const TemporaryFolder& folder) {
  const std::string store = "sqlite:" + (folder / "tree.db").string();
  CFG_DBRepository plain(store, "test");
  EXPECT_TRUE(plain.Connect() && plain.AddOrReplaceSubTree(&tree, ""));
  configure_cache(plain, {{"value_cache_size", "1"},
                          {"sub_tree_cache_size", "1"},
                          {"value_cache_timeout", "1"},
                          {"subtree_cache_timeout", "1"}});
  using Cached = CFG_InProcessCacheRepository<CFG_DBRepository>;
  return {nullptr, connected_to_cache(std::make_unique<Cached>(store, "test"), tree)};
}

inline WorldParts cached_remote_world(CFG_SubTree& tree, const TemporaryFolder& folder) {
  WorldParts plain = remote_sqlite_world<1>(tree, folder);
  configure_cache(*plain.repository, {{"store_non_existing_keys", "false"}});
  using Cached = CFG_InProcessCacheRepository<CFG_Repository>;
  return {nullptr, connected_to_cache(std::make_unique<Cached>(), tree)};
}

enum WorldKind {
  HANDLE,
  MEMORY,
  XML_FILE,
  DB_SQLITE,
  DB_POSTGRES,
  REMOTE_SQLITE,
  REMOTE_POSTGRES,
  CACHED_XML,
  CACHED_SQLITE,
  CACHED_REMOTE,
};

struct WorldTraits {
  const char* name;
  WorldParts (*make)(CFG_SubTree& tree, const TemporaryFolder& folder);
  bool holds_tree;         // in memory: what was written stays in its order
  bool is_database;        // rows: names come in order of their bytes
  bool is_remote;          // a service answers
  bool is_cached = false;  // what changes behind it is not seen, as through a handle on its tree
};

constexpr WorldTraits world_traits[] = {
    {"handle", nullptr, true, false, false},
    {"memory", memory_world, true, false, false},
    {"XML file", xml_world, true, false, false},
    {"SQLite", sqlite_world, false, true, false},
    {"PostgreSQL", postgres_world, false, true, false},
    {"service on SQLite", remote_sqlite_world<>, false, true, true},
    {"service on PostgreSQL", remote_postgres_world, false, true, true},
    {"XML file, cached", cached_xml_world, true, false, false, true},
    {"SQLite, cached for a moment", cached_sqlite_world, false, true, false, true},
    {"service on SQLite, cached where it is there", cached_remote_world, false, true, true, true},
};

// Those of the kinds that this machine has what it takes for.
inline std::vector<WorldKind> available(std::vector<WorldKind> kinds) {
  if (!Test_Postgres::IsInstalled()) {
    std::erase_if(kinds,
                  [](WorldKind kind) { return kind == DB_POSTGRES || kind == REMOTE_POSTGRES; });
  }
  return kinds;
}

inline std::ostream& operator<<(std::ostream& out, WorldKind kind) {
  return out << world_traits[kind].name;
}

// A services object over a tree whose root key is `halvoria`.
class World {
 public:
  World(WorldKind kind, const CFG_SubTree& tree) : m_kind(kind), m_tree(tree) {
    if (!traits().make) return;
    m_parts = traits().make(m_tree, m_folder);
    EXPECT_TRUE(repository().Connect());
  }

  const WorldTraits& traits() const { return world_traits[m_kind]; }
  CFG_Services& services() {
    return m_parts.repository ? repository() : static_cast<CFG_Services&>(m_tree);
  }
  CFG_RepositoryServicesImp& repository() { return *m_parts.repository; }
  // How this object is asked for a path below the root key.
  RWCString at(const char* path) const {
    if (m_kind == HANDLE) return path;
    return RWCString(*path ? "halvoria\\" : "halvoria") + path;
  }
  // All that is stored, as text.
  std::string content() {
    if (m_kind == HANDLE) return shown(m_tree);
    return shown(SubTreePtr(services().GetSubTree("halvoria")));
  }
  RWWString file() const { return m_folder.file("tree.xml"); }

 private:
  WorldKind m_kind;
  TemporaryFolder m_folder;
  CFG_SubTree m_tree;
  WorldParts m_parts;
};
