#include <utility/Tmr_Version.h>

#include <charconv>
#include <string>

Tmr_Version::Tmr_Version(const RWCString& text) {
  std::array<uint32_t, 4> numbers{};
  const char* at = text.data();
  const char* const end = at + text.length();
  for (uint32_t& number : numbers) {
    const auto [behind, error] = std::from_chars(at, end, number);
    if (error != std::errc()) return;
    if (behind == end) {
      m_numbers = numbers;
      return;
    }
    if (*behind != '.') return;
    at = behind + 1;
  }
}

RWCString Tmr_Version::Text() const {
  std::string text;
  for (const uint32_t number : m_numbers) text += '.' + std::to_string(number);
  return text.substr(1);
}

RWCString Tmr_Version::GetVersion() { return Tmr_Version(12, 2, 0, 0).Text(); }
