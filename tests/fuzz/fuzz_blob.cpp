// Blob reading: a key with any values is read as a blob without a fault, and a blob of any
// bytes comes back as it was written.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>

#include <CFG/CFG_SubTree.h>
#include <logging/Tmr_GLog.h>

#include "reach.h"

namespace {

Reach foreign_read("a foreign blob is read");
Reach comes_back_whole("a blob of one's own comes back");

// The input is lines: the first is the description, the others are chunks.
CFG_SubTree foreign_blob(std::string_view input) {
  CFG_SubTree tree("t");
  RWCString name("b\\blobencoding");
  for (int chunk = 0; !input.empty(); ++chunk) {
    const size_t end = input.find('\n');
    tree.SetValue(name, RWCString(input.substr(0, end)));
    input.remove_prefix(end == input.npos ? input.size() : end + 1);
    name = "b\\chunk000" + RWCString(std::to_string(chunk));
  }
  return tree;
}

bool comes_back(CFG_SubTree& tree, std::string_view bytes) {
  char* buffer = nullptr;
  int length = 0;
  if (!tree.ReadBlobToBuffer("b", &buffer, length, nullptr)) return false;
  const std::unique_ptr<char[]> owned(buffer);
  return std::string_view(buffer, static_cast<size_t>(length)) == bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  TmrGLog.SetLevel(0);
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);

  CFG_SubTree foreign = foreign_blob(bytes);
  const char* rule[] = {"none", ""};
  RWCString text, encoding;
  foreign.ReadBlobToUTF8String("b", text, &encoding);
  char *buffer = nullptr, *found = nullptr;
  int length = 0;
  foreign_read(foreign.ReadBlobToBuffer("b", &buffer, length, &encoding) && length > 0);
  const std::unique_ptr<char[]> owned_buffer(buffer);
  foreign.ReadBlobFromSearchPathsToBuffer("b", rule, 2, &found, length, nullptr);
  const std::unique_ptr<char[]> owned_found(found);

  for (const bool base64 : {false, true}) {
    CFG_SubTree own("t");
    if (!own.WriteBlobFromBuffer("\\b", bytes.data(), static_cast<int>(size), base64, "")) abort();
    if (size > 0 && !comes_back_whole(comes_back(own, bytes))) abort();
  }
  return 0;
}
