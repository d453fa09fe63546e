// Address families and addresses of this host.
#pragma once

#include <strings/Export.h>
#include <strings/RWCString.h>

// Names are resolved as the system resolves them, which may take its time; numeric
// addresses ask nobody. Any thread may call; failures come back as the empty string.
class HALVORIA_API Tmr_SocketWrapper {
 public:
  // In lower case, as settings that name a family are lower-cased when they are read.
  static constexpr const char* IP_TYPE_V4 = "ipv4";
  static constexpr const char* IP_TYPE_V6 = "ipv6";
  static constexpr const char* IP_TYPE_DUAL = "dual";  // a host that listens to both

  // The numbers of GetLocalIPAsStringByAF, the same on every system.
  enum Family { FAMILY_V4 = 2, FAMILY_V6 = 23 };

  // IP_TYPE_V4 or IP_TYPE_V6: the family of a numeric address, or of the first address of a
  // host name that this host has sockets for. Empty when there is none, and for a name
  // that is empty or unknown.
  static RWCString GetAFTypeIfSupported(const RWCString& address_or_host);

  // The address under which others reach this host, in that family: one that `host`
  // (this host's name) stands for, else one of a network interface; one that is only good
  // on the local link or inside this host when there is nothing better. Empty when none.
  static RWCString GetLocalIPAsStringByAF(const RWCString& host, int family);
};
