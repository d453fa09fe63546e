// Numbers read whatever locale they were written in.
#pragma once

#include <string_view>

#include <i18n/I18n_ShortNumber.h>
#include <strings/Export.h>
#include <strings/RWCString.h>

// Static-only. Any thread; the process's locale plays no part.
class HALVORIA_API I18n_DecimalConvertUtils {
 public:
  // The number at the start of `text` (UTF-8), behind blanks and a sign; what follows it
  // is ignored, and 0.0 comes back when there is none. Too big gives an infinity, too
  // small zero.
  //   Digits        of any script.
  //   Decimal sign  point, comma or the Arabic one: the last of them, when it stands once.
  //   Groups        point, comma, blank, no-break blanks, apostrophes: one and the same
  //                 sign before groups of three digits (with commas also of two, except
  //                 the last): 1.234.567,5  1 234 567,5  12,34,567.5.
  //   Exponent      e or E, sign, digits.
  // A single point or comma is always the decimal sign: "1,234" is 1.234. A sign that
  // fits neither role ends the number: "10.0.0.1" is 10.
  static double AnyLocaleStrToDouble(RWCString::Text text) {
    double number;
    return I18n_ShortNumber::ReadDecimal(text.view, number) ? number : read_long(text.view);
  }

 private:
  static double read_long(std::string_view text);
};
