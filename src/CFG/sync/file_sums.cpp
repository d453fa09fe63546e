#include <CFG/sync/file_sums.h>

#include <cinttypes>
#include <cstdio>

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace cfg {

uint64_t checksum(std::string_view bytes) { return XXH3_64bits(bytes.data(), bytes.size()); }

std::string file_sums::text() const {
  std::string text;
  for (const Generation* each : {&newest, &before}) {
    char line[128];
    const int length = std::snprintf(line, sizeof line,
                                     "length %020" PRIu64 " data %016" PRIx64 " header %016" PRIx64
                                     " %016" PRIx64 "\n",
                                     each->length, each->data, each->header, each->header_before);
    text.append(line, static_cast<size_t>(length));
  }
  return text;
}

bool file_sums::read(std::string_view text, file_sums& sums) {
  if (text.size() != SIZE) return false;
  file_sums read;
  size_t at = 0;
  for (Generation* each : {&read.newest, &read.before}) {
    const std::string line(text.substr(at, SIZE / 2));
    std::sscanf(line.c_str(), "length %" SCNu64 " data %" SCNx64 " header %" SCNx64 " %" SCNx64,
                &each->length, &each->data, &each->header, &each->header_before);
    at += SIZE / 2;
  }
  if (read.text() != text) return false;
  sums = read;
  return true;
}

file_sums::Generation* file_sums::find(uint64_t length, std::string_view header) {
  const uint64_t sum = checksum(header);
  for (Generation* each : {&newest, &before}) {
    if (each->length == length && each->has_header(sum)) return each;
  }
  return nullptr;
}

}  // namespace cfg
