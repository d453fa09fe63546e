#include <CFG/detail/blob_format.h>

#include <charconv>
#include <cstdio>

#include <CFG/detail/paths.h>

namespace cfg {

static constexpr std::string_view base64_part = "base64";
static constexpr std::string_view count_part = "chunks_num=";

RWCString chunk_name(int i) {
  char name[24];
  std::snprintf(name, sizeof name, "chunk%04d", i);
  return name;
}

static bool continues_a_character(char c) { return (c & 0xC0) == 0x80; }

std::string_view first_chunk(std::string_view bytes, bool whole_characters) {
  constexpr size_t room = 490;
  if (bytes.size() <= room) return bytes;
  size_t length = room;
  while (whole_characters && length < bytes.size() && continues_a_character(bytes[length]))
    ++length;
  return bytes.substr(0, length);
}

RWCString blob_description::text(bool base64, const RWCString& encoding, int chunks) {
  std::string result;
  if (base64) result.append(base64_part);
  if (!encoding.isNull()) result.append(result.empty() ? "" : "/").append(encoding.view());
  result.append(result.empty() ? "" : "/").append(count_part).append(std::to_string(chunks));
  return result;
}

blob_description::blob_description(const RWCString& text, int values)
    : chunks(text.isNull() ? values : values - 1) {
  std::string_view rest = text;
  while (!rest.empty()) {
    const size_t cut = rest.find('/');
    const std::string_view part = rest.substr(0, cut);
    rest.remove_prefix(cut == rest.npos ? rest.size() : cut + 1);
    if (part == base64_part) base64 = true;
    if (part.substr(0, count_part.size()) != count_part) continue;
    int count = 0;
    std::from_chars(part.data() + count_part.size(), part.data() + part.size(), count);
    if (count > 0) chunks = count;
  }
}

}  // namespace cfg
