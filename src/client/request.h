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
    SecretBytes bytes = {};  // a response of CHAP or MS-CHAP is in the clear
    std::optional<Packet> packet = {};
};

// Adds to the caller's list who asks: `nasIdentifier`, or without one this device's address, which is
// looked up unless the caller knows it (RFC 2865 sections 5.4 and 5.32). What earlier calls of this
// and of addSignaturePlace() have added goes first.
bool addNasIdentity(RadPair *list, const char *nasIdentifier, const uint32_t *knownAddress,
                    Outcome &outcome);

// Adds the place of a Message-Authenticator, where requests of that code have one. It comes last, because
// it is signed when it is packed.
bool addSignaturePlace(RadPair *list, int code);

// Builds the packet. Without one `status` says what the request returns.
OwnedPacket packRequest(const RadRequestDesc &desc, const RadPair *pairs, int &status,
                        Outcome &outcome);

}  // namespace lanyard

#endif
