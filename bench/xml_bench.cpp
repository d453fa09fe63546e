// Documents: read until the tree stands, beside a parser that makes nothing of them; written
// to a file, beside a loop that has its texts ready.
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

#include <CFG/CFG_MemoryRepository.h>
#include <CFG/CFG_SubTree.h>
#include <common/clock.h>
#include <common/need.h>
#include <common/our_tree.h>
#include <common/suite.h>
#include <common/touch_memory.h>
#include <peers/bare_xerces.h>
#include <peers/document_writer.h>

namespace bench {
namespace {

std::string content(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace

report xml_suite(const scale& s) {
  const records all = make_installation(s.document_hosts);
  const auto n = static_cast<double>(all.size());
  const std::string file = s.scratch + "/document.xml", out = s.scratch + "/written.xml";
  const RWWString wide_file = RWWString::fromUTF8(file), wide_out = RWWString::fromUTF8(out);
  CFG_SubTree tree(build_tree(all));
  CFG_MemoryRepository repository(&tree);
  write_document(all, file, true);
  const std::string document = content(file);
  report result;

  rounds reads;
  // The tree goes when the time is taken.
  const auto import = [&](auto read) {
    return reads.add([&, read]() -> std::vector<double> {
      std::unique_ptr<CFG_SubTree> imported;
      touch_memory(all.size() * 700);
      const double time = time_ns(CPU, [&] { imported.reset(read()); });
      need(imported && imported->GetSubTreeEntriesCount("") + 1 == static_cast<int>(n), "import");
      return {time / n};
    });
  };
  const auto parse = [&](auto work) {
    return reads.add([=]() -> std::vector<double> { return {time_ns(CPU, work) / n}; });
  };
  const auto buffer = import([&] {
    return repository.ImportXmlBufferAsCfgSubTree(
        reinterpret_cast<const unsigned char*>(document.data()),
        static_cast<unsigned>(document.size()));
  });
  const auto from_file = import([&] { return repository.ImportXmlFileAsCfgSubTree(wide_file); });
  const auto bare_buffer = parse([&] { parse_buffer_bare(document); });
  const auto bare_file = parse([&] { parse_file_bare(file); });
  reads.run(s.few_rounds);
  result.add(
      {"import, buffer to finished tree", "bare Xerces, empty handlers", "ns/node", 1.25, 0.25},
      reads.of(buffer), reads.of(bare_buffer));
  result.add(
      {"import, file to finished tree", "bare Xerces, empty handlers", "ns/node", 1.25, 0.25},
      reads.of(from_file), reads.of(bare_file));

  rounds writes;
  // Each sample writes a new file and takes it away, so that none pays for another's dirty
  // pages: wall time and processor time.
  const auto write = [&](std::function<void()> work) {
    return writes.add([&, work]() -> std::vector<double> {
      double processor = 0;
      const double wall = time_ns(WALL, [&] { processor = time_ns(CPU, work); });
      ::unlink(out.c_str());
      return {wall / n, processor / n};
    });
  };
  const auto sub_tree = write(
      [&] { need(repository.ExportSubTreeToFile(&tree, wide_out, ""), "export of a subtree"); });
  const auto path = write([&] { need(repository.ExportPath("halvoria", wide_out), "export"); });
  const auto plain = write([&] { write_document(all, out, false); });
  const auto synced = write([&] { write_document(all, out, true); });

  need(repository.ExportPath("halvoria", wide_out), "export");
  need(content(out) == document, "the same bytes as the peer's");
  ::unlink(out.c_str());
  writes.run(s.few_rounds);
  const auto add = [&](const claim& what, rounds::id ours, rounds::id theirs, size_t figure) {
    result.add(what, writes.of(ours, figure), writes.of(theirs, figure));
  };
  const char *runs = "escape by runs, to a file", *and_sync = "escape by runs, to a file, synced";
  const char *unit = "ns/node", *processor_unit = "ns CPU/node";
  add({"export of a subtree, synced to disk", runs, unit, 1.67, 1.25}, sub_tree, plain, 0);
  add({"export of a subtree, synced to disk", and_sync, unit, 1.67, 1.25}, sub_tree, synced, 0);
  add({"export of a subtree, processor time", runs, processor_unit, 1.67, 1.25}, sub_tree, plain,
      1);
  add({"export of a path, synced to disk", and_sync, unit, 1.67, 1.25}, path, synced, 0);
  add({"export of a path, processor time", runs, processor_unit, 1.67, 1.25}, path, plain, 1);
  ::unlink(file.c_str());
  return result;
}

}  // namespace bench
