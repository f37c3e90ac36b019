// What an authenticator says about the port of a supplicant: a block like the key information,
// after the payload of a record.
#ifndef LANYARD_RELAY_PORT_INFO_H
#define LANYARD_RELAY_PORT_INFO_H

#include <cstdint>
#include <span>

#include "attr/pair_list.h"

namespace lanyard {

// Adds what the block says to a request (RFC 3580 sections 3.20, 3.21 and 3.26 to 3.28). A malformed block
// counts as none. False when memory is exhausted.
bool addPortInfo(std::span<const uint8_t> block, PairList &request);

}  // namespace lanyard

#endif
