// Bytes as text.
#pragma once

#include <strings/Export.h>
#include <strings/RWCString.h>

// Base64 with the standard alphabet and padding. Any thread may call.
class HALVORIA_API Tmr_Base64Utils {
 public:
  // With `line_breaks` every line of 64 characters, and the last one, ends in a line feed.
  static RWCString Encode(const char* buffer, int length, bool line_breaks);

  // A new array owned by the caller (delete[]): `*length` bytes and a NUL that is not
  // counted. NULL, and `*length` 0, for a text that is not base64 to its last
  // character; with `skip_line_breaks` carriage returns and line feeds may stand anywhere.
  [[nodiscard]] static char* Decode(const RWCString& text, int* length,
                                    bool skip_line_breaks = true);
};
