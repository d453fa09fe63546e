// A service with a small tree, and clients that keep files of it.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <CFG/CFG_SubTree.h>
#include <CFG/CFG_SynchronizedFileRepository.h>
#include <CFG/sync/file_header.h>
#include <CFG/test_trees.h>
#include <servers/Test_Postgres.h>
#include <servers/Test_Service.h>
#include <support/comes.h>
#include <support/temporary_folder.h>
#include <tree/Tree_Node.h>

using Header = cfg::Synced_Cfg_File_Header;
using Client = std::unique_ptr<CFG_SynchronizedFileRepository>;
using Content = std::set<std::string>;

inline const std::string kReset = CFG_SynchronizedFileRepository::CFG_SERVER_RESET_COUNT;

// All below a path, in no order.
inline Content content(CFG_Services& services, const std::string& path) {
  Content found;
  const SubTreePtr top(services.GetSubTree(RWCString(path)));
  if (!top) return found;
  const Tree_NodePtr root = top->GetData();
  std::vector<std::pair<std::string, const Tree_Node*>> open{{path, root.get()}};
  while (!open.empty()) {
    const auto [at, node] = open.back();
    open.pop_back();
    found.insert(at + (node->IsLeaf() ? "=" + std::string(node->GetText()) : "\\"));
    for (int i = 0; i < node->GetChildCount(); ++i) {
      const Tree_Node* child = const_cast<Tree_Node*>(node)->GetChildAt(i).get();
      open.emplace_back(at + "\\" + std::string(child->NameView()), child);
    }
  }
  return found;
}

// What only one of them has.
inline std::string difference(const Content& here, const Content& at_service) {
  std::string text;
  const auto only = [&](const char* where, const Content& some, const Content& others) {
    for (const std::string& entry : some) {
      if (!others.contains(entry)) text += where + entry + "\n";
    }
  };
  only("only here: ", here, at_service);
  only("only at the service: ", at_service, here);
  return text;
}

inline std::string read_file(const std::filesystem::path& name) {
  std::ostringstream text;
  text << std::ifstream(name, std::ios::binary).rdbuf();
  return text.str();
}
inline void write_file(const std::filesystem::path& name, const std::string& bytes) {
  std::ofstream(name, std::ios::binary | std::ios::trunc) << bytes;
}

inline std::optional<Test_Postgres> postgres;  // which is the store, where it is there

class Synced : public testing::Test {
 public:
  Synced() {
    EXPECT_TRUE(service.start());
    service.use();
    server.Connect();
    for (int i = 0; i < 200; ++i) {
      server.SetValue(RWCString("halvoria\\system\\nodes\\n" + std::to_string(i) + "\\name"), "n");
    }
    server.SetValue("halvoria\\system\\queues\\q\\entry", "never kept");
    server.SetValue("halvoria\\conf\\odd name\\x", "%d");
    server.SetValue("halvoria\\users\\ann\\colour", "red");
    server.SetValue("halvoria\\users\\bob\\colour", "blue");
  }

  Client client(const char* user = "ann") {
    auto made = std::make_unique<CFG_SynchronizedFileRepository>(files.file("tree.cfg"));
    EXPECT_TRUE(made->Connect());
    if (user) made->SetProperty("CurrUser", user);
    return made;
  }
  // Our own connection to the one before breaks with the next request.
  void start_service_again() {
    EXPECT_TRUE(service.start());
    EXPECT_TRUE(comes([&] { return !server.GetMaxSeqNumber().isNull(); }));
  }
  // Until it has saved its files.
  void start_once(const char* user = "ann") {
    const Client first = client(user);
    EXPECT_TRUE(comes([&] { return first->FinishedWritingSyncFiles(); }));
  }
  void expect_as_served(CFG_Services& tree, const std::string& user = "ann") {
    Content system = content(server, "halvoria\\system");
    std::erase_if(system, [](const std::string& entry) {
      return entry.find("\\system\\queues") != entry.npos;
    });
    EXPECT_EQ(difference(content(tree, "halvoria\\system"), system), "");
    for (const std::string& branch : std::vector<std::string>{"halvoria\\conf", "halvoria\\groups",
                                                              "halvoria\\users\\" + user}) {
      EXPECT_EQ(difference(content(tree, branch), content(server, branch)), "");
    }
  }
  std::filesystem::path system_file() const { return files / "tree.cfg"; }
  std::filesystem::path user_file() const { return files / "tvk_user_cfg_ann_tree.cfg"; }
  Header header_of(const std::filesystem::path& file) const {
    return Header::read(read_file(file).substr(0, Header::SIZE));
  }
  void change_header(const std::filesystem::path& file,
                     const std::function<void(Header&)>& change) {
    std::string bytes = read_file(file);
    Header header = Header::read(bytes.substr(0, Header::SIZE));
    change(header);
    const char* misfit = nullptr;
    write_file(file, header.bytes(misfit) + bytes.substr(Header::SIZE));
    std::filesystem::remove(file.string() + ".sum");
    std::filesystem::remove(file.string() + ".old");
  }

  const TemporaryFolder store_folder, files;
  const std::string store =
      postgres ? postgres->connection() : "sqlite:" + (store_folder / "tree.db").string();
  Test_Service service{store, (store_folder / "log").string()};
  CFG_Repository server;
};
