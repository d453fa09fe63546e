// Trees as arrays of bytes: read until the tree stands, beside a parser that makes a list of
// messages; written, beside its serialiser and beside a tree that is made for being written.
#include <malloc.h>

#include <memory>
#include <stdexcept>

#include <CFG/CFG_RepositoryServices.h>
#include <CFG/CFG_SubTree.h>
#include <common/child.h>
#include <common/clock.h>
#include <common/our_tree.h>
#include <common/suite.h>
#include <common/touch_memory.h>
#include <peers/linked_nodes.h>
#include <peers/protobuf_tree.h>

namespace bench {
namespace {

std::string encoded(CFG_SubTree& tree) {
  int length = 0;
  const std::unique_ptr<char[]> bytes(CFG_SubTree::SerializeSubTree(&tree, length));
  if (!bytes) throw std::runtime_error("the tree has no byte array");
  return {bytes.get(), static_cast<size_t>(length)};
}

}  // namespace

report bytes_suite(const scale& s) {
  const records all = make_installation(s.hosts);
  const auto n = static_cast<double>(all.size());
  CFG_SubTree tree(build_tree(all));
  const linked_nodes linked(all);
  const protobuf_tree message(all);
  const std::string array = encoded(tree), wire = message.serialised();
  const std::vector<char> theirs = linked.encoded();
  if (array != std::string_view(theirs.data(), theirs.size())) {
    throw std::runtime_error("the array is not that of the peer");
  }
  const char* unit = "ns/node";
  report result;

  // Each sample begins with an empty heap; what it made goes with its process.
  rounds reads;
  const auto read = [&](auto work) {
    return reads.add([&, work] {
      return figures_in_child([&]() -> std::vector<double> {
        ::malloc_trim(0);
        touch_memory(all.size() * 500);
        return {work() / n};
      });
    });
  };
  const auto ours = read([&] {
    std::unique_ptr<CFG_SubTree> made;
    const double time = time_ns(CPU, [&] {
      made.reset(CFG_RepositoryServices::CreateSubTreeFromByteArray(
          array.data(), static_cast<int>(array.size())));
    });
    if (!made || encoded(*made) != array)
      throw std::runtime_error("the tree is not that of the array");
    return time;
  });
  const auto parse = read([&] {
    auto* const parsed = new protobuf_tree;  // the process ends
    const double time = time_ns(CPU, [&] { parsed->parse(wire); });
    if (parsed->size() != all.size()) throw std::runtime_error("protobuf parse");
    return time;
  });
  reads.run(s.few_rounds);
  result.add({"array to finished tree", protobuf_tree::parse_name, unit, 1.0, 0.67}, reads.of(ours),
             reads.of(parse));

  rounds writes;
  const auto write = [&](auto work) {
    return writes.add([&, work]() -> std::vector<double> { return {time_ns(CPU, work) / n}; });
  };
  const auto serialise = write([&] {
    int length = 0;
    const std::unique_ptr<char[]> bytes(CFG_SubTree::SerializeSubTree(&tree, length));
    keep(bytes.get());
  });
  const auto protobuf = write([&] { keep(message.serialised().data()); });
  const auto limit = write([&] { keep(linked.encoded().data()); });
  writes.run(s.many_rounds);
  result.add({"tree to array", protobuf_tree::serialise_name, unit, 0.83, {}}, writes.of(serialise),
             writes.of(protobuf));
  result.add({"tree to array", linked_nodes::name, unit, {}, 1.11}, writes.of(serialise),
             writes.of(limit));
  return result;
}

}  // namespace bench
