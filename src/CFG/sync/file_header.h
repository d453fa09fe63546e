// The first bytes of a synced file.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <strings/RWCString.h>

namespace cfg {

// 224 bytes; texts end in NUL and are filled up with it.
//
//     0    7  magic: "VSCFG#"
//     7    6  format version: decimal
//    13    9  product version
//    22    2  0
//    24  129  sync id: of the service, else its name
//   153   31  user id: the property CurrUser
//   184   32  sequence: decimal, of the last change that the data has
//   216    4  reset count: little endian
//   220    1  file type: 'E' encrypted, 'R' plain
//   221    3  0
struct Synced_Cfg_File_Header {
  static constexpr size_t SIZE = 224;
  static constexpr char MAGIC[] = "VSCFG#";
  static constexpr int FORMAT_VERSION = 12200;
  static constexpr char PRODUCT_VERSION[] = "12.2.0.0";
  enum FileType : char { ENCRYPTED = 'E', PLAIN = 'R' };

  RWCString magic{MAGIC};
  RWCString format_version{"12200"};
  RWCString product_version{PRODUCT_VERSION};
  RWCString sync_id;
  RWCString user_id;
  RWCString sequence;
  uint32_t reset_count = 0;
  char file_type = PLAIN;

  // What any 224 bytes say: a text goes as far as its field at most. Fewer bytes count as if NULs
  // followed.
  static Synced_Cfg_File_Header read(std::string_view bytes);

  // What follows the magic is a decimal number; 0 when it is none.
  int format_number() const;

  // The 224 bytes. Where a text does not fit its field, or has a NUL inside, they are empty, and
  // `misfit` is the field's name.
  std::string bytes(const char*& misfit) const;
};

// Sequence numbers of a service are decimal texts of any length. An empty one counts as "0".
//
// -1, 0 or 1 as `a` is before `b`, is it, or comes after it: the longer text is the greater, texts
// of one length go by their bytes.
int compare_sequence_numbers(const RWCString& a, const RWCString& b);
// The next number.
RWCString incremented_sequence_number(const RWCString& number);

}  // namespace cfg
