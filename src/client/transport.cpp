// One request to one server over UDP, and its reply (RFC 2865 section 3).
#include "client/transport.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <lanyard/radius/engine.h>
#include <palcore.h>

#include "base/log.h"
#include "base/partition.h"
#include "base/text.h"
#include "client/authenticator.h"
#include "client/last_error.h"

namespace lanyard {
namespace {

class Socket {
  public:
    explicit Socket(int descriptor) : descriptor_(descriptor) {}
    Socket(const Socket &) = delete;
    Socket &operator=(const Socket &) = delete;
    ~Socket() {
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
    }

    int descriptor() const { return descriptor_; }

  private:
    int descriptor_;
};

// Packets live in plain octets of the partition.
RadPacket *asPacket(const PartitionPtr<uint8_t[]> &octets) {
    return reinterpret_cast<RadPacket *>(octets.get());
}

sockaddr *asAddress(sockaddr_in *address) {
    return reinterpret_cast<sockaddr *>(address);
}

// Binds to an ephemeral port, whose address it reads back.
bool bindToAnyPort(int socket, sockaddr_in &address) {
    address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    socklen_t size = sizeof(address);
    return bind(socket, asAddress(&address), size) == 0 &&
           getsockname(socket, asAddress(&address), &size) == 0;
}

// Waits until the socket is readable: 1, 0 after the time-out, -1 on an error.
int waitForReply(int socket, int32_t seconds) {
    pollfd waited{.fd = socket, .events = POLLIN, .revents = 0};
    const timespec timeout{.tv_sec = seconds, .tv_nsec = 0};
    return ppoll(&waited, 1, &timeout, nullptr);
}

// Builds the request. On failure `status` says what the exchange yields.
PartitionPtr<uint8_t[]> packRequest(const RadRequestDesc &desc, const RadPair *pairs, int &status,
                                    RadLastError &outcome) {
    failAt(outcome, RAD_STEP_PREPARE, RAD_REASON_PACK);
    uint32_t attributesLength = 0;
    status = radPackList(pairs, RAD_PACK_MEASURE, &attributesLength);
    if (status != 0) {
        return nullptr;
    }
    status = -1;
    const uint32_t length = attributesLength + RAD_HEADER_SIZE;
    if (length > RAD_PACKET_MAX) {
        radLogAs("radSendtoServer", kLogError,
                 "radSendtoServer: Send Packet too Large: %d, limit: %d\n",
                 static_cast<int>(length), RAD_PACKET_MAX);
        outcome.reason = RAD_REASON_TOO_LARGE;
        return nullptr;
    }
    auto octets = allocateBytes(length);
    if (!octets) {
        outcome.reason = RAD_REASON_NO_MEMORY;
        return nullptr;
    }
    RadPacket *packet = asPacket(octets);
    packet->code = desc.code;
    packet->identifier = desc.identifier;
    setPacketLength(*packet, length);
    if (palRandGen(packet->authenticator, RAD_DIGEST_SIZE) != 0) {
        outcome.reason = RAD_REASON_NO_RANDOM;
        return nullptr;
    }
    status = radPackList(pairs, RAD_PACK, packet, desc.secret);
    if (status != 0) {
        return nullptr;
    }
    if (desc.code == RAD_CODE_ACCOUNTING_REQUEST) {
        signAccountingRequest(packet, desc.secret);
    }
    radLogAs("radSendtoServer", kLogTrace, "Packed Auth. Reqest: code:%d, id:%d, len:%d\n",
             desc.code, desc.identifier, static_cast<int>(length));
    return octets;
}

int receiveReply(const RadRecvCtx &ctx, RadPacket *request, RadPair **replyOut,
                 RadLastError &outcome);

// Sends the request until something comes back or the retries are used up.
int exchange(const RadRequestDesc &desc, int socket, sockaddr_in &local, sockaddr_in &server,
             RadPacket *request, RadPair **replyOut, RadLastError &outcome) {
    const size_t length = packetLength(*request);
    for (int32_t attempt = 0;;) {
        radLogAs("radSendtoServer", kLogTrace, "Sending Packet to %x:%d ....\n",
                 ntohl(server.sin_addr.s_addr), ntohs(server.sin_port));
        palModuleDebugHex(kModuleLibrary, kLogDump, "RADIUS Tx Buffer", request,
                          static_cast<int>(length));
        outcome.tries = attempt + 1;
        if (sendto(socket, request, length, 0, asAddress(&server), sizeof(server)) < 0) {
            return failAt(outcome, RAD_STEP_SEND, errno);
        }
        const int ready = waitForReply(socket, desc.timeout);
        if (ready > 0) {
            const RadRecvCtx context{
                .socket = socket, .host = desc.host, .source = &local, .secret = desc.secret};
            return receiveReply(context, request, replyOut, outcome);
        }
        if (ready < 0 && errno == EINTR) {
            continue;  // sent again without counting as a retry, on purpose
        }
        if (ready < 0) {
            failAt(outcome, RAD_STEP_WAIT, errno);
            radLogAs("radSendtoServer", kLogError, "radSendtoServer: select() Failed: %s\n",
                     ErrorText(outcome.reason).text());
            return -1;
        }
        if (attempt >= desc.retries) {
            radLogAs("radSendtoServer", kLogError,
                     "radSendtoServer: No reply from RADIUS server %s:%u\n", desc.host, desc.port);
            return failAt(outcome, RAD_STEP_WAIT, RAD_REASON_NO_REPLY);
        }
        ++attempt;
    }
}

ssize_t receive(const RadRecvCtx &ctx, void *buffer, size_t size, int flags) {
    socklen_t addressSize = sizeof(*ctx.source);
    return recvfrom(ctx.socket, buffer, size, flags, asAddress(ctx.source), &addressSize);
}

// A datagram that is too short for a header is taken from the socket all the same.
void discardShort(const RadRecvCtx &ctx, size_t size) {
    radLogAs("radRecvfromServer", kLogError, "radRecvfromServer: Packet too small from %s:%d: %s\n",
             shownText(ctx.host), ctx.source->sin_family, ErrorText(errno).text());
    std::array<uint8_t, RAD_HEADER_SIZE> octets{};
    receive(ctx, octets.data(), size, 0);
}

// Reads the waiting datagram, whose header says that it has `length` octets, and tells how many
// came. There is room for at least one octet more than that, so that a longer datagram shows.
PartitionPtr<uint8_t[]> readReply(const RadRecvCtx &ctx, size_t length, size_t &received,
                                  RadLastError &outcome) {
    const size_t size =
        std::min<size_t>(length, RAD_PACKET_MAX) + std::max<size_t>(std::strlen(ctx.secret), 1);
    auto octets = allocateBytes(std::max<size_t>(size, RAD_HEADER_SIZE));
    if (!octets) {
        failAt(outcome, RAD_STEP_RECEIVE, RAD_REASON_NO_MEMORY);
        return nullptr;
    }
    radLogAs("radRecvfromServer", kLogTrace, "Receiving Reply Packet....\n");
    const ssize_t count = receive(ctx, octets.get(), size, 0);
    if (count < 0) {
        failAt(outcome, RAD_STEP_RECEIVE, errno);
        radLogAs("radRecvfromServer", kLogError, "radRecvfromServer: recvfrom() Failed: %s\n",
                 ErrorText(outcome.reason).text());
        return nullptr;
    }
    received = static_cast<size_t>(count);
    palModuleDebugHex(kModuleLibrary, kLogDump, "RADIUS Rx Buffer", octets.get(),
                      static_cast<int>(received));
    return octets;
}

// Checks a reply as a whole: 0, or the reason to refuse it.
int32_t radCheckReply(RadPacket *reply, size_t received, const RadPacket &request,
                      const char *secret) {
    const size_t length = packetLength(*reply);
    if (received != length || length > RAD_PACKET_MAX) {
        radLog(kLogError,
               "radCheckReply: Received (%d) octets doesn't match length in packet: %d\n",
               static_cast<int>(received), static_cast<int>(length));
        return RAD_REASON_REPLY_LENGTH;
    }
    if (reply->identifier != request.identifier) {
        radLog(kLogError, "radCheckReply: Expected id: %d, received id: %d\n", request.identifier,
               reply->identifier);
        return RAD_REASON_REPLY_IDENTIFIER;
    }
    if (!replyIsAuthentic(reply, request, secret)) {
        radLog(kLogError, "radCheckReply: received invalid reply digest from RADIUS server\n");
        return RAD_REASON_REPLY_AUTHENTICATOR;
    }
    radLog(kLogTrace, "Verified Reply Packet Integrity\n");
    return 0;
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
                const char *secret, RadLastError &outcome) {
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
        outcome.reason = refusal;
    }
    return status;
}

// Decodes a checked reply. On failure no list is left.
int decodeReply(RadPacket *reply, RadPacket *request, const char *secret, RadPair **replyOut,
                RadLastError &outcome) {
    const int status = radPairGen(reply, replyOut);
    if (status != 0) {
        outcome.reason = RAD_REASON_REPLY_ATTRIBUTES;
        return status;
    }
    radLogAs("radCheckReply", kLogTrace, "Generated Reply Attribute-Value pairs\n");
    for (RadPair *pair = *replyOut; pair; pair = pair->next) {
        const int verdict = processPair(pair, *replyOut, reply, request, secret, outcome);
        if (verdict != 0) {
            radPairListFree(*replyOut);
            *replyOut = nullptr;
            return verdict;
        }
    }
    outcome.code = reply->code;
    return reply->code;
}

// radRecvfromServer() with its arguments there.
int receiveReply(const RadRecvCtx &ctx, RadPacket *request, RadPair **replyOut,
                 RadLastError &outcome) {
    *replyOut = nullptr;
    RadPacket header{};
    const ssize_t peeked = receive(ctx, &header, sizeof(header), MSG_PEEK);
    if (peeked < 0) {
        failAt(outcome, RAD_STEP_RECEIVE, errno);
        radLogAs("radRecvfromServer", kLogError, "radRecvfromServer: recvfrom() Failed: %s\n",
                 ErrorText(outcome.reason).text());
        return -1;
    }
    if (static_cast<size_t>(peeked) < sizeof(header)) {
        discardShort(ctx, static_cast<size_t>(peeked));
        return failAt(outcome, RAD_STEP_REPLY, RAD_REASON_REPLY_SHORT);
    }
    size_t received = 0;
    const auto octets = readReply(ctx, packetLength(header), received, outcome);
    if (!octets) {
        return -1;
    }
    failAt(outcome, RAD_STEP_REPLY,
           radCheckReply(asPacket(octets), received, *request, ctx.secret));
    return outcome.reason == 0
               ? decodeReply(asPacket(octets), request, ctx.secret, replyOut, outcome)
               : -1;
}

}  // namespace

int sendToServer(const RadRequestDesc &desc, const RadPair *pairs, RadPair **replyOut,
                 RadLastError &outcome) {
    *replyOut = nullptr;
    outcome.timeout = desc.timeout;
    failAt(outcome, RAD_STEP_RESOLVE, RAD_REASON_HOST_UNKNOWN);
    if (!desc.host || !*desc.host) {
        return -1;
    }
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_port = htons(static_cast<uint16_t>(desc.port));
    server.sin_addr.s_addr = radGetIPByName(desc.host);
    if (server.sin_addr.s_addr == 0) {
        return -1;
    }
    radLogAs("radSendtoServer", kLogTrace, "Server found: %s, secret: %s\n", desc.host,
             shownSecret(desc.secret));

    const Socket socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (socket.descriptor() < 0) {
        failAt(outcome, RAD_STEP_SOCKET, errno);
        radLogAs("radSendtoServer", kLogError, "radSendtoServer: socket: %s\n",
                 ErrorText(outcome.reason).text());
        return -1;
    }
    sockaddr_in local{};
    if (!bindToAnyPort(socket.descriptor(), local)) {
        failAt(outcome, RAD_STEP_BIND, errno);
        radLogAs("radSendtoServer", kLogError, "radSendtoServer: bind() Failed: %s: %s\n",
                 desc.host, ErrorText(outcome.reason).text());
        return -1;
    }
    int status = 0;
    const auto request = packRequest(desc, pairs, status, outcome);
    if (!request) {
        return status;
    }
    const int result =
        exchange(desc, socket.descriptor(), local, server, asPacket(request), replyOut, outcome);
    // Given: a name that is in neither the resolver nor a readable hosts file is sent to as
    // 255.255.255.255. The reason is the name, not what the system says of that address.
    if (server.sin_addr.s_addr == INADDR_NONE && outcome.step == RAD_STEP_SEND &&
        std::strcmp(desc.host, "255.255.255.255") != 0) {
        failAt(outcome, RAD_STEP_RESOLVE, RAD_REASON_HOST_UNKNOWN);
    }
    return result;
}

}  // namespace lanyard

using namespace lanyard;

int radSendtoServer(const RadRequestDesc *desc, const RadPair *pairs, RadPair **replyOut) {
    forgetOutcomes();
    if (!desc || !pairs || !replyOut) {
        return -1;
    }
    RadLastError outcome = outcomeAt(desc->host ? desc->host : "", desc->port);
    const int result = sendToServer(*desc, pairs, replyOut, outcome);
    noteOutcome(outcome);
    return result;
}

int radRecvfromServer(const RadRecvCtx *ctx, RadPacket *request, RadPair **replyOut) {
    if (!ctx || !request || !replyOut || ctx->socket < 0 || !ctx->source || !ctx->secret) {
        return -1;
    }
    RadLastError unrecorded{};
    return receiveReply(*ctx, request, replyOut, unrecorded);
}
