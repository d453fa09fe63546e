#include "output_file.h"

#include <filesystem>

#include <system/Sys_FileReplacer.h>

#include "failure.h"

namespace cli {

namespace {

bool is_same_file(const std::string& one, const std::string& other) {
  std::error_code fault;  // one that is not there is no other's
  return std::filesystem::equivalent(one, other, fault) && !fault;
}

}  // namespace

void require_other_file(const Store& store, const std::string& file) {
  if (store.file().empty() || is_standard(file) || !is_same_file(store.file(), file)) return;
  throw Failure(REFUSED, file + " is the file of the tree itself and is not written over");
}

void write_file(const std::string& file, std::string_view bytes) {
  Sys_FileReplacer replacer(RWWString::fromUTF8(file));
  if (!replacer.write(bytes) || !replacer.commit()) throw Failure(REFUSED, replacer.error().str());
}

}  // namespace cli
