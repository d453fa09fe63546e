#include <i18n/I18n_ConvertUtils.h>

#include <algorithm>
#include <charconv>
#include <string_view>

namespace {

constexpr size_t kLongest = 16;  // characters of a DICOM decimal string
constexpr int kMostDigits = 17;  // all that a double can tell

}  // namespace

RWCString I18n_ConvertUtils::Double2DicomLocaleStrNum(double value, int digits) {
  char buffer[512];  // 309 digits before the point at most
  const auto write = [&](std::chars_format notation, int precision) {
    const auto end = std::to_chars(buffer, std::end(buffer), value, notation, precision).ptr;
    return std::string_view(buffer, static_cast<size_t>(end - buffer));
  };
  // More digits than fit could only be refused below.
  const int fixed_digits = std::clamp(digits, 0, int{kLongest});
  std::string_view text = write(std::chars_format::fixed, fixed_digits);
  for (int precision = kMostDigits; text.size() > kLongest; --precision) {
    text = write(std::chars_format::general, precision);
  }
  return text;
}
