// The companions of conversations: one thread's, few beside the conversations themselves.
#include <algorithm>

#include "base/partition.h"
#include "relay/conversation.h"

namespace lanyard {
namespace {

constexpr size_t kPortInfoMax = 320;  // four elements, the largest of 255 bytes

constinit PalList companions{nullptr, nullptr};

}  // namespace

Companion *companionOf(const RadEapQueueEntry &entry) {
    PalListNode *node = companions.first;
    while (node && static_cast<Companion *>(node)->entry != &entry) {
        node = node->next;
    }
    return static_cast<Companion *>(node);
}

Companion *giveCompanion(const RadEapQueueEntry &entry) {
    Companion *known = companionOf(entry);
    if (known) {
        return known;
    }
    Companion *companion = allocateObject<Companion>(entry).release();
    palListNodeAppend(&companions, companion);
    return companion;
}

void dropCompanion(Companion *companion) {
    if (companion) {
        palListNodeRemove(&companions, companion);
        ObjectDeleter<Companion>()(companion);
    }
}

void keepPortInfo(const RadEapQueueEntry &entry, std::span<const uint8_t> block) {
    const bool isKept = !block.empty() && block.size() <= kPortInfoMax;
    Companion *companion = isKept ? giveCompanion(entry) : companionOf(entry);
    if (!companion) {
        return;
    }
    companion->port = isKept ? allocateBytes(block.size()) : nullptr;
    companion->portSize = companion->port ? block.size() : 0;
    std::copy_n(block.begin(), companion->portSize, companion->port.get());
}

}  // namespace lanyard
