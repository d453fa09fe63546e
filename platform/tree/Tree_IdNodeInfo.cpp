#include <tree/Tree_IdNodeInfo.h>

std::string_view Tree_IdNodeInfo::Stripped(std::string_view text) {
  while (!text.empty() && text.front() == '\0') text.remove_prefix(1);
  while (!text.empty() && text.back() == '\0') text.remove_suffix(1);
  return text;
}

RWCString Tree_IdNodeInfo::text_of(const char* bytes, int length) {
  return bytes && length > 0 ? RWCString(bytes, static_cast<size_t>(length)) : RWCString();
}
