// The tree that a process keeps in files of its own: from file to first value, saving, merging
// what has changed, and reads under the lock that merges take.
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <memory>
#include <thread>

#include <CFG/CFG_SubTree.h>
#include <CFG/CFG_SynchronizedFileRepository.h>
#include <CFG/detail/moving_merge.h>
#include <CFG/sync/file_cipher.h>
#include <CFG/sync/synced_file.h>
#include <SECM/SECM_crypt.h>
#include <common/child.h>
#include <common/need.h>
#include <common/our_stores.h>
#include <common/our_tree.h>
#include <common/suite.h>
#include <common/touch_memory.h>
#include <common/two_threads.h>
#include <peers/protobuf_tree.h>
#include <system/Sys_Registry.h>
#include <tree/Tree_Node.h>

namespace bench {
namespace {

using cfg::synced_file;
using Header = cfg::Synced_Cfg_File_Header;

// The folder of a client's files, and a registry that says whether they are encrypted.
class client_files {
 public:
  explicit client_files(const std::string& scratch) : m_folder(scratch + "/synced_bench") {
    std::filesystem::remove_all(m_folder);
    std::filesystem::create_directories(m_folder);
    setenv("HALVORIA_REGISTRY", (m_folder / "registry").c_str(), 1);
  }
  client_files(const client_files&) = delete;
  client_files& operator=(const client_files&) = delete;
  ~client_files() { std::filesystem::remove_all(m_folder); }

  void be_encrypted() const {
    need(Sys_Registry::SetValue("HKEY_LOCAL_MACHINE\\SOFTWARE\\Kestral\\install", "base_setup_type",
                                "x"),
         "a registry");
  }
  std::string at(const std::string& name) const { return (m_folder / name).string(); }
  RWWString named(const std::string& name) const {
    return RWWString::fromUTF8(RWCString(at(name)));
  }

 private:
  const std::filesystem::path m_folder;
};

std::string header(const char* sequence, char type) {
  Header made;
  made.sync_id = "bench";
  made.sequence = sequence;
  made.file_type = type;
  const char* misfit = nullptr;
  return made.bytes(misfit);
}

std::string serialised(const Tree_NodePtr& tree) {
  int length = 0;
  const std::unique_ptr<char[]> bytes(
      Tree_Node::GetSerializedTreeNodeSkipPath(tree, length, true, "users"));
  return {bytes.get(), static_cast<size_t>(length)};
}

std::string encrypted(const std::string& text) {
  std::vector<unsigned char> sealed;
  need(cfg::made_file_cipher()->encrypt(reinterpret_cast<const unsigned char*>(text.data()),
                                        static_cast<unsigned>(text.size()), sealed, true),
       "an encrypted text");
  return {sealed.begin(), sealed.end()};
}
std::string decrypted(const std::string& text) {
  std::vector<unsigned char> opened;
  need(cfg::made_file_cipher()->decrypt(reinterpret_cast<const unsigned char*>(text.data()),
                                        static_cast<unsigned>(text.size()), opened, true),
       "a decrypted text");
  return {opened.begin(), opened.end()};
}

std::string content(const std::string& name) {
  std::string bytes(std::filesystem::file_size(name), '\0');
  const int file = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t got = ::read(file, bytes.data() + done, bytes.size() - done);
    need(got > 0, name);
    done += static_cast<size_t>(got);
  }
  ::close(file);
  return bytes;
}

void write_synced(const std::string& name, std::string_view bytes) {
  const int file = ::open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  need(::write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), name);
  need(::fsync(file) == 0, name);
  ::close(file);
}

// No service answers: the port is nobody's.
void serve_nobody() {
  CFG_SubTree any("any");
  any.SetProperty("HALVORIA_REMOTE_SERVER_NAME", "127.0.0.1");
  any.SetProperty("HALVORIA_REMOTE_SERVER_PORT", "1");
}

void add_starts(report& result, const records& all, const Tree_NodePtr& tree,
                const client_files& files, const scale& s) {
  const auto n = static_cast<double>(all.size());
  const RWCString path(all.back().path);
  const std::string data = serialised(tree), value = all.back().value;
  const std::string wire = protobuf_tree(all).serialised();
  for (const char type : {char(Header::PLAIN), char(Header::ENCRYPTED)}) {
    const bool is_encrypted = type == Header::ENCRYPTED;
    if (is_encrypted) files.be_encrypted();
    RWCString error;
    need(synced_file(files.named("tree.cfg"))
             .save(header("1", type), is_encrypted ? encrypted(data) : data, error),
         error.str());
    write_synced(files.at("wire"), encrypted(wire));
    rounds runs;
    const auto in_child = [&](auto work) {
      return runs.add([&, work] {
        return figures_in_child([&]() -> std::vector<double> {
          ::malloc_trim(0);
          touch_memory(all.size() * 500);
          return {time_ns(WALL, work) / n};
        });
      });
    };
    const auto ours = in_child([&] {
      auto* const repository = new CFG_SynchronizedFileRepository(files.named("tree.cfg"));
      repository->Connect();  // the process ends
      need(repository->GetValue(path).str() == value, "the value of a file");
    });
    const auto theirs = in_child([&] {
      auto* const parsed = new protobuf_tree;
      parsed->parse(decrypted(content(files.at("wire"))));
      need(parsed->size() == all.size(), "the peer's tree");
    });
    runs.run(s.few_rounds);
    result.add({std::string("file to served tree, ") + (is_encrypted ? "encrypted" : "plain"),
                "read, RC4, protobuf parse into an arena", "ns/node", 0.6, 0.4},
               runs.of(ours), runs.of(theirs));
  }
}

void add_saves(report& result, const Tree_NodePtr& tree, const client_files& files,
               const scale& s) {
  const synced_file file(files.named("saved.cfg"));
  RWCString error;
  rounds saves;
  const auto ours = saves.add([&]() -> std::vector<double> {
    return {time_ns(WALL,
                    [&] {
                      need(file.save(header("1", Header::ENCRYPTED), encrypted(serialised(tree)),
                                     error),
                           error.str());
                    }) /
            1e6};
  });
  const auto theirs = saves.add([&]() -> std::vector<double> {
    return {time_ns(WALL, [&] { write_synced(files.at("theirs"), encrypted(serialised(tree))); }) /
            1e6};
  });
  saves.run(s.few_rounds);
  result.add({"save, encrypted", "serialise, RC4, write, fsync", "ms", 1.15, {}}, saves.of(ours),
             saves.of(theirs));

  Sys_File::Identity identity;
  std::string before;
  {
    synced_file::Reader reader(file, synced_file::NEWEST);
    need(reader.open(), "the saved file");
    identity = reader.identity();
    before = reader.header_bytes();
  }
  int sequence = 1;
  constexpr int kCalls = 100;
  rounds headers;
  const auto of_ours = headers.add([&]() -> std::vector<double> {
    return {time_ns(WALL,
                    [&] {
                      for (int i = 0; i < kCalls; ++i) {
                        const std::string next =
                            header(std::to_string(++sequence).c_str(), Header::ENCRYPTED);
                        need(file.save_header(next, identity, before, error) == synced_file::DONE,
                             error.str());
                        before = next;
                      }
                    }) /
            kCalls / 1e3};
  });
  const auto of_theirs = headers.add([&]() -> std::vector<double> {
    return {time_ns(WALL,
                    [&] {
                      for (int i = 0; i < kCalls; ++i) {
                        const int opened = ::open(files.at("theirs").c_str(), O_WRONLY | O_CLOEXEC);
                        need(::pwrite(opened, before.data(), before.size(), 0) == Header::SIZE,
                             "a write");
                        ::close(opened);
                      }
                    }) /
            kCalls / 1e3};
  });
  headers.run(s.many_rounds);
  result.add({"save of the header alone", "open, a write of 224 bytes, close", "us", 2.0, {}},
             headers.of(of_ours), headers.of(of_theirs));
}

// A thousand values all over a tree, into its nodes.
void add_merges(report& result, const records& all, const scale& s) {
  std::vector<double> small, large;
  const auto changes_of = [&](const records& of) {
    std::vector<const record*> changed;
    const size_t step = std::max<size_t>(1, of.size() / 1000);
    for (size_t i = 0; i < of.size(); i += step) {
      if (!of[i].value.empty()) changed.push_back(&of[i]);
    }
    return changed;
  };
  const auto merge_into = [&](rounds& runs, const records& of, CFG_SubTree& into) {
    return runs.add([&, round = std::make_shared<int>(0)]() -> std::vector<double> {
      CFG_SubTree news("halvoria");
      const RWCString text("changed in round " + std::to_string(++*round));
      const auto changed = changes_of(of);
      for (const record* one : changed) news.SetValue(RWCString(one->path.substr(root_cut)), text);
      const double time =
          time_ns(CPU, [&] { cfg::merge_moving(*into.GetData(), *news.GetData(), RWCString()); });
      return {time / static_cast<double>(changed.size())};
    });
  };
  const records few = make_installation(std::max(1, s.hosts / 100));
  CFG_SubTree merged(build_tree(all)), merged_small(build_tree(few)), set(build_tree(all));
  rounds runs;
  const auto ours = merge_into(runs, all, merged);
  const auto ours_small = merge_into(runs, few, merged_small);
  const auto theirs = runs.add([&, round = 0]() mutable -> std::vector<double> {
    const RWCString text("changed in round " + std::to_string(++round));
    const auto changed = changes_of(all);
    std::vector<RWCString> paths;
    for (const record* one : changed) paths.emplace_back(one->path.substr(root_cut));
    const double time = time_ns(CPU, [&] {
      for (const RWCString& path : paths) set.SetValue(path, text);
    });
    return {time / static_cast<double>(changed.size())};
  });
  runs.run(s.many_rounds);
  const std::string subject = "merge of 1,000 changes into " + grouped(all.size()) + " nodes";
  result.add({subject, "SetValue of each", "ns/change", 1.0, {}}, runs.of(ours), runs.of(theirs));
  result.add({subject, "the same into " + grouped(few.size()) + " nodes", "ns/change", {}, {}},
             runs.of(ours), runs.of(ours_small));
}

// Of reads, in us, while another thread writes once a millisecond.
double p99_beside(const std::function<void()>& write, const std::function<void(size_t)>& read) {
  constexpr size_t kReads = 50'000;
  std::atomic<bool> is_over{false};
  std::thread writer([&] {
    while (!is_over) {
      write();
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  samples times(kReads);
  for (size_t i = 0; i < kReads; ++i) times[i] = time_ns(WALL, [&] { read(i); }) / 1e3;
  is_over = true;
  writer.join();
  const auto at = times.begin() + kReads / 100 * 99;
  std::nth_element(times.begin(), at, times.end());
  return *at;
}

void add_reads(report& result, const records& all, const client_files& files, const scale& s) {
  our_stores stores(all, s);
  CFG_SynchronizedFileRepository synced(files.named("tree.cfg"));
  need(synced.Connect(), "a synchronized repository");
  std::vector<RWCString> paths;
  for (const std::string& path : paths_to_read(all, s.calls, s.hot_paths)) paths.emplace_back(path);
  const RWCString deep(all.back().path);
  for (size_t i = 0; i < lookups_to_index(all.size()); ++i) keep(synced.GetValue(deep).data());
  const auto read = [&](CFG_Services& store, size_t count) {
    for (size_t i = 0; i < count; ++i) keep(store.GetValue(paths[i]).data());
  };
  rounds reads;
  const size_t n = paths.size();
  const auto ours = reads.add(per_call(n, [&, n] { read(synced, n); }));
  const auto theirs = reads.add(per_call(n, [&, n] { read(stores.file, n); }));
  reads.run(s.many_rounds);
  const char* peer = "file repository";
  result.add({grouped(s.hot_paths) + " hot paths", peer, "ns/read", 1.1, {}}, reads.of(ours),
             reads.of(theirs));
  if (!two_processors()) return;
  CFG_SubTree branch("replaced");
  for (int i = 0; i < 1000; ++i) branch.SetValue(RWCString("v" + std::to_string(i)), "value");
  rounds beside;
  const auto ours_beside = beside.add([&]() -> std::vector<double> {
    return {p99_beside([&] { synced.AddOrReplaceSubTreeOnlyBaseRep(&branch, "halvoria\\system"); },
                       [&](size_t i) { keep(synced.GetValue(paths[i % n]).data()); })};
  });
  const auto theirs_beside = beside.add([&]() -> std::vector<double> {
    return {p99_beside([&] { stores.file.AddOrReplaceSubTree(&branch, "halvoria\\system"); },
                       [&](size_t i) { keep(stores.file.GetValue(paths[i % n]).data()); })};
  });
  beside.run(s.few_rounds);
  result.add({"a read beside a thread that replaces 1,000 values, p99", peer, "us", {}, {}},
             beside.of(ours_beside), beside.of(theirs_beside));
  rounds shared;
  const size_t few = std::min<size_t>(n, 1000);
  const auto both = [&](CFG_Services& store) {
    return shared.add([&, few]() -> std::vector<double> {
      return {cost_of_sharing([&] { read(store, few); }).together / static_cast<double>(few)};
    });
  };
  const auto ours_shared = both(synced), theirs_shared = both(stores.file);
  shared.run(s.few_rounds);
  result.add({"two threads on the same paths", peer, "ns/read", 1.1, {}}, shared.of(ours_shared),
             shared.of(theirs_shared));
}

}  // namespace

report sync_suite(const scale& s) {
  const records all = make_installation(s.hosts);
  const client_files files(s.scratch);
  serve_nobody();
  report result;
  {
    const Tree_NodePtr tree = build_tree(all);
    add_starts(result, all, tree, files, s);
    add_saves(result, tree, files, s);
  }
  add_merges(result, all, s);
  add_reads(result, all, files, s);
  return result;
}

}  // namespace bench
