// The header of an encrypted buffer, version 2:
//
//   offset  size  meaning
//        0     1  version of the format
//        1    10  length of the ciphertext, decimal digits, then zeros
//       11     1  0
//       12    15  name of the key, cut there, then zeros
//       27     1  0
//       28        the ciphertext, then bytes that mean nothing
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace secm {

constexpr size_t header_size = 28;
constexpr unsigned char header_version = 2;

using buffer_header = std::array<unsigned char, header_size>;

// `length` is below 10^10.
buffer_header make_header(uint64_t length, std::string_view key_name);

// Both read all of a header. The length is 0 where there is no number, or not only one.
uint64_t ciphertext_length(const unsigned char* header);
std::string_view key_name_in(const unsigned char* header);

// What a header keeps of the name of a key.
std::string_view key_name_as_written(std::string_view key_name);

}  // namespace secm
