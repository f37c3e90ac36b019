// Authenticators of requests and replies.
#ifndef LANYARD_CLIENT_AUTHENTICATOR_H
#define LANYARD_CLIENT_AUTHENTICATOR_H

#include <cstddef>
#include <cstdint>
#include <span>

#include <lanyard/radius/engine.h>

namespace lanyard {

// A whole packet as octets, as many as its length field says.
std::span<uint8_t> packetOctets(RadPacket *packet);

size_t packetLength(const RadPacket &packet);
void setPacketLength(RadPacket &packet, size_t length);

// The authenticator of an Accounting-Request: MD5 over the packet, with zeros in its place, and the
// secret (RFC 2866 section 3).
void signAccountingRequest(RadPacket *request, const char *secret);

// Whether the response authenticator of a reply is MD5 over the reply, with the request's
// authenticator in its place, and the secret (RFC 2865 section 3).
bool replyIsAuthentic(RadPacket *reply, const RadPacket &request, const char *secret);

// Writes the Message-Authenticator: HMAC-MD5 over the whole packet, with zeros in its place (RFC
// 3579 section 3.2). The 16 octets lie inside the packet.
void signMessage(RadPacket *request, const char *secret, uint8_t *place);

}  // namespace lanyard

#endif
