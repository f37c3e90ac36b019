// Owners of memory from the library's partition. Every allocation is held by one of these until it
// is handed over with release().
#ifndef LANYARD_BASE_PARTITION_H
#define LANYARD_BASE_PARTITION_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <type_traits>

#include <lanyard/radius/frame.h>
#include <palcore.h>

namespace lanyard {

struct PartitionDeleter {
    void operator()(void *block) const { palMemPartFree(radMemPartId, block); }
};

template <typename T>
using PartitionPtr = std::unique_ptr<T, PartitionDeleter>;

// A zeroed record; null when memory is exhausted.
template <typename T>
requires std::is_trivially_copyable_v<T> PartitionPtr<T> allocateRecord() {
    static_assert(alignof(T) <= 8, "a partition aligns its blocks to 8 octets");
    void *block = palMemPartAlloc(radMemPartId, sizeof(T));
    if (block) {
        std::memset(block, 0, sizeof(T));
    }
    return PartitionPtr<T>(static_cast<T *>(block));
}

// Zeroed octets; null when memory is exhausted.
inline PartitionPtr<uint8_t[]> allocateBytes(size_t size) {
    if (size > std::numeric_limits<uint32_t>::max()) {
        return nullptr;
    }
    void *block = palMemPartAlloc(radMemPartId, static_cast<uint32_t>(size));
    if (block) {
        std::memset(block, 0, size);
    }
    return PartitionPtr<uint8_t[]>(static_cast<uint8_t *>(block));
}

// Scratch octets that hold a secret or a password: wiped before they are released.
struct WipingDeleter {
    size_t size = 0;

    void operator()(uint8_t *block) const {
        explicit_bzero(block, size);
        palMemPartFree(radMemPartId, block);
    }
};

using SecretBytes = std::unique_ptr<uint8_t[], WipingDeleter>;

inline SecretBytes allocateSecret(size_t size) {
    return SecretBytes(allocateBytes(size).release(), WipingDeleter{size});
}

// A copy of a text; null when memory is exhausted.
inline PartitionPtr<char> copyText(const char *text) {
    return PartitionPtr<char>(palMemPartStrDup(radMemPartId, text));
}

}  // namespace lanyard

#endif
