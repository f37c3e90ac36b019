// One request to one server over UDP: packing it, sending it, waiting (RFC 2865 section 3).
#include "client/transport.h"

#include <cerrno>
#include <cstring>
#include <optional>
#include <poll.h>
#include <sys/socket.h>

#include <lanyard/radius/engine.h>
#include <palcore.h>

#include "base/descriptor.h"
#include "base/log.h"
#include "base/partition.h"
#include "base/text.h"
#include "client/authenticator.h"
#include "client/last_error.h"
#include "client/receive.h"

namespace lanyard {
namespace {

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

// A packet and the bytes that it lies in.
struct OwnedPacket {
    PartitionPtr<uint8_t[]> bytes;
    std::optional<Packet> packet;
};

// Builds the request. Without one `status` says what the exchange returns.
OwnedPacket packRequest(const RadRequestDesc &desc, const RadPair *pairs, int &status,
                        RadLastError &outcome) {
    failAt(outcome, RAD_STEP_PREPARE, RAD_REASON_PACK);
    uint32_t attributesLength = 0;
    status = radPackList(pairs, RAD_PACK_MEASURE, &attributesLength);
    if (status != 0) {
        return {};
    }
    status = -1;
    const uint32_t length = attributesLength + RAD_HEADER_SIZE;
    if (length > RAD_PACKET_MAX) {
        radLogAs("radSendtoServer", kLogError,
                 "radSendtoServer: Send Packet too Large: %d, limit: %d\n",
                 static_cast<int>(length), RAD_PACKET_MAX);
        outcome.reason = RAD_REASON_TOO_LARGE;
        return {};
    }
    auto bytes = allocateBytes(length);
    if (!bytes) {
        outcome.reason = RAD_REASON_NO_MEMORY;
        return {};
    }
    auto *record = reinterpret_cast<RadPacket *>(bytes.get());
    record->code = desc.code;
    record->identifier = desc.identifier;
    setLengthField(*record, length);
    if (palRandGen(record->authenticator, RAD_DIGEST_SIZE) != 0) {
        outcome.reason = RAD_REASON_NO_RANDOM;
        return {};
    }
    // Before packing: a hook may write to the length field.
    const auto packet = Packet::ofCaller(record);
    status = radPackList(pairs, RAD_PACK, record, desc.secret);
    if (status != 0) {
        return {};
    }
    if (desc.code == RAD_CODE_ACCOUNTING_REQUEST) {
        signAccountingRequest(*packet, desc.secret);
    }
    radLogAs("radSendtoServer", kLogTrace, "Packed Auth. Reqest: code:%d, id:%d, len:%d\n",
             desc.code, desc.identifier, static_cast<int>(length));
    return {.bytes = std::move(bytes), .packet = packet};
}

// Sends the request until something comes back or the retries are used up.
int exchange(const RadRequestDesc &desc, int socket, sockaddr_in &local, sockaddr_in &server,
             Packet request, RadPair **replyOut, RadLastError &outcome) {
    const auto bytes = request.bytes();
    for (int32_t attempt = 0;;) {
        radLogAs("radSendtoServer", kLogTrace, "Sending Packet to %x:%d ....\n",
                 ntohl(server.sin_addr.s_addr), ntohs(server.sin_port));
        palModuleDebugHex(kModuleLibrary, kLogDump, "RADIUS Tx Buffer", bytes.data(),
                          static_cast<int>(bytes.size()));
        outcome.tries = attempt + 1;
        if (sendto(socket, bytes.data(), bytes.size(), 0, asAddress(&server), sizeof(server)) < 0) {
            return failAt(outcome, RAD_STEP_SEND, errno);
        }
        const int ready = waitForReply(socket, desc.timeout);
        if (ready > 0) {
            const RadRecvCtx context{
                .socket = socket, .host = desc.host, .source = &local, .secret = desc.secret};
            return receiveReply(context, request.record(), replyOut, outcome);
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

    const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket.isOpen()) {
        failAt(outcome, RAD_STEP_SOCKET, errno);
        radLogAs("radSendtoServer", kLogError, "radSendtoServer: socket: %s\n",
                 ErrorText(outcome.reason).text());
        return -1;
    }
    sockaddr_in local{};
    if (!bindToAnyPort(socket.get(), local)) {
        failAt(outcome, RAD_STEP_BIND, errno);
        radLogAs("radSendtoServer", kLogError, "radSendtoServer: bind() Failed: %s: %s\n",
                 desc.host, ErrorText(outcome.reason).text());
        return -1;
    }
    int status = 0;
    const auto request = packRequest(desc, pairs, status, outcome);
    if (!request.packet) {
        return status;
    }
    const int result =
        exchange(desc, socket.get(), local, server, *request.packet, replyOut, outcome);
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
