// Numbers written the same way everywhere.
#pragma once

#include <strings/Export.h>
#include <strings/RWCString.h>

// Static-only. Any thread; the process's locale plays no part.
class HALVORIA_API I18n_ConvertUtils {
 public:
  // `value` as a DICOM decimal string: fixed notation with a point and `digits` digits
  // behind it (below 0 counts as 0), if that takes no more than 16 characters.
  // Otherwise the shorter of fixed and exponent notation, with as many significant
  // digits as 16 characters hold. Not-a-number and infinities, which DICOM does not
  // know, are written "nan", "inf" and "-inf".
  static RWCString Double2DicomLocaleStrNum(double value, int digits);
};
