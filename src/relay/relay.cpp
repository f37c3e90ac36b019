// An EAP-Response from Pnac becomes an Access-Request, and the server's answer goes back (RFC 3579
// section 2): one in a pass. Then the ageing of conversations.
#include "relay/relay.h"

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
#include "relay/element.h"
#include "relay/in_flight.h"
#include "relay/port_info.h"

namespace lanyard {
namespace {

constexpr const char *kTag = "radEapRecvTask";

constexpr uint32_t kServiceTypeFramed = 2;
constexpr uint32_t kFramedMtu = 1420;

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

// What follows an EAP packet to Pnac: the key information of a reply, and what only an
// authenticator that knows of requests in flight is told.
class Accompaniment {
  public:
    // False when memory is exhausted.
    bool takeKeyInfo(RadPair *reply, int radiusCode) {
        uint8_t *block = nullptr;
        uint32_t size = 0;
        const int status = radEapKeyInfoBuild(reply, &block, &size, radiusCode);
        block_ = SecretBytes(block, WipingDeleter{size});
        size_ = size;
        return status == 0;
    }

    // Adds an element to the block, or begins one. False when memory is exhausted.
    bool add(uint8_t type, std::span<const uint8_t> value) {
        const size_t before = size_ == 0 ? kBlockHeaderSize : size_;
        const size_t after = before + kElementHeaderSize + value.size();
        auto block = allocateSecret(after);
        if (!block) {
            return false;
        }
        ByteWriter writer({block.get(), after});
        writer.u16(static_cast<uint16_t>(after));
        if (size_ > 0) {
            writer.bytes(bytes().subspan(kBlockHeaderSize));
        }
        writer.u8(type);
        writer.u8(static_cast<uint8_t>(kElementHeaderSize + value.size()));
        writer.bytes(value);
        block_ = std::move(block);
        size_ = after;
        return true;
    }

    std::span<const uint8_t> bytes() const { return {block_.get(), size_}; }

  private:
    SecretBytes block_;
    size_t size_ = 0;
};

// Where the accept puts the supplicant (RFC 3580 section 3.31): the text without its tag. Empty for
// nowhere.
std::span<const uint8_t> vlanOf(RadPair *reply) {
    constexpr uint32_t kVlan = 13;
    constexpr uint32_t kIeee802 = 6;
    constexpr uint32_t kValueMask = 0xFFFFFF;  // below the tag (RFC 2868 section 3.1)
    constexpr uint8_t kTagMax = 0x1F;
    const auto is = [reply](int attrNum, uint32_t number) {
        const RadPair *pair = radPairGet(reply, attrNum);
        return pair && pair->type == RAD_TYPE_INTEGER && (pair->numValue & kValueMask) == number;
    };
    RadPair *group = radPairGet(reply, RAD_ATTR_TUNNEL_PRIVATE_GROUP_ID);
    if (!group || group->type != RAD_TYPE_STRING || !is(RAD_ATTR_TUNNEL_TYPE, kVlan) ||
        !is(RAD_ATTR_TUNNEL_MEDIUM_TYPE, kIeee802)) {
        return {};
    }
    const std::span text(reinterpret_cast<const uint8_t *>(group->strValue),
                         std::min<size_t>(group->numValue, RAD_VALUE_MAX));
    return text.empty() || text[0] > kTagMax ? text : text.subspan(1);
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
    Accompaniment behind;
    if (sum == 0 || !behind.takeKeyInfo(reply, RAD_CODE_ACCESS_CHALLENGE)) {
        return;
    }
    const size_t size = sum + behind.bytes().size();
    const auto payload = allocateSecret(size);
    if (!payload || !joinEapMessages(reply, {payload.get(), sum})) {
        return;
    }
    ByteWriter writer({payload.get() + sum, behind.bytes().size()});
    writer.bytes(behind.bytes());
    radDeviceLogAs(kTag, kLogTrace, "Sending Reply EAP Packet to Pnac\n");
    if (radEapSendRtn(payload.get(), static_cast<int32_t>(size), entry.cookie) == -1) {
        radDeviceLogAs(kTag, kLogTrace, "Error sending packet to Pnac\n");
    }
}

void sendVerdict(const RadEapQueueEntry &entry, const uint8_t *response, EapCode code,
                 const Accompaniment &behind) {
    radEapSendResult(response, entry.cookie, static_cast<uint8_t>(code), behind.bytes().data(),
                     static_cast<uint32_t>(behind.bytes().size()));
}

void relayAccept(RadEapQueueEntry &entry, const uint8_t *response, RadPair *reply) {
    Accompaniment behind;
    const auto vlan = servesManyAtOnce() ? vlanOf(reply) : std::span<const uint8_t>();
    if (behind.takeKeyInfo(reply, RAD_CODE_ACCESS_ACCEPT) &&
        (vlan.empty() || behind.add(RAD_EAP_VLAN, vlan))) {
        radDeviceLogAs(kTag, kLogTrace,
                       "RADIUS Authentication Successful; Sending EAP-Success to Pnac\n");
        sendVerdict(entry, response, EapCode::kSuccess, behind);
    }
}

void relay(RadEapQueueEntry &entry) {
    PairList request;
    if (!isRelayable(pendingPacket(entry)) || !makeRequest(entry, request)) {
        return;
    }
    PairList reply;
    const int code = radBuildAndSendReq(RAD_CODE_ACCESS_REQUEST, request.head(), reply.address());
    answer(entry, entry.packet, code, reply.head(), 0);
}

}  // namespace

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

bool makeRequest(RadEapQueueEntry &entry, PairList &request) {
    const Companion *companion = companionOf(entry);
    const auto port = companion ? companion->portInfo() : std::span<const uint8_t>();
    return noteIdentity(entry) && addIdentity(entry, request) && moveState(entry, request) &&
           addEapMessage(pendingPacket(entry), request) && addServiceType(request) &&
           addFramedMtu(request) && addPortInfo(port, request);
}

void expire(RadEapQueueEntry &entry) {
    const uint8_t *response = entry.packet;
    const Companion *companion = companionOf(entry);
    if (!response && companion && companion->request) {
        response = companion->answered.data();
    }
    if (response && entry.cookie) {
        sendFailure(entry, response, RAD_EAP_FAILED_EXPIRED);
    }
    radEapCtxClear(&entry);
    radEapMsgQueueRelease(&entry);
}

void sendFailure(const RadEapQueueEntry &entry, const uint8_t *response, uint8_t reason) {
    Accompaniment behind;
    if (servesManyAtOnce()) {
        behind.add(RAD_EAP_FAILURE_REASON, {&reason, 1});
    }
    sendVerdict(entry, response, EapCode::kFailure, behind);
}

bool answer(RadEapQueueEntry &entry, const uint8_t *response, int code, RadPair *reply,
            uint8_t failureReason) {
    switch (code) {
        case RAD_CODE_ACCESS_CHALLENGE:
            relayChallenge(entry, reply);
            return false;
        case RAD_CODE_ACCESS_ACCEPT:
            relayAccept(entry, response, reply);
            break;
        case RAD_CODE_ACCESS_REJECT:
        case -1:
            radDeviceLogAs(kTag, kLogTrace,
                           "RADIUS Authentication Failed; Sending EAP-Failure to Pnac\n");
            sendFailure(entry, response, failureReason);
            break;
        default:
            return false;
    }
    radEapCtxClear(&entry);
    return true;
}

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
