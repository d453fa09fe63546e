#include <utility/Tmr_SocketWrapper.h>

#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>

namespace {

using AddressInfo = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;
using Interfaces = std::unique_ptr<ifaddrs, decltype(&freeifaddrs)>;

// The addresses of a host, best first; none when `host` is empty or unknown. A numeric
// address is answered without a name server.
AddressInfo resolve(const RWCString& host, int family) {
  addrinfo hints = {};
  hints.ai_family = family;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (host.isNull() || getaddrinfo(host.data(), nullptr, &hints, &found) != 0) found = nullptr;
  return {found, freeaddrinfo};
}

Interfaces interfaces() {
  ifaddrs* found = nullptr;
  if (getifaddrs(&found) != 0) found = nullptr;
  return {found, freeifaddrs};
}

bool has_sockets(int family) {
  const int descriptor = socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (descriptor >= 0) close(descriptor);
  return descriptor >= 0;
}

RWCString text_of(const sockaddr& address) {
  const socklen_t length =
      address.sa_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
  char text[NI_MAXHOST] = "";
  if (getnameinfo(&address, length, text, sizeof text, nullptr, 0, NI_NUMERICHOST) != 0) return "";
  return text;
}

enum Reach { NOWHERE, THIS_HOST, LOCAL_LINK, NETWORK };

Reach reach_of(const sockaddr& address) {
  if (address.sa_family == AF_INET) {
    const uint32_t ip = ntohl(reinterpret_cast<const sockaddr_in&>(address).sin_addr.s_addr);
    return ip == 0              ? NOWHERE
           : ip >> 24 == 127    ? THIS_HOST
           : ip >> 16 == 0xA9FE ? LOCAL_LINK
                                : NETWORK;
  }
  const in6_addr& ip = reinterpret_cast<const sockaddr_in6&>(address).sin6_addr;
  if (IN6_IS_ADDR_UNSPECIFIED(&ip)) return NOWHERE;
  return IN6_IS_ADDR_LOOPBACK(&ip) ? THIS_HOST : IN6_IS_ADDR_LINKLOCAL(&ip) ? LOCAL_LINK : NETWORK;
}

// Keeps the address that reaches furthest, the first one of equals.
struct Best {
  Reach reach = NOWHERE;
  RWCString text;

  void offer(const sockaddr& address) {
    if (reach_of(address) <= reach) return;
    reach = reach_of(address);
    text = text_of(address);
  }
};

}  // namespace

RWCString Tmr_SocketWrapper::GetAFTypeIfSupported(const RWCString& address_or_host) {
  const AddressInfo found = resolve(address_or_host, AF_UNSPEC);
  for (const addrinfo* info = found.get(); info; info = info->ai_next) {
    if (info->ai_family == AF_INET && has_sockets(AF_INET)) return IP_TYPE_V4;
    if (info->ai_family == AF_INET6 && has_sockets(AF_INET6)) return IP_TYPE_V6;
  }
  return RWCString();
}

RWCString Tmr_SocketWrapper::GetLocalIPAsStringByAF(const RWCString& host, int family) {
  if (family != FAMILY_V4 && family != FAMILY_V6) return RWCString();
  const int system_family = family == FAMILY_V4 ? AF_INET : AF_INET6;
  Best best;
  const AddressInfo resolved = resolve(host, system_family);
  for (const addrinfo* info = resolved.get(); info; info = info->ai_next)
    best.offer(*info->ai_addr);
  const Interfaces found = interfaces();
  for (const ifaddrs* i = found.get(); i; i = i->ifa_next) {
    if (i->ifa_addr && i->ifa_addr->sa_family == system_family && i->ifa_flags & IFF_UP) {
      best.offer(*i->ifa_addr);
    }
  }
  return best.text;
}
