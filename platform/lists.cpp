// Intrusive, doubly linked lists.
#include <palcore.h>

#include "platform/export.h"

PAL_EXPORT int palListInit(PalList *list) {
    if (list == nullptr) {
        return -1;
    }
    *list = PalList{nullptr, nullptr};
    return 0;
}

PAL_EXPORT int palListNodeAppend(PalList *list, PalListNode *node) {
    if (list == nullptr || node == nullptr) {
        return -1;
    }
    *node = PalListNode{nullptr, list->last};
    (list->last == nullptr ? list->first : list->last->next) = node;
    list->last = node;
    return 0;
}

PAL_EXPORT int palListNodeRemove(PalList *list, PalListNode *node) {
    if (list == nullptr || node == nullptr) {
        return -1;
    }
    PalListNode *&linkToNode = node->prev == nullptr ? list->first : node->prev->next;
    PalListNode *&linkBack = node->next == nullptr ? list->last : node->next->prev;
    if (linkToNode != node || linkBack != node) {
        return -1;
    }
    linkToNode = node->next;
    linkBack = node->prev;
    *node = PalListNode{nullptr, nullptr};
    return 0;
}
