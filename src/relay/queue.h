// Walking the relay's conversations.
#ifndef LANYARD_RELAY_QUEUE_H
#define LANYARD_RELAY_QUEUE_H

#include <cstddef>
#include <cstdint>

#include <lanyard/radius/eap.h>

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

// A cookie as messages show it.
inline void *asPointer(uint32_t cookie) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): for "%p" alone.
    return reinterpret_cast<void *>(static_cast<uintptr_t>(cookie));
}

}  // namespace lanyard

#endif
