#include "output_file.h"

#include <system/Sys_FileReplacer.h>

#include "failure.h"

namespace cli {

void write_file(const std::string& file, std::string_view bytes) {
  Sys_FileReplacer replacer(RWWString::fromUTF8(file));
  if (!replacer.write(bytes) || !replacer.commit()) throw Failure(REFUSED, replacer.error().str());
}

}  // namespace cli
