// Whom a load may reach.
#ifndef LANYARDCTL_LOAD_TARGETS_H
#define LANYARDCTL_LOAD_TARGETS_H

#include <string>
#include <vector>

namespace lanyardctl {

// Makes sure that the library, which has to be configured, asks nobody for a login but this machine (127.0.0.0/8) and
// the confirmed addresses, dotted ones. Names become the address that they have now, so that nobody can
// move them meanwhile. Throws a Failure for a server elsewhere, and for a name without an address.
void keepToTargets(const std::vector<std::string> &confirmed);

}  // namespace lanyardctl

#endif
