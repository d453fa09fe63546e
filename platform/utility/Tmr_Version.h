// Versions of the product.
#pragma once

#include <array>
#include <cstdint>

#include <strings/Export.h>
#include <strings/RWCString.h>

// Four numbers, the first the most important.
class HALVORIA_API Tmr_Version {
 public:
  Tmr_Version() = default;  // 0.0.0.0
  Tmr_Version(uint32_t major, uint32_t minor, uint32_t service_pack, uint32_t build)
      : m_numbers{major, minor, service_pack, build} {}
  // Of one to four decimal numbers with dots between; those that are missing are 0. Any other
  // text makes 0.0.0.0.
  explicit Tmr_Version(const RWCString& text);

  bool IsNull() const { return m_numbers == std::array<uint32_t, 4>{}; }
  RWCString Text() const;  // "12.2.0.0"

  // Of the product that this library belongs to, as texts: "12.2.0.0".
  static RWCString GetVersion();

  friend bool operator==(const Tmr_Version& a, const Tmr_Version& b) {
    return a.m_numbers == b.m_numbers;
  }
  friend bool operator<(const Tmr_Version& a, const Tmr_Version& b) {
    return a.m_numbers < b.m_numbers;
  }
  friend bool operator!=(const Tmr_Version& a, const Tmr_Version& b) { return !(a == b); }
  friend bool operator>(const Tmr_Version& a, const Tmr_Version& b) { return b < a; }
  friend bool operator<=(const Tmr_Version& a, const Tmr_Version& b) { return !(b < a); }
  friend bool operator>=(const Tmr_Version& a, const Tmr_Version& b) { return !(a < b); }

 private:
  std::array<uint32_t, 4> m_numbers{};
};
