// Texts of the XML parser.
#pragma once

#include <string_view>

#include <i18n/I18n_Utf8.h>
#include <strings/RWCString.h>

namespace cfg {

// A NUL-terminated UTF-16 text, which may be null, as UTF-8.
inline RWCString xml_text(const char16_t* text) {
  return text ? I18n_Utf8::FromUtf16(std::u16string_view(text)) : RWCString();
}

}  // namespace cfg
