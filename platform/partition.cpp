#include "platform/partition.h"

#include <new>
#include <utility>

#include "platform/poison.h"

namespace lanyard::port {

std::unique_ptr<Partition> Partition::create(void *memory, size_t size) {
    std::unique_ptr<Partition> made(new (std::nothrow) Partition);
    const size_t units = size / Pool::kAlignment;
    HeapOwner<uint32_t> live(
        static_cast<uint32_t *>(std::calloc(units / 32 + 1, sizeof(uint32_t))));
    if (!made || !live) {
        return nullptr;
    }
    HeapOwner<std::byte> own;
    if (memory == nullptr) {
        own.reset(static_cast<std::byte *>(std::malloc(size)));
        memory = own.get();
        if (memory == nullptr) {
            return nullptr;
        }
    }
    auto *start = static_cast<std::byte *>(memory);
    if (!made->pool_.create(start, size)) {
        return nullptr;
    }
    made->memory_ = start;
    made->size_ = size;
    made->own_ = std::move(own);
    made->live_ = std::move(live);
    ASAN_POISON_MEMORY_REGION(start, size);
    return made;
}

Partition::~Partition() {
    ASAN_UNPOISON_MEMORY_REGION(memory_, size_);
}

void *Partition::allocate(size_t size) {
    const size_t unit = size > size_ ? 0 : pool_.allocate(size);
    if (unit == 0) {
        return nullptr;
    }
    bitsOf(unit) |= bitOf(unit);
    std::byte *block = pool_.start() + unit * Pool::kAlignment;
    ASAN_UNPOISON_MEMORY_REGION(block, size);
    return block;
}

bool Partition::release(void *block) {
    // Huge, and so too far, for what lies before the pool.
    const uintptr_t offset =
        reinterpret_cast<uintptr_t>(block) - reinterpret_cast<uintptr_t>(pool_.start());
    if (offset >= size_ || offset % Pool::kAlignment != 0) {
        return false;
    }
    const size_t unit = offset / Pool::kAlignment;
    if ((bitsOf(unit) & bitOf(unit)) == 0) {
        return false;
    }
    bitsOf(unit) &= ~bitOf(unit);
    ASAN_POISON_MEMORY_REGION(block, pool_.capacity(unit));
    pool_.release(unit);
    return true;
}

}  // namespace lanyard::port
