// The reply to a request: reading it, checking it, decoding it (RFC 2865 section 3).
#include "client/receive.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <span>
#include <sys/socket.h>

#include <lanyard/radius/attr.h>
#include <palcore.h>

#include "attr/attribute.h"
#include "base/log.h"
#include "base/partition.h"
#include "base/text.h"
#include "client/authenticator.h"
#include "client/last_error.h"
#include "client/packet.h"

namespace lanyard {
namespace {

ssize_t receive(const RadRecvCtx &ctx, void *buffer, size_t size, int flags) {
    socklen_t addressSize = sizeof(*ctx.source);
    return recvfrom(ctx.socket, buffer, size, flags, reinterpret_cast<sockaddr *>(ctx.source),
                    &addressSize);
}

// A datagram that is too short for a header is taken from the socket all the same.
void discardShort(const RadRecvCtx &ctx, size_t size) {
    radLogAs("radRecvfromServer", kLogError, "radRecvfromServer: Packet too small from %s:%d: %s\n",
             shownText(ctx.host), ctx.source->sin_family, ErrorText(errno).text());
    std::array<uint8_t, RAD_HEADER_SIZE> bytes{};
    receive(ctx, bytes.data(), size, 0);
}

// Reads the waiting datagram, whose header says that it has `length` bytes. There is room for at
// least one byte more than that, so that a longer datagram shows.
Datagram readWhole(const RadRecvCtx &ctx, size_t length, Outcome &outcome) {
    const size_t size =
        std::min<size_t>(length, RAD_PACKET_MAX) + std::max<size_t>(std::strlen(ctx.secret), 1);
    auto bytes = allocateSecret(std::max<size_t>(size, RAD_HEADER_SIZE));
    if (!bytes) {
        failAt(outcome, RAD_STEP_RECEIVE, RAD_REASON_NO_MEMORY);
        return {};
    }
    radLogAs("radRecvfromServer", kLogTrace, "Receiving Reply Packet....\n");
    const ssize_t count = receive(ctx, bytes.get(), size, 0);
    if (count < 0) {
        failAt(outcome, RAD_STEP_RECEIVE, errno);
        radLogAs("radRecvfromServer", kLogError, "radRecvfromServer: recvfrom() Failed: %s\n",
                 ErrorText(outcome.reason).text());
        return {};
    }
    palModuleDebugHex(kModuleLibrary, kLogDump, "RADIUS Rx Buffer", bytes.get(),
                      static_cast<int>(count));
    return {.owner = std::move(bytes), .size = static_cast<size_t>(count)};
}

int32_t refuse(Outcome &outcome, int32_t reason) {
    return failAt(outcome, RAD_STEP_REPLY, reason);
}

// Turns what was received into the reply to a request: the one check of its length, identifier and
// response authenticator.
std::optional<Packet> checkReply(std::span<uint8_t> received, const RadPacket &request,
                                 const char *secret, Outcome &outcome) {
    constexpr const char *kTag = "radCheckReply";
    const auto reply = Packet::received(received);
    if (!reply) {
        const auto *header = reinterpret_cast<const RadPacket *>(received.data());
        radLogAs(kTag, kLogError,
                 "radCheckReply: Received (%d) octets doesn't match length in packet: %d\n",
                 static_cast<int>(received.size()), static_cast<int>(lengthField(*header)));
        refuse(outcome, RAD_REASON_REPLY_LENGTH);
        return std::nullopt;
    }
    const uint8_t identifier = reply->record().identifier;
    if (identifier != request.identifier) {
        radLogAs(kTag, kLogError, "radCheckReply: Expected id: %d, received id: %d\n",
                 request.identifier, identifier);
        refuse(outcome, RAD_REASON_REPLY_IDENTIFIER);
        return std::nullopt;
    }
    if (!replyIsAuthentic(*reply, request.authenticator, secret)) {
        radLogAs(kTag, kLogError,
                 "radCheckReply: received invalid reply digest from RADIUS server\n");
        refuse(outcome, RAD_REASON_REPLY_AUTHENTICATOR);
        return std::nullopt;
    }
    radLogAs(kTag, kLogTrace, "Verified Reply Packet Integrity\n");
    return reply;
}

// Whether a reply that has to be signed is (RFC 3579 section 3.2).
bool checkSignature(Packet reply, const uint8_t *requestAuthenticator, const char *secret,
                    Outcome &outcome) {
    const auto attributes = reply.attributes();
    const bool isSigned = radPairLocate(attributes.data(), static_cast<int>(attributes.size()),
                                        RAD_ATTR_MESSAGE_AUTHENTICATOR) != nullptr;
    if (radCheckMsgAuth(&reply.record(), secret, requestAuthenticator) == 0) {
        return true;
    }
    refuse(outcome, isSigned ? RAD_REASON_REPLY_SIGNATURE : RAD_REASON_REPLY_UNSIGNED);
    return false;
}

// Why the default processing refuses an attribute.
int32_t refusalOf(int32_t attrNum) {
    switch (attrNum) {
        case RAD_ATTR_EAP_MESSAGE:
            return RAD_REASON_REPLY_UNSIGNED;
        case RAD_ATTR_MESSAGE_AUTHENTICATOR:
            return RAD_REASON_REPLY_SIGNATURE;
        default:
            return RAD_REASON_REPLY_ATTRIBUTE;
    }
}

int processPair(RadPair *pair, RadPair *list, RadPacket *reply, RadPacket *request,
                const char *secret, Outcome &outcome) {
    const RadUnpackHook hook = pRadFuncTbl ? pRadFuncTbl->radUnpackHook : nullptr;
    const int32_t attrNum = pair->attrNum;
    int32_t refusal = RAD_REASON_REPLY_HOOK;
    int status = hook ? hook(pair, list, reply, request, secret) : 1;
    if (status == 1) {
        refusal = refusalOf(attrNum);
        status = radPairUnpackDefault(pair, list, reply, request, secret);
    }
    if (status != 0) {
        outcome.attribute = attrNum;
        refuse(outcome, refusal);
    }
    return status;
}

// Decodes a checked reply. On failure no list is left.
int decodeReply(Packet reply, RadPacket &request, const char *secret, RadPair **replyOut,
                Outcome &outcome) {
    if (!decodeAttributes(reply.attributes(), replyOut)) {
        return refuse(outcome, RAD_REASON_REPLY_ATTRIBUTES);
    }
    radLogAs("radCheckReply", kLogTrace, "Generated Reply Attribute-Value pairs\n");
    for (RadPair *pair = *replyOut; pair; pair = pair->next) {
        const int verdict =
            processPair(pair, *replyOut, &reply.record(), &request, secret, outcome);
        if (verdict != 0) {
            radPairListFree(*replyOut);
            *replyOut = nullptr;
            return verdict;
        }
    }
    failAt(outcome, RAD_STEP_REPLY, 0);
    outcome.code = reply.record().code;
    return outcome.code;
}

}  // namespace

Datagram readDatagram(const RadRecvCtx &ctx, Outcome &outcome) {
    RadPacket header{};
    const ssize_t peeked = receive(ctx, &header, sizeof(header), MSG_PEEK);
    if (peeked < 0) {
        failAt(outcome, RAD_STEP_RECEIVE, errno);
        radLogAs("radRecvfromServer", kLogError, "radRecvfromServer: recvfrom() Failed: %s\n",
                 ErrorText(outcome.reason).text());
        return {};
    }
    if (static_cast<size_t>(peeked) < sizeof(header)) {
        discardShort(ctx, static_cast<size_t>(peeked));
        refuse(outcome, RAD_REASON_REPLY_SHORT);
        return {};
    }
    return readWhole(ctx, lengthField(header), outcome);
}

int readReply(std::span<uint8_t> datagram, RadPacket &request, const char *secret,
              bool mustBeSigned, RadPair **replyOut, Outcome &outcome) {
    *replyOut = nullptr;
    const auto reply = checkReply(datagram, request, secret, outcome);
    if (!reply ||
        (mustBeSigned && !checkSignature(*reply, request.authenticator, secret, outcome))) {
        return -1;
    }
    return decodeReply(*reply, request, secret, replyOut, outcome);
}

}  // namespace lanyard

using namespace lanyard;

int radRecvfromServer(const RadRecvCtx *ctx, RadPacket *request, RadPair **replyOut) {
    if (!ctx || !request || !replyOut || ctx->socket < 0 || !ctx->source || !ctx->secret) {
        return -1;
    }
    Outcome unrecorded;
    const Datagram datagram = readDatagram(*ctx, unrecorded);
    *replyOut = nullptr;
    return datagram.owner
               ? readReply(datagram.bytes(), *request, ctx->secret, false, replyOut, unrecorded)
               : -1;
}
