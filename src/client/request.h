// A request to one server: completed for it, packed, hidden and signed.
#ifndef LANYARD_CLIENT_REQUEST_H
#define LANYARD_CLIENT_REQUEST_H

#include <optional>

#include <lanyard/radius/engine.h>

#include "base/partition.h"
#include "client/last_error.h"
#include "client/packet.h"

namespace lanyard {

// A packet and the bytes that it lies in.
struct OwnedPacket {
    PartitionPtr<uint8_t[]> bytes = {};
    std::optional<Packet> packet = {};
};

// Adds to the caller's list what every request has: `nasIdentifier`, or without one this device's
// address, and the place of a Message-Authenticator where the code has one. What an earlier call
// added goes first. @return whether the list is complete.
bool completeRequest(RadPair *list, int code, const char *nasIdentifier, Outcome &outcome);

// Builds the packet. Without one `status` says what the request returns.
OwnedPacket packRequest(const RadRequestDesc &desc, const RadPair *pairs, int &status,
                        Outcome &outcome);

}  // namespace lanyard

#endif
