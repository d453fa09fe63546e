#include <CryptLib/detail/buffer_header.h>

#include <algorithm>
#include <charconv>

namespace secm {
namespace {

constexpr size_t length_at = 1, length_digits = 10, name_at = 12, name_bytes = 15;

}  // namespace

buffer_header make_header(uint64_t length, std::string_view key_name) {
  buffer_header header{};
  header[0] = header_version;
  char* digits = reinterpret_cast<char*>(header.data()) + length_at;
  std::to_chars(digits, digits + length_digits, length);
  std::ranges::copy(key_name_as_written(key_name), header.begin() + name_at);
  return header;
}

uint64_t ciphertext_length(const unsigned char* header) {
  const char* digits = reinterpret_cast<const char*>(header) + length_at;
  uint64_t length = 0;
  const char* rest = std::from_chars(digits, digits + length_digits, length).ptr;
  const bool is_number = std::all_of(rest, digits + length_digits + 1, [](char c) { return !c; });
  return is_number ? length : 0;
}

std::string_view key_name_in(const unsigned char* header) {
  return key_name_as_written({reinterpret_cast<const char*>(header) + name_at, name_bytes});
}

std::string_view key_name_as_written(std::string_view key_name) {
  return key_name.substr(0, std::min(key_name.find('\0'), name_bytes));
}

}  // namespace secm
