// Memory partitions.
//
// A partition is a pool in one stretch of memory and, outside of it, a map with one bit for each
// place where a block can start. A pointer is freed only when its bit is set, so a double free, a
// foreign pointer or one into the middle of a block is refused without a look at what it points
// to. The blocks of partition 0 come from the C library and are kept in a set for the same reason.
//
// Under AddressSanitizer every byte of a pool is poisoned that no live block has asked for: free
// blocks, the rounding after a block and the pool's own words.
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <unordered_set>
#include <utility>
#include <vector>

#include <palcore.h>

#include "platform/export.h"
#include "platform/poison.h"
#include "platform/pool.h"

namespace lanyard::port {
namespace {

constexpr uint32_t kTopBit = 0x80000000U;

struct HeapDeleter {
    void operator()(void *memory) const { std::free(memory); }
};
template <typename T>
using HeapOwner = std::unique_ptr<T, HeapDeleter>;

// One bounded pool and the map of its live blocks.
class Partition {
  public:
    static std::unique_ptr<Partition> create(void *memory, size_t size);

    Partition() = default;
    Partition(const Partition &) = delete;
    Partition &operator=(const Partition &) = delete;
    Partition(Partition &&) = delete;
    Partition &operator=(Partition &&) = delete;
    ~Partition() { ASAN_UNPOISON_MEMORY_REGION(memory_, size_); }

    // std::less orders pointers into different objects, which `<` does not.
    bool spans(const void *pointer) const {
        const auto *byte = static_cast<const std::byte *>(pointer);
        return !std::less<>()(byte, memory_) && std::less<>()(byte, memory_ + size_);
    }

    void *allocate(size_t size);
    bool release(std::byte *block);

  private:
    size_t slotOf(const std::byte *block) const {
        // The first slot starts at a multiple of the alignment at or before the memory's start.
        const auto base = reinterpret_cast<uintptr_t>(memory_) / Pool::kAlignment;
        return reinterpret_cast<uintptr_t>(block) / Pool::kAlignment - base;
    }

    HeapOwner<std::byte> own_;
    HeapOwner<unsigned char> live_;
    std::byte *memory_ = nullptr;
    size_t size_ = 0;
    Pool pool_;
};

std::unique_ptr<Partition> Partition::create(void *memory, size_t size) {
    std::unique_ptr<Partition> made(new (std::nothrow) Partition);
    const size_t slots = size / Pool::kAlignment + 2;
    HeapOwner<unsigned char> live(static_cast<unsigned char *>(std::calloc(slots / 8 + 1, 1)));
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

void *Partition::allocate(size_t size) {
    if (size > size_) {
        return nullptr;
    }
    std::byte *block = pool_.allocate(size);
    if (block == nullptr) {
        return nullptr;
    }
    const size_t slot = slotOf(block);
    live_.get()[slot / 8] = static_cast<unsigned char>(live_.get()[slot / 8] | 1U << slot % 8);
    ASAN_UNPOISON_MEMORY_REGION(block, size);
    return block;
}

bool Partition::release(std::byte *block) {
    if (reinterpret_cast<uintptr_t>(block) % Pool::kAlignment != 0) {
        return false;
    }
    const size_t slot = slotOf(block);
    const unsigned bit = 1U << slot % 8;
    if ((live_.get()[slot / 8] & bit) == 0) {
        return false;
    }
    live_.get()[slot / 8] = static_cast<unsigned char>(live_.get()[slot / 8] & ~bit);
    ASAN_POISON_MEMORY_REGION(block, pool_.capacity(block));
    pool_.release(block);
    return true;
}

// All partitions and the live blocks of the heap.
class Registry {
  public:
    PalMemPartId create(void *memory, size_t size);
    void *allocate(PalMemPartId id, uint32_t size);
    bool release(void *block);
    bool destroy(PalMemPartId id);

  private:
    struct Entry {
        PalMemPartId id;
        std::unique_ptr<Partition> partition;
    };

    void *allocateFromHeap(uint32_t size);

    // A leak checker must not take the set of live blocks for their owner.
    static uintptr_t disguised(void *block) { return ~reinterpret_cast<uintptr_t>(block); }

    std::mutex mutex_;
    std::vector<Entry> partitions_;
    std::unordered_set<uintptr_t> heapBlocks_;
    PalMemPartId lastId_ = 0;
};

PalMemPartId Registry::create(void *memory, size_t size) {
    std::unique_ptr<Partition> partition = Partition::create(memory, size);
    if (!partition) {
        return 0;
    }
    const std::lock_guard lock(mutex_);
    if (lastId_ == UINT32_MAX) {
        return 0;
    }
    try {
        partitions_.push_back({lastId_ + 1, std::move(partition)});
    } catch (const std::bad_alloc &) {
        return 0;
    }
    return ++lastId_;
}

void *Registry::allocate(PalMemPartId id, uint32_t size) {
    if ((size & kTopBit) != 0) {
        return nullptr;
    }
    if (id == 0) {
        return allocateFromHeap(size);
    }
    const std::lock_guard lock(mutex_);
    for (const Entry &entry : partitions_) {
        if (entry.id == id) {
            return entry.partition->allocate(size);
        }
    }
    return nullptr;
}

void *Registry::allocateFromHeap(uint32_t size) {
    HeapOwner<void> block(std::malloc(size == 0 ? 1 : size));
    if (!block) {
        return nullptr;
    }
    const std::lock_guard lock(mutex_);
    try {
        heapBlocks_.insert(disguised(block.get()));
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
    return block.release();
}

bool Registry::release(void *block) {
    {
        const std::lock_guard lock(mutex_);
        if (heapBlocks_.erase(disguised(block)) == 0) {
            // A pool's memory may itself be a block of another pool: every pool is asked.
            for (const Entry &entry : partitions_) {
                if (entry.partition->spans(block) &&
                    entry.partition->release(static_cast<std::byte *>(block))) {
                    return true;
                }
            }
            return false;
        }
    }
    std::free(block);
    return true;
}

bool Registry::destroy(PalMemPartId id) {
    std::unique_ptr<Partition> gone;
    const std::lock_guard lock(mutex_);
    for (auto entry = partitions_.begin(); entry != partitions_.end(); ++entry) {
        if (entry->id == id) {
            gone = std::move(entry->partition);
            partitions_.erase(entry);
            return true;
        }
    }
    return false;
}

// Never destroyed: other libraries may free their blocks while the process exits.
Registry &registry() {
    alignas(Registry) static std::byte storage[sizeof(Registry)];
    static auto *const instance = new (storage) Registry;
    return *instance;
}

}  // namespace
}  // namespace lanyard::port

using namespace lanyard::port;

PAL_EXPORT PalMemPartId palMemPartCreate(const char * /*name*/, void *memory, uint32_t size) {
    return registry().create(memory, size);
}

PAL_EXPORT void *palMemPartAlloc(PalMemPartId part, uint32_t size) {
    return registry().allocate(part, size);
}

PAL_EXPORT char *palMemPartStrDup(PalMemPartId part, const char *text) {
    if (text == nullptr) {
        return nullptr;
    }
    const size_t size = std::strlen(text) + 1;
    if (size >= kTopBit) {
        return nullptr;
    }
    void *copy = palMemPartAlloc(part, static_cast<uint32_t>(size));
    if (copy != nullptr) {
        std::memcpy(copy, text, size);
    }
    return static_cast<char *>(copy);
}

PAL_EXPORT int palMemPartFree(PalMemPartId /*part*/, void *block) {
    return block == nullptr || registry().release(block) ? 0 : -1;
}

PAL_EXPORT int palMemPartDestroy(PalMemPartId part) {
    return registry().destroy(part) ? 0 : -1;
}
