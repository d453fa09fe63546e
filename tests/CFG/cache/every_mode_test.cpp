// A process that opens an installation at a live service through the factory, with each cache that
// the factory puts before it. The state of the factory is the process's: each case needs a process
// of its own.
#include <CFG/CFG_Factory.h>

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <random>
#include <thread>

#include <CFG/CFG_Cache.h>
#include <CFG/CFG_InProcessCacheRepository.h>
#include <CFG/temporary_folder.h>
#include <CFG/test_trees.h>
#include <CFG/xml/xml_documents.h>
#include <servers/Test_Redis.h>
#include <servers/Test_Seed.h>
#include <servers/Test_Service.h>
#include <support/comes.h>
#include <tree/Tree_Node.h>
#include "cache_configuration.h"

namespace {

constexpr char kDocument[] = HALVORIA_SOURCE_DIR "/../shared/data/packages.xml.gz";
const RWCString kGrid("halvoria\\system\\applications\\cfg\\datagrid_cache\\");

// The tree of packages, or one of the same form where that is not there.
SubTreePtr installation() {
  CFG_MemoryRepository reader(nullptr);
  if (std::filesystem::exists(kDocument)) {
    const std::string document = unpacked(kDocument);
    return SubTreePtr(
        reader.ImportXmlBufferAsCfgSubTree(reinterpret_cast<const unsigned char*>(document.data()),
                                           static_cast<unsigned>(document.size())));
  }
  auto made = std::make_unique<CFG_SubTree>(RWCString("halvoria"));
  for (int i = 0; i < 2000; ++i) {
    made->SetValue(RWCString("system\\applications\\p" + std::to_string(i) + "\\version"), "1");
  }
  return made;
}

using Values = std::vector<std::pair<RWCString, RWCString>>;

// One in so many values, with its whole path.
Values values_of(const Tree_NodePtr& tree, size_t one_in) {
  Values values;
  size_t count = 0;
  std::vector<Tree_Node*> keys{tree.get()};
  while (!keys.empty()) {
    Tree_Node* const key = keys.back();
    keys.pop_back();
    for (int i = 0; i < key->GetChildCount(); ++i) {
      Tree_Node* const child = key->GetChildAt(i).get();
      if (!child->IsLeaf()) {
        keys.push_back(child);
      } else if (!child->GetText().empty() && count++ % one_in == 0) {
        values.emplace_back(child->GetPath(), child->CopyText());
      }
    }
  }
  return values;
}

// How often a key that was asked for was there.
size_t found_in(const Test_Redis& redis) {
  const std::string text = redis.ask({"INFO", "stats"}), name = "keyspace_hits:";
  const size_t at = text.find(name);
  return at == text.npos ? 0 : std::stoul(text.substr(at + name.size()));
}

class EveryMode : public testing::TestWithParam<CFG_MODE> {};

TEST_P(EveryMode, ServesTheTreeAndNeverWhatItsReaderHasOverwritten) {
  const TemporaryFolder folder;
  const std::string store = "sqlite:" + (folder / "tree.db").string();
  const SubTreePtr tree = installation();
  ASSERT_TRUE(tree);
  tree->GetData()->SetVirtualParentPath("");
  const Values values = values_of(tree->GetData(), 40);
  ASSERT_GT(values.size(), 40U);
  const Test_Redis redis;
  const std::string place = "host=127.0.0.1 port=" + std::to_string(redis.port());
  {
    CFG_DBRepository writer(store, "");
    ASSERT_TRUE(writer.Connect() && writer.AddOrReplaceSubTree(tree.get(), ""));
    configure_cache(writer, {{"value_cache_size", "500"},
                             {"load_on_start", "halvoria\\system\\applications\\0ad"}});
    writer.SetValue(kGrid + "enabled", "true");
    writer.SetValue(kGrid + "connection_string", RWCString(place));
    writer.SetValue(kGrid + "cache_paths", "halvoria\\system\\applications");
  }
  Test_Service service(store, (folder / "log").string(), {"--datagrid", place});
  ASSERT_TRUE(service.start());
  service.use();
  CFG_Repository other;
  ASSERT_TRUE(other.Connect());
  ASSERT_TRUE(comes([&] { return other.GetBooleanValueWrapper(kGrid + "cache_ready", false); }));

  const std::filesystem::path parameters = folder / "parameters.txt";
  std::ofstream(parameters) << "cfg_type = remote\nremote_server_name = 127.0.0.1\n"
                            << "remote_server_port = " << service.port()
                            << "\nlocal_host_name = here\nlocal_host_ip = 127.0.0.1\n";
  CFG_Factory::SetCFGMode(GetParam());
  CFG_RepositoryServices* const cfg =
      CFG_Factory::GetRepositoryServices(parameters.string().c_str());
  ASSERT_TRUE(cfg);
  EXPECT_EQ(dynamic_cast<CFG_InProcessCacheRepository<CFG_Repository>*>(cfg) != nullptr,
            GetParam() == CFG_MODE_INPROCESS_CACHE);
  EXPECT_EQ(dynamic_cast<CFG_Cache<CFG_Repository>*>(cfg) != nullptr,
            GetParam() == CFG_MODE_DATAGRID_CACHE);

  const size_t found_before = found_in(redis);
  for (int turn = 0; turn < 2; ++turn) {
    for (const auto& [path, text] : values) ASSERT_EQ(cfg->GetValue(path), text) << path;
  }
  EXPECT_EQ(cfg->IsValueInCache(values.back().first), GetParam() == CFG_MODE_INPROCESS_CACHE);
  if (GetParam() == CFG_MODE_DATAGRID_CACHE) {
    EXPECT_GT(found_in(redis), found_before + values.size());
  }
  // Others read what is written, and the keys around it, all the time.
  std::atomic<bool> is_over{false};
  std::thread reader([&] {
    std::mt19937 random(test_seed());
    while (!is_over) {
      const RWCString& path = values[random() % 50].first;
      cfg->GetValue(path);
      RWCString above(path.view().substr(0, path.view().rfind('\\')));
      const SubTreePtr read(cfg->GetSubTree(above));
    }
  });
  std::mt19937 random(test_seed() + 1);
  for (int i = 0; i < 400; ++i) {
    const RWCString& path = values[random() % 50].first;
    const RWCString text("written " + std::to_string(i));
    const size_t end = path.view().rfind('\\');
    RWCString above(path.view().substr(0, end));
    ASSERT_TRUE(cfg->SetValue(path, text)) << path;
    ASSERT_EQ(cfg->GetValue(path), text) << path;
    const SubTreePtr read(cfg->GetSubTree(above));
    ASSERT_TRUE(read);
    ASSERT_EQ(read->GetValue(RWCString(path.view().substr(end + 1))), text) << path;
  }
  is_over = true;
  reader.join();
  EXPECT_TRUE(CFG_Factory::DisconnectRepositoryServices());
}

INSTANTIATE_TEST_SUITE_P(Modes, EveryMode,
                         testing::Values(CFG_MODE_DIRECT, CFG_MODE_INPROCESS_CACHE,
                                         CFG_MODE_DATAGRID_CACHE));

}  // namespace
