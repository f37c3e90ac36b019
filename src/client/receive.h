// The reply to a request.
#ifndef LANYARD_CLIENT_RECEIVE_H
#define LANYARD_CLIENT_RECEIVE_H

#include <cstddef>
#include <span>

#include <lanyard/radius/engine.h>

#include "base/partition.h"
#include "client/last_error.h"

namespace lanyard {

// Bytes as they came from a socket; none without an owner.
struct Datagram {
    SecretBytes owner = {};
    size_t size = 0;

    std::span<uint8_t> bytes() const { return {owner.get(), size}; }
};

// Takes the waiting datagram from a socket. Without one, `outcome` says why.
Datagram readDatagram(const RadRecvCtx &ctx, Outcome &outcome);

// Turns a datagram into the reply to a request: checks it, decodes it, processes its attributes.
// `outcome` ends as what became of the request.
// @return as radRecvfromServer().
int readReply(std::span<uint8_t> datagram, RadPacket &request, const char *secret,
              bool mustBeSigned, RadPair **replyOut, Outcome &outcome);

}  // namespace lanyard

#endif
