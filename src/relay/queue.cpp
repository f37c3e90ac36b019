// The conversations of the relay, in the order of their first packets. Each holds the one EAP
// packet that waits, and what outlives a packet: the identity, and the State of the last challenge.
#include <cstring>

#include <lanyard/radius/eap.h>
#include <palcore.h>

#include "base/log.h"
#include "base/partition.h"
#include "relay/conversation.h"
#include "relay/in_flight.h"

PalList radEapMsgQueue = {nullptr, nullptr};

namespace lanyard {
namespace {

constexpr const char *kAddTag = "radEapMsgQueueAdd";
constexpr int32_t kLengthMin = 4;

void freeEntry(RadEapQueueEntry *entry) {
    cancelRequest(*entry);
    dropCompanion(companionOf(*entry));
    freePending(*entry);
    radEapCtxClear(entry);
    palMemPartFree(radMemPartId, entry);
}

// Longer than an EAP packet, or shorter than its header. The bounds compare differently, so that a
// length with its top bit set passes; no memory is found for it then, which ends its conversation.
bool hasInvalidLength(int32_t length) {
    return length > RAD_EAP_PACKET_MAX ||
           static_cast<uint32_t>(length) < static_cast<uint32_t>(kLengthMin);
}

PartitionPtr<uint8_t> copyBytes(const uint8_t *packet, uint32_t length) {
    PartitionPtr<uint8_t> copy(static_cast<uint8_t *>(palMemPartAlloc(radMemPartId, length)));
    if (copy) {
        std::memcpy(copy.get(), packet, length);
    }
    return copy;
}

int addToEntry(RadEapQueueEntry &entry, const uint8_t *packet, uint32_t length) {
    freePending(entry);
    auto copy = copyBytes(packet, length);
    if (!copy) {
        palListNodeRemove(&radEapMsgQueue, &entry.node);
        freeEntry(&entry);
        return -1;
    }
    radDeviceLogAs(kAddTag, kLogTrace, "Adding Packet for existing cookie:%p\n",
                   asPointer(entry.cookie));
    entry.packet = copy.release();
    entry.packetLen = length;
    return 0;
}

int addEntry(const uint8_t *packet, uint32_t length, uint32_t cookie, uint32_t destModule,
             uint32_t replyCmd) {
    auto entry = allocateRecord<RadEapQueueEntry>();
    if (!entry) {
        return -1;
    }
    auto copy = copyBytes(packet, length);
    if (!copy) {
        return -1;
    }
    entry->packet = copy.release();
    entry->packetLen = length;
    entry->cookie = cookie;
    entry->destModule = destModule;
    entry->replyCmd = replyCmd;
    radDeviceLogAs(kAddTag, kLogTrace, "Adding Packet and cookie:%p\n", asPointer(cookie));
    palListNodeAppend(&radEapMsgQueue, &entry.release()->node);
    return 0;
}

}  // namespace

// A response may be a digest of the password.
void freePending(RadEapQueueEntry &entry) {
    if (entry.packet) {
        explicit_bzero(entry.packet, entry.packetLen);
    }
    palMemPartFree(radMemPartId, entry.packet);
    entry.packet = nullptr;
    entry.packetLen = 0;
}

}  // namespace lanyard

using namespace lanyard;

int radEapRecv(const uint8_t *packet, int32_t length, uint32_t cookie, uint32_t destModule,
               uint32_t replyCmd) {
    if (!packet || !cookie) {
        return -1;
    }
    if (hasInvalidLength(length)) {
        radDeviceLogAs(kAddTag, kLogError, "radEapMsgQueueAdd: Invalid EAP packet length(%d)\n",
                       length);
        return 0;
    }
    const auto size = static_cast<uint32_t>(length);
    RadEapQueueEntry *entry = findEntry(cookie);
    return entry ? addToEntry(*entry, packet, size)
                 : addEntry(packet, size, cookie, destModule, replyCmd);
}

int radEapMsgQueueRelease(RadEapQueueEntry *entry) {
    if (!entry) {
        return -1;
    }
    if (entry->identity || entry->state) {
        radDeviceLog(kLogTrace, "Releasing Packet with cookie:%p\n", asPointer(entry->cookie));
        freePending(*entry);
        return 0;
    }
    radDeviceLog(kLogTrace, "Releasing Packet and cookie:%p\n", asPointer(entry->cookie));
    for (RadEapQueueEntry *queued = firstEntry(); queued; queued = nextEntry(queued)) {
        if (queued == entry) {
            palListNodeRemove(&radEapMsgQueue, &entry->node);
            break;
        }
    }
    freeEntry(entry);
    return 0;
}

int radEapCtxClear(RadEapQueueEntry *entry) {
    if (entry) {
        palMemPartFree(radMemPartId, entry->identity);
        entry->identity = nullptr;
        radPairListFree(entry->state);
        entry->state = nullptr;
    }
    return 0;
}

int radEapMsgQueueCleanUp(void) {
    for (RadEapQueueEntry *entry = firstEntry(); entry;) {
        RadEapQueueEntry *next = nextEntry(entry);
        freeEntry(entry);
        entry = next;
    }
    palListInit(&radEapMsgQueue);
    return 0;
}
