// Looking for a node by one of its addresses.
#pragma once

#include <CFG/CFG_ServicesImp.h>

namespace cfg {

// Whether the values of that name are addresses of nodes.
inline bool is_address_name(const RWCString& name) {
  return name.index("inet_address") != RWCString::npos;
}

// An address without the brackets of an IPv6 literal, and as nodes have it: an IPv4 address that is
// written as an IPv6 one is an IPv4 address.
struct node_address {
  explicit node_address(const RWCString& given) : unbraced(given) {
    CFG_ServicesImp::RemoveIpv6Braces(unbraced);
    normal = unbraced;
    CFG_ServicesImp::handle_if_ipv6_mapped(normal);
  }

  // The first answer of `find`: for the address as nodes have it, and where that is another for the
  // `fallback`.
  template <class Find>
  RWCString first_found(const RWCString& fallback, const Find& find) const {
    const RWCString found = find(normal);
    return found.isNull() && fallback != normal ? find(fallback) : found;
  }
  // The same of a `find` that takes the beginning of a name, too: the one that is given, or else
  // that of the additional addresses.
  template <class Find>
  RWCString first_found(RWCString name, const RWCString& fallback, const Find& find) const {
    if (name.view().back() != '%') name += '%';
    const auto with_name = [&](const RWCString& address) { return find(name, address); };
    const RWCString found = first_found(fallback, with_name);
    if (!found.isNull()) return found;
    name = "additional_inet_address_%";
    return first_found(fallback, with_name);
  }

  RWCString unbraced, normal;
};

}  // namespace cfg
