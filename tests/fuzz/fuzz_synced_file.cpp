// Synced files: any bytes as a file and as the checksums beside it are read without a fault, and
// what is read can be saved and comes back the same.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>

#include <CFG/CFG_SubTree.h>
#include <CFG/CFG_SynchronizedFileRepository.h>
#include <CFG/sync/synced_file.h>
#include <tree/Tree_Node.h>

#include "reach.h"

namespace {

using cfg::synced_file;
using Header = cfg::Synced_Cfg_File_Header;

Reach sums_disagree("checksums that disagree");
Reach sums_unreadable("checksums that cannot be read");
Reach tree_read("a tree is read");
Reach encrypted_refused("an encrypted file that is none is refused");
Reach other_format("another format is refused");

// A name of this process, taken away at its end.
struct Place {
  Place() {
    const char* const folder = std::getenv("TMPDIR");
    name =
        std::string(folder ? folder : "/tmp") + "/halvoria_fuzz_synced_" + std::to_string(getpid());
  }
  ~Place() {
    for (const char* suffix : {"", ".sum", ".old", ".LOCK"}) ::unlink((name + suffix).c_str());
  }
  std::string name;
};

void write(const std::string& name, std::string_view bytes) {
  std::ofstream(name, std::ios::binary | std::ios::trunc)
      .write(bytes.data(), std::streamsize(bytes.size()));
}

std::unique_ptr<CFG_SubTree> read(const RWWString& name, RWCString& error,
                                  CFG_SynchronizedFileRepository::FileFacts& facts) {
  return std::unique_ptr<CFG_SubTree>(CFG_SynchronizedFileRepository::ReadFile(name, facts, error));
}

std::string array_of(CFG_SubTree& tree) {
  int length = 0;
  const std::unique_ptr<char[]> bytes(
      Tree_Node::GetSerializedTreeNode(tree.GetData(), length, true));
  return bytes ? std::string(bytes.get(), size_t(length)) : std::string();
}

}  // namespace

// The first byte says what is before the data: 1 a sound header of a plain file, 2 of an encrypted
// one; 4: the first 182 bytes are the checksums; 8: there are those of the file itself.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  static const Place place;
  const RWWString name = RWWString::fromUTF8(RWCString(place.name));
  std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);
  const int kind = *data;
  std::string sums;
  if (kind & 4) {
    sums = rest.substr(0, cfg::file_sums::SIZE);
    rest.remove_prefix(sums.size());
  }
  std::string bytes;
  if (kind & 3) {
    Header header;
    header.sequence = "7";
    header.file_type = kind & 1 ? Header::PLAIN : Header::ENCRYPTED;
    const char* misfit = nullptr;
    bytes = header.bytes(misfit);
  }
  bytes += rest;
  if ((kind & 8) && bytes.size() >= Header::SIZE) {
    cfg::file_sums of;
    const uint64_t header = cfg::checksum(std::string_view(bytes).substr(0, Header::SIZE));
    of.newest = {bytes.size() - Header::SIZE,
                 cfg::checksum(std::string_view(bytes).substr(Header::SIZE)), header, header};
    sums = of.text();
  }
  write(place.name, bytes);
  sums.empty() ? void(::unlink((place.name + ".sum").c_str())) : write(place.name + ".sum", sums);

  RWCString error;
  CFG_SynchronizedFileRepository::FileFacts facts;
  const auto tree = read(name, error, facts);
  if (!tree && error.isNull()) abort();
  const std::string_view why = error.view();
  sums_disagree(why.find("another checksum") != why.npos);
  sums_unreadable(why.find("checksums cannot") != why.npos);
  encrypted_refused(why.find("decrypted") != why.npos);
  other_format(why.find("format") != why.npos);
  tree_read(tree != nullptr);
  if (!tree) return 0;
  const std::string array = array_of(*tree);
  if (array.empty()) return 0;  // no array can hold it
  Header header;
  header.sequence = "8";
  const char* misfit = nullptr;
  if (!synced_file(name).save(header.bytes(misfit), array, error)) abort();
  const auto again = read(name, error, facts);
  if (!again || !facts.has_checksums || array_of(*again) != array) abort();
  ::unlink((place.name + ".old").c_str());
  return 0;
}
