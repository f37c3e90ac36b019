// Authenticators of requests and replies.
#ifndef LANYARD_CLIENT_AUTHENTICATOR_H
#define LANYARD_CLIENT_AUTHENTICATOR_H

#include <cstdint>

#include "client/packet.h"

namespace lanyard {

// The authenticator of an Accounting-Request: MD5 over the packet, with zeros in its place, and the
// secret (RFC 2866 section 3).
void signAccountingRequest(Packet request, const char *secret);

// Whether the response authenticator of a reply is MD5 over the reply, with the request's
// authenticator in its place, and the secret (RFC 2865 section 3).
bool replyIsAuthentic(Packet reply, const uint8_t *requestAuthenticator, const char *secret);

// Writes the Message-Authenticator: HMAC-MD5 over the whole packet, with zeros in its place (RFC
// 3579 section 3.2). The 16 bytes lie inside the packet.
void signMessage(Packet packet, const char *secret, uint8_t *place);

}  // namespace lanyard

#endif
