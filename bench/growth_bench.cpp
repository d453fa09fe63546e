// What a node costs in trees of ten thousand to four million nodes: time and memory must grow
// with the nodes, and with nothing else but what caches explain.
#include <unistd.h>

#include <memory>
#include <span>
#include <stdexcept>

#include <CFG/CFG_MemoryRepository.h>
#include <CFG/CFG_SubTree.h>
#include <common/child.h>
#include <common/clock.h>
#include <common/footprint.h>
#include <common/need.h>
#include <common/our_tree.h>
#include <common/suite.h>
#include <common/touch_memory.h>

namespace bench {
namespace {

// One tree from its making to its end: each step leaves behind what the next one begins with.
class life {
 public:
  life(int hosts, const scale& s) : m_all(make_installation(hosts)), m_scale(s) {}

  double build() {
    return a_node([&] { m_top = build_tree(m_all); });
  }
  double copy() {
    return a_node([&] { m_copy = m_top->DuplicateFromHereDown(TRUE); });
  }
  double destroy() {
    return a_node([&] { m_copy = nullptr; });
  }

  double read_hot() {
    const std::vector<RWCString> paths = paths_below_top(m_scale.hot_paths);
    for (size_t left = lookups_to_index(m_all.size()), more; left > 0; left -= more) {
      more = std::min(left, paths.size());
      read({paths.data(), more});
    }
    return read(paths);
  }
  double read_all() { return read(paths_below_top(m_all.size())); }

  double write_document() {
    CFG_SubTree tree(m_top);
    return a_node([&] {
      need(CFG_MemoryRepository(&tree).ExportPath("halvoria", wide_document()), "export");
    });
  }
  double read_document() {
    CFG_SubTree any("halvoria");
    std::unique_ptr<CFG_SubTree> tree;
    const double cost = a_node(
        [&] { tree.reset(CFG_MemoryRepository(&any).ImportXmlFileAsCfgSubTree(wide_document())); });
    ::unlink(document().c_str());
    need(is_whole(tree.get()), "import");
    return cost;
  }
  double write_bytes() {
    CFG_SubTree tree(m_top);
    return a_node([&] { m_bytes.reset(CFG_SubTree::SerializeSubTree(&tree, m_length)); });
  }
  double read_bytes() {
    std::unique_ptr<CFG_SubTree> tree;
    const double cost = a_node([&] {
      tree.reset(CFG_RepositoryServices::CreateSubTreeFromByteArray(m_bytes.get(), m_length));
    });
    need(is_whole(tree.get()), "byte array");
    return cost;
  }

  // Bytes a node.
  double memory() {
    const double before = footprint_now().resident;
    m_top = build_tree(m_all);
    return (footprint_now().resident - before) / static_cast<double>(m_all.size());
  }

 private:
  template <class Work>
  double a_node(Work work) const {
    touch_memory(m_all.size() * 200);
    return time_ns(CPU, work) / static_cast<double>(m_all.size());
  }

  std::vector<RWCString> paths_below_top(size_t distinct) const {
    std::vector<RWCString> paths;
    for (const std::string& path : paths_to_read(m_all, m_scale.calls, distinct)) {
      paths.emplace_back(path.substr(path.find('\\') + 1));
    }
    return paths;
  }
  double read(std::span<const RWCString> paths) const {
    CFG_SubTree tree(m_top);
    const double time = time_ns(CPU, [&] {
      for (const RWCString& path : paths) keep(tree.GetValue(path).data());
    });
    return time / static_cast<double>(paths.size());
  }

  bool is_whole(CFG_SubTree* tree) const {
    return tree && tree->GetSubTreeEntriesCount("") + 1 == static_cast<int>(m_all.size());
  }
  std::string document() const { return m_scale.scratch + "/growth.xml"; }
  RWWString wide_document() const { return RWWString::fromUTF8(document()); }

  const records m_all;
  const scale& m_scale;
  Tree_NodePtr m_top, m_copy;
  std::unique_ptr<char[]> m_bytes;
  int m_length = 0;
};

struct step {
  const char* name;
  const char* unit;
  double (life::*cost)();
};
constexpr step steps[] = {
    {"build", "ns/node", &life::build},
    {"deep copy", "ns/node", &life::copy},
    {"destroy", "ns/node", &life::destroy},
    {"read, hot paths", "ns/read", &life::read_hot},
    {"read, paths all over the tree", "ns/read", &life::read_all},
    {"XML export", "ns/node", &life::write_document},
    {"XML import", "ns/node", &life::read_document},
    {"tree to byte array", "ns/node", &life::write_bytes},
    {"byte array to tree", "ns/node", &life::read_bytes},
};

std::vector<double> costs_of_life(int hosts, const scale& s) {
  life tree(hosts, s);
  std::vector<double> costs;
  for (const step& next : steps) costs.push_back((tree.*next.cost)());
  return costs;
}

}  // namespace

report growth_suite(const scale& s) {
  rounds times, memory;
  std::vector<std::string> sizes;
  for (const int hosts : s.growing_hosts) {
    sizes.push_back(grouped(make_installation(hosts).size()) + " nodes");
    times.add([&s, hosts] {
      return figures_in_child([&] {
        costs_of_life(2, s);  // what a process pays once
        return costs_of_life(hosts, s);
      });
    });
    memory.add([&s, hosts] {
      return figures_in_child([&]() -> std::vector<double> { return {life(hosts, s).memory()}; });
    });
  }
  times.run(s.few_rounds);
  memory.run(2);

  report result;
  for (size_t i = 1; i < sizes.size(); ++i) {
    const auto add = [&](const char* name, const char* unit, const rounds& measured, size_t which) {
      result.add({std::string(name) + ", " + sizes[i], "the same, " + sizes[i - 1], unit, {}, {}},
                 measured.of(i, which), measured.of(i - 1, which));
    };
    add("memory, resident", "bytes/node", memory, 0);
    for (size_t which = 0; which < std::size(steps); ++which) {
      add(steps[which].name, steps[which].unit, times, which);
    }
  }
  return result;
}

}  // namespace bench
