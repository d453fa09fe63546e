// Whole trees: the memory they take, and building, copying and dropping them. Each sample is
// a process of its own that begins with an empty heap.
#include <memory>
#include <optional>
#include <stdexcept>

#include <CFG/CFG_SubTree.h>
#include <common/child.h>
#include <common/clock.h>
#include <common/footprint.h>
#include <common/our_tree.h>
#include <common/suite.h>
#include <common/touch_memory.h>
#include <peers/flat_map.h>
#include <peers/nested_map.h>
#include <peers/property_tree.h>
#include <tree/Tree_NodeInfo.h>

namespace bench {
namespace {

// --- memory ------------------------------------------------------------------------------------

// Makes something that holds the tree; then, where given, does more to it. Bytes a node: in
// use, resident, and both again after that.
template <class Make>
std::vector<double> measured_footprint(
    const records& all, Make make, const std::function<void(decltype(make())&)>& then = nullptr) {
  return figures_in_child([&]() -> std::vector<double> {
    give_memory_back();
    const footprint before = footprint_now();
    auto tree = make();
    std::vector<double> figures;
    const auto add = [&] {
      const footprint now = footprint_now();
      figures.push_back((now.in_use - before.in_use) / static_cast<double>(all.size()));
      figures.push_back((now.resident - before.resident) / static_cast<double>(all.size()));
    };
    add();
    if (then) then(tree);
    if (then) add();
    return figures;
  });
}

// --- build, copy, destroy ------------------------------------------------------------------------

template <class Tree, class Build, class Copy>
std::vector<double> measured_life(size_t nodes, Build build, Copy copy) {
  return figures_in_child([&]() -> std::vector<double> {
    begin_with_empty_heap(nodes);
    Tree tree, second;
    const double figures[] = {time_ns(CPU, [&] { tree = build(); }),
                              time_ns(CPU, [&] { second = copy(tree); }),
                              time_ns(CPU, [&] { tree = Tree(); })};
    const double n = static_cast<double>(nodes);
    return {figures[0] / n, figures[1] / n, figures[2] / n};
  });
}

template <class Peer>
std::vector<double> measured_life_of(const records& all) {
  using tree = std::unique_ptr<Peer>;
  return measured_life<tree>(
      all.size(), [&] { return std::make_unique<Peer>(all); },
      [](const tree& from) { return std::make_unique<Peer>(*from); });
}

template <class Build>
std::vector<double> measured_build(size_t nodes, Build build) {
  return figures_in_child([&]() -> std::vector<double> {
    begin_with_empty_heap(nodes);
    std::optional<decltype(build())> tree;
    return {time_ns(CPU, [&] { tree.emplace(build()); }) / static_cast<double>(nodes)};
  });
}

using record_vector = Tmr_PtrSortedVector<Tree_NodeInfo>;

// With paths relative to the root.
std::unique_ptr<record_vector> sorted_records(const records& all) {
  auto sorted = std::make_unique<record_vector>();
  for (const record& r : all) {
    if (r.parent < 0) continue;
    sorted->append(
        new Tree_NodeInfo(RWCString(r.path.substr(r.path.find('\\') + 1)), RWCString(r.value), 0));
  }
  sorted->sort();
  return sorted;
}

std::vector<std::pair<RWCString, RWCString>> values_by_path(const records& all) {
  std::vector<std::pair<RWCString, RWCString>> values;
  for (const record& r : all) {
    if (!r.value.empty()) values.emplace_back(r.path.substr(r.path.find('\\') + 1), r.value);
  }
  return values;
}

}  // namespace

report memory_suite(const scale& s) {
  const records all = make_installation(s.hosts);
  const std::string deep_path = all.back().path.substr(all.back().path.find('\\') + 1);
  const auto read_often = [&](Tree_NodePtr& top) {
    for (size_t i = 0; i <= lookups_to_index(all.size()); ++i) {
      keep(top->Find(deep_path));
    }
  };
  rounds footprints;
  const auto ours = footprints.add([&] {
    return measured_footprint(
        all, [&] { return build_tree(all); }, read_often);
  });
  const auto theirs = footprints.add(
      [&] { return measured_footprint(all, [&] { return std::make_unique<flat_map>(all); }); });
  footprints.run(2);
  report result;
  const auto add = [&](const char* subject, size_t our_figure, size_t their_figure) {
    result.add({subject, flat_map::name, "bytes/node", 0.50, 0.35}, footprints.of(ours, our_figure),
               footprints.of(theirs, their_figure));
  };
  add("in use", 0, 0);
  add("resident", 1, 1);
  add("in use, with path index", 2, 0);
  add("resident, with path index", 3, 1);
  return result;
}

report bulk_suite(const scale& s) {
  const records all = make_installation(s.hosts);
  const size_t n = all.size();
  const auto sorted = sorted_records(all);
  const auto values = values_by_path(all);
  rounds lives;
  const auto ours = lives.add([&] {
    return measured_life<Tree_NodePtr>(
        n, [&] { return build_tree(all); },
        [](const Tree_NodePtr& from) { return from->DuplicateFromHereDown(TRUE); });
  });
  const auto nested = lives.add([&] { return measured_life_of<nested_map>(all); });
  const auto boost_tree = lives.add([&] { return measured_life_of<property_tree>(all); });

  const auto from_records = lives.add([&] {
    return measured_build(
        n, [&] { return Tree_NodePtr(new Tree_Node(""))->BuildSubTree(sorted.get(), "halvoria"); });
  });
  const auto by_path = lives.add([&] {
    return measured_build(n, [&] {
      CFG_SubTree tree("halvoria");
      for (const auto& [path, value] : values) tree.SetValue(path, value);
      return tree;
    });
  });
  const auto nested_by_path = lives.add([&] {
    return measured_build(n, [&] {
      auto tree = std::make_unique<nested_map>();
      for (const auto& [path, value] : values) tree->set(path, value.str());
      return tree;
    });
  });
  // The least that any tree could pay: its memory in large blocks, all in use until now.
  const auto blocks = lives.add([&] {
    return figures_in_child([&]() -> std::vector<double> {
      constexpr size_t block = 2 << 20;
      const uint64_t bytes = CFG_SubTree(build_tree(all)).GetTotalSize();
      std::vector<std::unique_ptr<char[]>> tree;
      for (uint64_t held = 0; held < bytes; held += block) {
        tree.push_back(std::make_unique<char[]>(block));
      }
      return {time_ns(CPU, [&] { tree.clear(); }) / static_cast<double>(n)};
    });
  });
  lives.run(s.few_rounds);

  report result;
  const auto add = [&](const claim& what, rounds::id our_case, rounds::id their_case,
                       size_t figure) {
    result.add(what, lives.of(our_case, figure), lives.of(their_case, figure));
  };
  const char *map = nested_map::name, *unit = "ns/node";
  add({"build, each node added to its key", map, unit, 0.65, 0.50}, ours, nested, 0);
  add({"build, from sorted records", map, unit, {}, {}}, from_records, nested, 0);
  add({"build, SetValue by path", "the same, set by path", unit, 1.3, {}}, by_path, nested_by_path,
      0);
  add({"deep copy", map, unit, 0.50, 0.25}, ours, nested, 1);
  add({"destroy", map, unit, 0.50, {}}, ours, nested, 2);
  add({"destroy", property_tree::name, unit, 1.0, {}}, ours, boost_tree, 2);
  result.add({"destroy", "its bytes in blocks of 2 MB", unit, {}, 1.5}, lives.of(ours, 2),
             lives.of(blocks));
  return result;
}

}  // namespace bench
