// One pass of the relay: an EAP-Response from Pnac becomes an Access-Request, and the server's
// answer goes back (RFC 3579 section 2). Then the ageing of conversations.
#include <algorithm>
#include <cstring>
#include <span>
#include <utility>

#include <lanyard/radius/attr.h>
#include <lanyard/radius/eap.h>
#include <lanyard/radius/engine.h>

#include "attr/pair_list.h"
#include "base/log.h"
#include "base/partition.h"
#include "base/wire.h"
#include "relay/eap_packet.h"
#include "relay/queue.h"

namespace lanyard {
namespace {

constexpr const char *kTag = "radEapRecvTask";

constexpr uint32_t kServiceTypeFramed = 2;
constexpr uint32_t kFramedMtu = 1420;

std::span<const uint8_t> pendingPacket(const RadEapQueueEntry &entry) {
    return {entry.packet, entry.packetLen};
}

// The first conversation with a packet that waits; null when none waits.
RadEapQueueEntry *firstPending() {
    RadEapQueueEntry *entry = firstEntry();
    while (entry && !entry->packet) {
        entry = nextEntry(entry);
    }
    if (entry) {
        radDeviceLogAs("radEapMsgQueueGet", kLogTrace, "Got Packet with cookie:%p\n",
                       asPointer(entry->cookie));
    }
    return entry;
}

bool isRelayable(std::span<const uint8_t> packet) {
    ByteReader reader(packet);
    const EapHead head = readEapHead(reader);
    if (head.code != EapCode::kResponse) {
        radDeviceLogAs(kTag, kLogError, "radEapRecvTask: invalid EAP code:%d\n",
                       static_cast<int>(head.code));
        return false;
    }
    if (head.length != packet.size()) {
        radDeviceLogAs(kTag, kLogError, "radEapRecvTask: Packet length mismatch %d, %d \n",
                       head.length, static_cast<int>(packet.size()));
        return false;
    }
    return true;
}

// Takes the identity from an Identity response: it restarts the conversation.
bool noteIdentity(RadEapQueueEntry &entry) {
    const auto typed = pendingPacket(entry).subspan(kEapHeaderSize);
    if (typed.empty() || typed[0] != kEapTypeIdentity) {
        return true;
    }
    radEapCtxClear(&entry);
    const auto name = typed.subspan(1);
    auto identity = allocateBytes(name.size() + 1);
    if (!identity) {
        return false;
    }
    std::copy(name.begin(), name.end(), identity.get());
    entry.identity = reinterpret_cast<char *>(identity.release());
    radDeviceLogAs(kTag, kLogTrace, "Received EAP-Identity from Pnac: %s\n", entry.identity);
    return true;
}

bool addIdentity(const RadEapQueueEntry &entry, PairList &request) {
    if (!entry.identity) {
        return true;
    }
    radDeviceLogAs(kTag, kLogTrace, "Filling User-Name: %s\n", entry.identity);
    return request.addText(RAD_ATTR_USER_NAME, entry.identity);
}

// The State moves from the conversation to the request.
bool moveState(RadEapQueueEntry &entry, PairList &request) {
    if (!entry.state) {
        return true;
    }
    radDeviceLogAs(kTag, kLogTrace, "Filling State:\n");
    return request.append(std::exchange(entry.state, nullptr));
}

bool addEapMessage(std::span<const uint8_t> packet, PairList &request) {
    radDeviceLogAs(kTag, kLogTrace, "Filling EAP-Message:\n");
    while (!packet.empty()) {
        const auto chunk = packet.first(std::min<size_t>(packet.size(), RAD_VALUE_MAX));
        if (!request.addBytes(RAD_ATTR_EAP_MESSAGE, chunk.data(), static_cast<int>(chunk.size()))) {
            return false;
        }
        packet = packet.subspan(chunk.size());
    }
    return true;
}

bool addServiceType(PairList &request) {
    radDeviceLogAs(kTag, kLogTrace, "Filling Service-Type: %d\n",
                   static_cast<int>(kServiceTypeFramed));
    return request.addNumber(RAD_ATTR_SERVICE_TYPE, kServiceTypeFramed);
}

bool addFramedMtu(PairList &request) {
    radDeviceLogAs(kTag, kLogTrace, "Filling Framed-MTU: %d\n", static_cast<int>(kFramedMtu));
    return request.addNumber(RAD_ATTR_FRAMED_MTU, kFramedMtu);
}

// The key-information block of a reply.
struct KeyInfo {
    SecretBytes block;
    uint32_t size = 0;
};

bool buildKeyInfo(RadPair *reply, int radiusCode, KeyInfo &info) {
    uint8_t *block = nullptr;
    const int status = radEapKeyInfoBuild(reply, &block, &info.size, radiusCode);
    info.block = SecretBytes(block, WipingDeleter{info.size});
    return status == 0;
}

// Keeps the State of a challenge for the next response. A challenge without one is relayed all the
// same.
bool keepState(RadEapQueueEntry &entry, RadPair *reply) {
    const RadPair *state = radPairGet(reply, RAD_ATTR_STATE);
    if (!state) {
        radDeviceLogAs(kTag, kLogError, "No State Attribute in Access-Challenge message\n");
        return true;
    }
    if (!entry.state) {
        entry.state = radPairDup(state);
    }
    return entry.state != nullptr;
}

RadPair *nextEapMessage(RadPair *list) {
    return radPairGet(list, RAD_ATTR_EAP_MESSAGE);
}

// Bytes of the EAP packet that the reply carries in pieces; 0, with the reason logged where there
// is one to tell, when it cannot be relayed.
uint16_t eapMessageSize(RadPair *reply) {
    uint16_t sum = 0;
    for (RadPair *pair = nextEapMessage(reply); pair; pair = nextEapMessage(pair->next)) {
        const int length = radPairValueLen(pair);
        if (length == -1 || length > RAD_VALUE_MAX) {
            return 0;
        }
        sum = static_cast<uint16_t>(sum + length);
    }
    if (sum == 0 || sum > RAD_EAP_PACKET_MAX) {
        radDeviceLogAs(kTag, kLogError,
                       "radEapRecvTask: No EAP-Message Found in RADIUS Server Reply "
                       "orEAP-Message longer than Framed-MTU\n");
        return 0;
    }
    return sum;
}

// Puts the pieces together. False when one of them has no value.
bool joinEapMessages(RadPair *reply, std::span<uint8_t> place) {
    ByteWriter writer(place);
    for (RadPair *pair = nextEapMessage(reply); pair; pair = nextEapMessage(pair->next)) {
        const auto *value = static_cast<const uint8_t *>(radPairValue(pair));
        const int length = radPairValueLen(pair);
        if (!value || length == -1) {
            return false;
        }
        writer.bytes({value, static_cast<size_t>(length)});
    }
    return writer.ok();
}

void relayChallenge(RadEapQueueEntry &entry, RadPair *reply) {
    radDeviceLogAs(kTag, kLogTrace, "Received Access-Challenge from Server\n");
    if (!reply) {
        radDeviceLogAs(kTag, kLogError, "No attributes received in Access-Challenge message\n");
        return;
    }
    if (!keepState(entry, reply)) {
        return;
    }
    const uint16_t sum = eapMessageSize(reply);
    KeyInfo info;
    if (sum == 0 || !buildKeyInfo(reply, RAD_CODE_ACCESS_CHALLENGE, info)) {
        return;
    }
    const auto payload = allocateSecret(sum + info.size);
    if (!payload || !joinEapMessages(reply, {payload.get(), sum})) {
        return;
    }
    if (info.size > 0) {
        std::memcpy(payload.get() + sum, info.block.get(), info.size);
    }
    radDeviceLogAs(kTag, kLogTrace, "Sending Reply EAP Packet to Pnac\n");
    if (radEapSendRtn(payload.get(), static_cast<int32_t>(sum + info.size), entry.cookie) == -1) {
        radDeviceLogAs(kTag, kLogTrace, "Error sending packet to Pnac\n");
    }
}

// Answers the response that waits.
void sendVerdict(const RadEapQueueEntry &entry, EapCode code, const uint8_t *block, uint32_t size) {
    radEapSendResult(entry.packet, entry.cookie, static_cast<uint8_t>(code), block, size);
}

void relayAccept(RadEapQueueEntry &entry, RadPair *reply) {
    KeyInfo info;
    if (buildKeyInfo(reply, RAD_CODE_ACCESS_ACCEPT, info)) {
        radDeviceLogAs(kTag, kLogTrace,
                       "RADIUS Authentication Successful; Sending EAP-Success to Pnac\n");
        sendVerdict(entry, EapCode::kSuccess, info.block.get(), info.size);
    }
    radEapCtxClear(&entry);
}

void relayFailure(RadEapQueueEntry &entry) {
    radDeviceLogAs(kTag, kLogTrace, "RADIUS Authentication Failed; Sending EAP-Failure to Pnac\n");
    sendVerdict(entry, EapCode::kFailure, nullptr, 0);
    radEapCtxClear(&entry);
}

void relay(RadEapQueueEntry &entry) {
    const auto packet = pendingPacket(entry);
    PairList request;
    if (!isRelayable(packet) || !noteIdentity(entry) || !addIdentity(entry, request) ||
        !moveState(entry, request) || !addEapMessage(packet, request) || !addServiceType(request) ||
        !addFramedMtu(request)) {
        return;
    }
    PairList reply;
    switch (radBuildAndSendReq(RAD_CODE_ACCESS_REQUEST, request.head(), reply.address())) {
        case RAD_CODE_ACCESS_CHALLENGE:
            relayChallenge(entry, reply.head());
            break;
        case RAD_CODE_ACCESS_ACCEPT:
            relayAccept(entry, reply.head());
            break;
        case RAD_CODE_ACCESS_REJECT:
        case -1:
            relayFailure(entry);
            break;
        default:
            break;
    }
}

void expire(RadEapQueueEntry &entry) {
    if (entry.packet && entry.cookie) {
        sendVerdict(entry, EapCode::kFailure, nullptr, 0);
    }
    radEapCtxClear(&entry);
    radEapMsgQueueRelease(&entry);
}

}  // namespace
}  // namespace lanyard

using namespace lanyard;

int radEapRecvTask(void) {
    RadEapQueueEntry *entry = firstPending();
    if (entry) {
        relay(*entry);
        radEapMsgQueueRelease(entry);
    }
    return 0;
}

int radEapSendResult(const uint8_t *eapResponse, uint32_t cookie, uint8_t eapCode,
                     const uint8_t *data, uint32_t dataLen) {
    if (!eapResponse) {
        return -1;
    }
    const std::span behind(data, data ? dataLen : 0);
    const size_t size = kEapHeaderSize + behind.size();
    const auto payload = allocateSecret(size);
    if (!payload) {
        return -1;
    }
    // The block behind the packet is outside of the EAP length, which stays that of the header.
    ByteWriter writer({payload.get(), size});
    writeEapHead(writer, {.code = static_cast<EapCode>(eapCode),
                          .identifier = eapResponse[1],
                          .length = kEapHeaderSize});
    writer.bytes(behind);
    radEapSendRtn(payload.get(), static_cast<int32_t>(size), cookie);
    return 0;
}

int radEapCtxTimeout(void) {
    for (RadEapQueueEntry *entry = firstEntry(); entry;) {
        RadEapQueueEntry *next = nextEntry(entry);
        if (entry->age < RAD_EAP_LIFE) {
            ++entry->age;
        } else {
            expire(*entry);
        }
        entry = next;
    }
    return 0;
}
