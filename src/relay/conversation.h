// Walking the relay's conversations, and what stands beside their public records.
#ifndef LANYARD_RELAY_CONVERSATION_H
#define LANYARD_RELAY_CONVERSATION_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include <lanyard/radius/eap.h>
#include <lanyard/radius/loop.h>

#include "base/partition.h"
#include "relay/eap_packet.h"

namespace lanyard {

// The linkage is the first member of an entry.
static_assert(offsetof(RadEapQueueEntry, node) == 0);

inline RadEapQueueEntry *asEntry(PalListNode *node) {
    return reinterpret_cast<RadEapQueueEntry *>(node);
}

inline RadEapQueueEntry *firstEntry() {
    return asEntry(radEapMsgQueue.first);
}

inline RadEapQueueEntry *nextEntry(const RadEapQueueEntry *entry) {
    return asEntry(entry->node.next);
}

inline RadEapQueueEntry *findEntry(uint32_t cookie) {
    RadEapQueueEntry *entry = firstEntry();
    while (entry && entry->cookie != cookie) {
        entry = nextEntry(entry);
    }
    return entry;
}

inline std::span<const uint8_t> pendingPacket(const RadEapQueueEntry &entry) {
    return {entry.packet, entry.packetLen};
}

// Frees the packet that waits.
void freePending(RadEapQueueEntry &entry);

using EapHeadBytes = std::array<uint8_t, kEapHeaderSize>;

// What a conversation has only at times: port information, and a request in flight.
struct Companion : PalListNode {
    explicit Companion(const RadEapQueueEntry &itsEntry) : PalListNode{}, entry(&itsEntry) {}

    const RadEapQueueEntry *const entry;
    PartitionPtr<uint8_t[]> port = {};  // of its last record
    size_t portSize = 0;
    RadRequest *request = nullptr;
    // The head of the response that the request carries: the verdict answers it.
    EapHeadBytes answered = {};

    std::span<const uint8_t> portInfo() const { return {port.get(), portSize}; }
};

// Null for none.
Companion *companionOf(const RadEapQueueEntry &entry);

// The same, or a new one; null when memory is exhausted.
Companion *giveCompanion(const RadEapQueueEntry &entry);

void dropCompanion(Companion *companion);

// Keeps what came with a record; nothing of an earlier one is left. Without memory there is none.
void keepPortInfo(const RadEapQueueEntry &entry, std::span<const uint8_t> block);

// A cookie as messages show it.
inline void *asPointer(uint32_t cookie) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): for "%p" alone.
    return reinterpret_cast<void *>(static_cast<uintptr_t>(cookie));
}

}  // namespace lanyard

#endif
