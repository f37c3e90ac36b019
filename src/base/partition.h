// Owners of memory from the library's partition. Every block has one until it is given to the caller
// with release().
#ifndef LANYARD_BASE_PARTITION_H
#define LANYARD_BASE_PARTITION_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

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
requires std::is_trivially_copyable_v<T>
[[nodiscard]] PartitionPtr<T> allocateRecord() {
    static_assert(alignof(T) <= 8, "a partition aligns its blocks to 8 bytes");
    void *block = palMemPartAlloc(radMemPartId, sizeof(T));
    if (block) {
        std::memset(block, 0, sizeof(T));
    }
    return PartitionPtr<T>(static_cast<T *>(block));
}

// An object with a constructor and a destructor.
template <typename T>
struct ObjectDeleter {
    void operator()(T *object) const {
        object->~T();
        palMemPartFree(radMemPartId, object);
    }
};

template <typename T>
using ObjectPtr = std::unique_ptr<T, ObjectDeleter<T>>;

// Null when memory is exhausted; the arguments are left alone then.
template <typename T, typename... Arguments>
[[nodiscard]] ObjectPtr<T> allocateObject(Arguments &&...arguments) {
    static_assert(alignof(T) <= 8, "a partition aligns its blocks to 8 bytes");
    void *block = palMemPartAlloc(radMemPartId, sizeof(T));
    return ObjectPtr<T>(block ? new (block) T(std::forward<Arguments>(arguments)...) : nullptr);
}

// Zeroed bytes; null when memory is exhausted.
[[nodiscard]] inline PartitionPtr<uint8_t[]> allocateBytes(size_t size) {
    if (size > std::numeric_limits<uint32_t>::max()) {
        return nullptr;
    }
    void *block = palMemPartAlloc(radMemPartId, static_cast<uint32_t>(size));
    if (block) {
        std::memset(block, 0, size);
    }
    return PartitionPtr<uint8_t[]>(static_cast<uint8_t *>(block));
}

// Wipes a block before it frees it.
struct WipingDeleter {
    size_t size = 0;

    void operator()(uint8_t *block) const {
        explicit_bzero(block, size);
        palMemPartFree(radMemPartId, block);
    }
};

// Scratch memory for a secret or a password.
using SecretBytes = std::unique_ptr<uint8_t[], WipingDeleter>;

// Zeroed bytes; null when memory is exhausted.
[[nodiscard]] inline SecretBytes allocateSecret(size_t size) {
    return SecretBytes(allocateBytes(size).release(), WipingDeleter{size});
}

// A copy of a text; null when memory is exhausted.
[[nodiscard]] inline PartitionPtr<char> copyText(const char *text) {
    return PartitionPtr<char>(palMemPartStrDup(radMemPartId, text));
}

}  // namespace lanyard

#endif
