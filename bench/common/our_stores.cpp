#include <common/our_stores.h>

#include <unistd.h>

#include <stdexcept>

#include <common/clock.h>
#include <common/our_tree.h>

namespace bench {
namespace {

std::string export_of(CFG_MemoryRepository& repository, const std::string& file) {
  if (!repository.ExportPath("halvoria", RWWString::fromUTF8(file))) {
    throw std::runtime_error("cannot write " + file);
  }
  return file;
}

}  // namespace

our_stores::our_stores(const records& all, const scale& s)
    : handle(build_tree(all)),
      memory(&handle),
      file(RWWString::fromUTF8(s.scratch + "/stores.xml")),
      m_file_name(export_of(memory, s.scratch + "/stores.xml")) {
  if (!file.Connect()) throw std::runtime_error("cannot read " + m_file_name);
  const RWCString deep_path(all.back().path);
  for (size_t i = 0; i < lookups_to_index(all.size()); ++i) {
    keep(memory.GetValue(deep_path).data());
    keep(file.GetValue(deep_path).data());
  }
}

our_stores::~our_stores() { ::unlink(m_file_name.c_str()); }

}  // namespace bench
