// Lists that own nothing.
#include <palcore.h>

int palListInit(PalList *list) {
    if (list == NULL) {
        return -1;
    }
    list->first = NULL;
    list->last = NULL;
    return 0;
}

int palListNodeAppend(PalList *list, PalListNode *node) {
    if (list == NULL || node == NULL) {
        return -1;
    }
    node->next = NULL;
    node->prev = list->last;
    *(list->last != NULL ? &list->last->next : &list->first) = node;
    list->last = node;
    return 0;
}

int palListNodeRemove(PalList *list, PalListNode *node) {
    if (list == NULL || node == NULL) {
        return -1;
    }
    PalListNode **before = node->prev != NULL ? &node->prev->next : &list->first;
    PalListNode **after = node->next != NULL ? &node->next->prev : &list->last;
    if (*before != node || *after != node) {
        return -1;
    }
    *before = node->next;
    *after = node->prev;
    node->next = NULL;
    node->prev = NULL;
    return 0;
}
