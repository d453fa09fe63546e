// Documents: read until the tree stands, beside a parser that makes nothing of them, also by the
// command with all that a process needs; written to a file, beside a loop that has its texts
// ready.
#include <unistd.h>

#include <memory>

#include <CFG/CFG_MemoryRepository.h>
#include <CFG/CFG_SubTree.h>
#include <common/child.h>
#include <common/clock.h>
#include <common/need.h>
#include <common/our_tree.h>
#include <common/program.h>
#include <common/real_document.h>
#include <common/suite.h>
#include <common/touch_memory.h>
#include <peers/bare_xerces.h>
#include <peers/document_writer.h>

namespace bench {
namespace {

const char* const bare = "bare Xerces, empty handlers";

void add_imports(report& result, const scale& s, const records& all, const std::string& file) {
  const auto n = static_cast<double>(all.size());
  const RWWString wide_file = RWWString::fromUTF8(file);
  const std::string document = content(file);
  std::string touched = document;
  touched.insert(document.find("]>"), 1, ' ');
  CFG_MemoryRepository repository(nullptr);

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
  const auto import_buffer = [&](const std::string& bytes) {
    return import([&] {
      return repository.ImportXmlBufferAsCfgSubTree(
          reinterpret_cast<const unsigned char*>(bytes.data()),
          static_cast<unsigned>(bytes.size()));
    });
  };
  const auto buffer = import_buffer(document), touched_buffer = import_buffer(touched);
  const auto from_file = import([&] { return repository.ImportXmlFileAsCfgSubTree(wide_file); });
  const auto bare_buffer = parse([&] { parse_buffer_bare(document); });
  const auto bare_file = parse([&] { parse_file_bare(file); });
  reads.run(s.few_rounds);
  const auto add = [&](const char* subject, rounds::id ours, rounds::id theirs) {
    result.add({subject, bare, "ns/node", 1.25, 0.25}, reads.of(ours), reads.of(theirs));
  };
  add("import, buffer to finished tree", buffer, bare_buffer);
  add("import, file to finished tree", from_file, bare_file);
  result.add({"import of a document that was edited", bare, "ns/node", 1.25, {}},
             reads.of(touched_buffer), reads.of(bare_buffer));
}

void add_exports(report& result, const scale& s, const records& all, const std::string& document) {
  const auto n = static_cast<double>(all.size());
  const std::string out = s.scratch + "/written.xml";
  const RWWString wide_out = RWWString::fromUTF8(out);
  CFG_SubTree tree(build_tree(all));
  CFG_MemoryRepository repository(&tree);

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
  need(content(out) == content(document), "the same bytes as the peer's");
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
}

// --- the whole process -------------------------------------------------------------------------

void add_command(report& result, const scale& s, const std::string& made_up) {
  const real_document document(s.scratch, made_up);
  const std::string out = s.scratch + "/got.txt";
  const words get = {HALVORIA_COMMAND, "--file", document.file(), "get", document.path()};
  rounds runs;
  const auto command = runs.add(
      [&]() -> std::vector<double> { return {processor_time_of(start_program(get, out))}; });
  const auto parse = runs.add([&]() -> std::vector<double> {
    return {processor_time_of(start_copy([&] { parse_file_bare(document.file()); }))};
  });
  processor_time_of(start_program(get, out));
  need(content(out) == document.value() + '\n', "the value at " + document.path());
  runs.run(s.few_rounds);
  result.add(
      {"cfg get, the whole process", "bare Xerces, a process of its own", "ms CPU", 1.25, {}},
      runs.of(command), runs.of(parse));
  ::unlink(out.c_str());
}

}  // namespace

report xml_suite(const scale& s) {
  const records all = make_installation(s.document_hosts);
  const std::string file = s.scratch + "/document.xml";
  write_document(all, file, true);
  report result;
  add_command(result, s, file);
  add_imports(result, s, all, file);
  add_exports(result, s, all, file);
  ::unlink(file.c_str());
  return result;
}

}  // namespace bench
