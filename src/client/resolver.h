// Addresses that need no resolver.
#ifndef LANYARD_CLIENT_RESOLVER_H
#define LANYARD_CLIENT_RESOLVER_H

#include <cstdint>

namespace lanyard {

// Reads what the resolver takes for an address and not for a name: digits and dots ("127.1" too). The
// address is in network order.
[[nodiscard]] bool readDotted(const char *text, uint32_t &address);

// radGetHostIP() for the NAS-IP-Address of a request. What the resolver says of this device's name
// holds for a second in each thread: asking it costs more than all else of a request. An address
// that changes is therefore sent for a second more; a changed name counts at once.
uint32_t ownAddress();

}  // namespace lanyard

#endif
