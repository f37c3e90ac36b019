// Partitions on malloc. Each counts the bytes that its blocks take; the blocks of all of them are in one list,
// where a pointer that is no live block is not found.
#include <pthread.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include <palcore.h>

enum { kPartitions = 8 };

typedef struct Block {
    struct Block *next;
    PalMemPartId part;
    uint32_t size;
    max_align_t content[];
} Block;

static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static Block *blocks = NULL;
static PalMemPartId created = 0;
// By its id: an id is never used again.
static struct { uint32_t size, used; } partitions[kPartitions + 1];

PalMemPartId palMemPartCreate(const char *name, void *memory, uint32_t size) {
    (void)name, (void)memory;
    pthread_mutex_lock(&lock);
    const PalMemPartId part = size > sizeof(Block) && created < kPartitions ? ++created : 0;
    if (part != 0) {
        partitions[part].size = size;
    }
    pthread_mutex_unlock(&lock);
    return part;
}

void *palMemPartAlloc(PalMemPartId part, uint32_t size) {
    const uint32_t taken = size + (uint32_t)sizeof(Block);
    if (size > INT32_MAX || part > kPartitions) {
        return NULL;
    }
    pthread_mutex_lock(&lock);
    Block *block = NULL;
    if (part == 0 || taken <= partitions[part].size - partitions[part].used) {
        block = malloc(taken);
    }
    if (block != NULL) {
        *block = (Block){.next = blocks, .part = part, .size = taken};
        blocks = block;
        partitions[part].used += taken;
    }
    pthread_mutex_unlock(&lock);
    return block != NULL ? block->content : NULL;
}

char *palMemPartStrDup(PalMemPartId part, const char *text) {
    const size_t size = text != NULL ? strlen(text) + 1 : 0;
    char *copy = size > 0 && size <= INT32_MAX ? palMemPartAlloc(part, (uint32_t)size) : NULL;
    return copy != NULL ? memcpy(copy, text, size) : NULL;
}

static void release(Block **link) {
    Block *block = *link;
    *link = block->next;
    partitions[block->part].used -= block->size;
    free(block);
}

int palMemPartFree(PalMemPartId part, void *content) {
    (void)part;
    if (content == NULL) {
        return 0;
    }
    pthread_mutex_lock(&lock);
    Block **link = &blocks;
    while (*link != NULL && (void *)(*link)->content != content) {
        link = &(*link)->next;
    }
    const int result = *link != NULL ? 0 : -1;
    if (result == 0) {
        release(link);
    }
    pthread_mutex_unlock(&lock);
    return result;
}

int palMemPartDestroy(PalMemPartId part) {
    pthread_mutex_lock(&lock);
    const int result = part > 0 && part <= kPartitions && partitions[part].size > 0 ? 0 : -1;
    if (result == 0) {
        for (Block **link = &blocks; *link != NULL;) {
            if ((*link)->part == part) {
                release(link);
            } else {
                link = &(*link)->next;
            }
        }
        partitions[part].size = 0;
    }
    pthread_mutex_unlock(&lock);
    return result;
}
