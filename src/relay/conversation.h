// A conversation as the relay keeps it: the public record, and what stands beside it.
#ifndef LANYARD_RELAY_CONVERSATION_H
#define LANYARD_RELAY_CONVERSATION_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include <lanyard/radius/eap.h>
#include <lanyard/radius/loop.h>

#include "relay/eap_packet.h"

namespace lanyard {

// Every entry in radEapMsgQueue is one of these.
struct Conversation : RadEapQueueEntry {
    uint8_t *port;  // port information of its last record; null for none
    uint32_t portSize;
    RadRequest *request;  // in flight; null for none
    // The head of the response that it carries, which the verdict answers.
    std::array<uint8_t, kEapHeaderSize> answered;

    std::span<const uint8_t> pending() const { return {packet, packetLen}; }
    std::span<const uint8_t> portInfo() const { return {port, portSize}; }
};

// The linkage is the first member of an entry, and an entry the first of a conversation.
static_assert(offsetof(RadEapQueueEntry, node) == 0);

inline Conversation *asConversation(PalListNode *node) {
    return static_cast<Conversation *>(reinterpret_cast<RadEapQueueEntry *>(node));
}

inline Conversation *firstConversation() {
    return asConversation(radEapMsgQueue.first);
}

inline Conversation *nextConversation(const Conversation *conversation) {
    return asConversation(conversation->node.next);
}

inline Conversation *findConversation(uint32_t cookie) {
    Conversation *found = firstConversation();
    while (found && found->cookie != cookie) {
        found = nextConversation(found);
    }
    return found;
}

// Keeps what came with a record; nothing of an earlier one is left. Without memory there is none.
void keepPortInfo(Conversation &conversation, std::span<const uint8_t> block);

// Frees the packet that waits.
void freePending(RadEapQueueEntry &entry);

// A cookie as messages show it.
inline void *asPointer(uint32_t cookie) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): for "%p" alone.
    return reinterpret_cast<void *>(static_cast<uintptr_t>(cookie));
}

}  // namespace lanyard

#endif
